// The planner's state machine: dispatch of events to the handler of the persisted
// state, the tick thread's events, progress accounting, the test-case runner and
// executor launcher, the result archive and the crash-history copy. Its members
// are defined in the OstrelFSM*.cpp files of this folder, named after what they
// do; the machine is composed of parts from the folders below it, each reached
// through its own small interface: the plan store (store/), the run's threads
// and executor groups (exec/), the crash-history monitor and the run record
// (results/). Checks and diagnostic lines of the machine's own members are
// written in those members; a part writes its lines through the machine's
// writer (diagnostics()), so that every line reads as the machine's.
#pragma once

#include <sys/types.h>
#include <ziparchive/zip_writer.h>

#include <atomic>
#include <chrono>
#include <ctime>
#include <mutex>
#include <string>
#include <vector>

#include "ExecutorGroup.h"
#include "HistoryMonitor.h"
#include "OstrelFSMData.h"
#include "OstrelLog.h"
#include "PlannerEvent.h"
#include "PlannerState.h"
#include "ReplyLogSink.h"
#include "ResultLayout.h"
#include "RunRecord.h"
#include "RunThreads.h"

namespace vendor::brevane::hardware::ostrel::core {

constexpr const char* kFsmLogTag = "ostrel.core.fsm";
constexpr const char* kExecutorPath = "/vendor/bin/kelbrun";
// The result folder under the name that the result names' assertion lines read.
constexpr const char* FSM_RESULT_DIR = kResultDir;
constexpr int kTickSeconds = 10;

class OstrelFSM {
  public:
    // |owner| keeps the reply log that the config tool bridge writes to; null for none.
    explicit OstrelFSM(ReplyLogSink* owner);
    // Ends the run's threads (they use this object) and leaves the executor and
    // the persisted state as they are.
    ~OstrelFSM();

    // The single entry point for events. |buf_fp| carries a FILE* for the
    // handler's textual answer, or 0.
    bool sendEvent(PlannerEvent event, char* input, char* data, int value, long buf_fp);
    PlannerFSMState getState();

    // State handlers (dispatch reaches the one of the persisted state).
    bool idle(PlannerEvent event, char* input, char* data, int value, long buf_fp);
    bool preparing(PlannerEvent event, char* input, char* data, int value, long buf_fp);
    bool running(PlannerEvent event, char* input, char* data, int value, long buf_fp);
    bool completing(PlannerEvent event, char* input, char* data, int value, long buf_fp);

    // Progress accounting of the selected test cases.
    bool setRunningTestcasesTick();
    bool updateRunningTestcasesTick(int seconds, bool bootCompleted);
    bool checkRunningTestcasesTickToTarget();
    // True when a selected boot test of the live run is short of its target: a
    // boot now is one the plan asked for.
    bool bootTestWaiting();
    // The rounds the selected boot tests have counted, which a boot in the run
    // record must not exceed.
    int bootRoundsCounted();
    bool resetRunningTestcasesTick();

    // The end of a run in RUNNING: persists the finished flag, terminates the
    // executor's process group, ends the run's threads, moves to COMPLETING.
    // |cause| goes to the run record unless an end is recorded already.
    void endRun(const char* cause);

    // Test execution.
    bool runTestcases();
    // The executor's command line for the selected test cases (nothing is started).
    std::string executorCommandLine();
    bool forkAndExec(char** argv);
    bool runKelbrun(char** argv);

    // Results and crash history.
    bool packResults(char* zipfilename);
    int collect_files(ZipWriter& writer, const char* dir);
    int remove_files(const char* dir);
    // The body of run |run|'s monitor thread (watch: set up before the executor
    // starts, so that a line written in the executor's first moments is not missed).
    void monitorDBHistoryThread(HistoryMonitor::Watch watch, uint32_t run);
    std::string getLastLine(std::string path);
    bool appendLastLine(std::string path);
    bool saveDBHistory(char* hisfilename);

    // The configuration list as JSON text (malloc'd; the caller frees it), or null.
    char* getConfig();

    // Thread bodies; |run| is the run generation the thread belongs to.
    void tickThread(uint32_t run);

    template <typename... Args>
    void error(const char* fmt, Args... args) {
        formatDiagnostic(kFsmLogTag, __FILE__, fmt, args...);
    }
    void error(const char* message) { formatDiagnostic(kFsmLogTag, __FILE__, "%s", message); }

    // The error writer as a value, for the machine's parts.
    Diagnostics diagnostics() const { return {kFsmLogTag, __FILE__}; }

    // Views for tests and tools.
    OstrelFSMData& planStore() { return data; }
    RunRecord& runRecord() { return record; }
    int32_t executorPid() const { return executorProcessId.load(); }
    bool threadsAreRunning() const { return threads.running(); }
    // The clock used for result names; tests replace it to name a result at a
    // given moment or with no clock at all.
    void setTimeSource(time_t (*source)(time_t*)) { timeSource = source; }
    // The tick thread's period and the monitor's retry for a missing file; tests
    // shorten them. A tick still counts kTickSeconds.
    void setRunTimings(std::chrono::milliseconds tick, std::chrono::milliseconds retry) {
        threads.setTickPeriod(tick);
        history.setRetry(retry);
    }

  private:
    // Outermost-event bookkeeping: writes are held for the whole event; at its
    // end the plan is written once, ended supervisors are reaped, and the threads
    // of an ended run settled (a tick thread is handed out to be joined once the
    // event lock is released).
    void enterEvent();
    void leaveEvent(std::vector<RunThreads::Ended>* ended);
    void reapEndedSupervisors();
    bool dispatch(PlannerEvent event, char* input, int value, long buf_fp);
    // Writes |line|, read ahead by the monitor, to the history copy.
    void appendReadLine(const char* path, std::string& line);

    ReplyLogSink* owner;
    OstrelFSMData data;
    RunRecord record;
    // The supervisor's process id, which is also the run's process-group id;
    // -1 once the group was terminated, 0 before any run in this process.
    std::atomic<int32_t> executorProcessId;
    ExecutorGroup executors;
    HistoryMonitor history;
    RunThreads threads;
    // Serialises events from the binder thread and the tick thread; follow-on
    // events re-enter on the same thread.
    std::recursive_mutex eventMutex;
    int eventDepth = 0;
    time_t (*timeSource)(time_t*) = ::time;
};

}  // namespace vendor::brevane::hardware::ostrel::core
