// The planner's state machine: dispatch of events to the handler of the persisted
// state, the tick thread, progress accounting, the test-case runner and executor
// launcher, the result archive and the crash-history monitor. Members are defined
// in the OstrelFSM*.cpp files named after what they do, here in core/fsm/ and, for
// a run's results, in core/results/.
#pragma once

#include <sys/types.h>
#include <ziparchive/zip_writer.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <ctime>
#include <future>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "OstrelFSMData.h"
#include "OstrelLog.h"
#include "PlannerEvent.h"
#include "PlannerState.h"
#include "ReplyLogSink.h"
#include "RunRecord.h"

namespace vendor::brevane::hardware::ostrel::core {

constexpr const char* kFsmLogTag = "ostrel.core.fsm";
constexpr const char* kExecutorPath = "/vendor/bin/kelbrun";
constexpr const char* kExecutorDir = "/data/vendor/qav/kelbrun";
constexpr const char* kExecutorLogFile = "/data/vendor/qav/kelbrun/kelbrun_log.txt";
constexpr const char* kPlanDataDir = "/data/vendor/qav/data";
constexpr const char* kHistoryCopy = "/data/vendor/qav/data/db_history";
constexpr const char* FSM_RESULT_DIR = "/data/vendor/qav/results";
constexpr const char* kShortHistoryPath = "/data/fyr_exp/db_history";
constexpr const char* kLongHistoryPath = "/data/vendor/brvlog/fyr_exp/db_history";
constexpr int kTickSeconds = 10;
// A missing crash-history file is looked for again this often.
constexpr std::chrono::milliseconds kHistoryRetry{1000};
// How long the end of a run waits for its history monitor before leaving it behind.
constexpr std::chrono::milliseconds kMonitorJoinBound{500};

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
    // What the monitor of one run watches: set up before the executor starts, so
    // that a line written in the executor's first moments is not missed.
    struct HistoryWatch {
        struct File {
            const char* path;
            int wd;
            bool readableAtStart;
            bool ignored;  // not a regular file: reported once, never read
        };
        int fd;      // the inotify instance, -1 when there is none
        int wakeFd;  // readable once the run has ended
        File files[2];
    };
    HistoryWatch watchDBHistory();
    void monitorDBHistoryThread(HistoryWatch watch, uint32_t run);
    std::string getLastLine(std::string path);
    bool appendLastLine(std::string path);
    bool saveDBHistory(char* hisfilename);
    // A descriptor of |path| if it is a regular file, opened without blocking;
    // -1 when it cannot be opened, kNotRegular for a FIFO, device or directory.
    static constexpr int kNotRegular = -2;
    static int openRegular(const char* path);

    // The configuration list as JSON text (malloc'd; the caller frees it), or null.
    char* getConfig();

    // Thread bodies; |run| is the run generation the thread belongs to.
    void tickThread(uint32_t run);

    template <typename... Args>
    void error(const char* fmt, Args... args) {
        formatDiagnostic(kFsmLogTag, __FILE__, fmt, args...);
    }
    void error(const char* message) { formatDiagnostic(kFsmLogTag, __FILE__, "%s", message); }

    // Views for tests and tools.
    OstrelFSMData& planStore() { return data; }
    RunRecord& runRecord() { return record; }
    int32_t executorPid() const { return executorProcessId.load(); }
    bool threadsAreRunning() const { return threadsRunning.load(); }
    // The clock used for result names; tests replace it to name a result at a
    // given moment or with no clock at all.
    void setTimeSource(time_t (*source)(time_t*)) { timeSource = source; }
    // The tick thread's period and the monitor's retry for a missing file; tests
    // shorten them. A tick still counts kTickSeconds.
    void setRunTimings(std::chrono::milliseconds tick, std::chrono::milliseconds retry) {
        tickPeriod = tick;
        historyRetry = retry;
    }

  private:
    struct EndedThread {
        std::thread* thread;
        int wakeFd;  // closed once the thread is joined; -1 for none
        bool monitor;
        uint32_t run;
        std::shared_future<void> done;  // a monitor's: ready once its body returned
        bool leftBehind;                // a monitor that did not stop within the bound
    };
    // Outermost-event bookkeeping: writes are held for the whole event; a monitor
    // of a run that ended is joined before the event lock is released (it never
    // takes it), a tick thread after.
    void enterEvent();
    void leaveEvent(std::vector<EndedThread>* ended);
    void joinEndedThreads(std::vector<EndedThread>& ended);
    // Joins an ended run's monitor within kMonitorJoinBound, or leaves it behind
    // (it may no longer append) to be joined once it has stopped.
    void joinOrLeaveMonitors(std::vector<EndedThread>& monitors);
    // Reaps, without blocking, the supervisors of ended or replaced executors.
    void reapEndedSupervisors();
    bool dispatch(PlannerEvent event, char* input, int value, long buf_fp);
    // Wakes the current run's threads and hands them over to be joined.
    void stopRunThreads();
    // Waits one tick period; false once run |run| has ended.
    bool waitForTick(uint32_t run);
    bool runIsCurrent(uint32_t run) const { return runGeneration.load() == run; }
    void terminateExecutorGroup();
    // Appends the last line of |file| to the copy for the monitor of run |run|: the
    // line is read first, the copy written under the history lock; a file that is
    // not a regular file is reported once and never read.
    void appendForRun(HistoryWatch::File& file, uint32_t run);
    // The last line of the crash-history file open at |fd| (named |path|).
    std::string lastLineOf(int fd, const char* path);

    ReplyLogSink* owner;
    OstrelFSMData data;
    RunRecord record;
    // The supervisor's process id, which is also the run's process-group id;
    // -1 once the group was terminated, 0 before any run in this process.
    std::atomic<int32_t> executorProcessId;
    std::thread* tickThreadHandle;
    std::thread* monitorThreadHandle;
    std::atomic<bool> threadsRunning;
    // Serialises events from the binder thread and the tick thread; follow-on
    // events re-enter on the same thread.
    std::recursive_mutex eventMutex;
    int eventDepth = 0;
    time_t (*timeSource)(time_t*) = ::time;

    // The run the threads belong to: advanced when a run's threads are stopped.
    // A thread acts only while the generation is the one it was started with.
    std::atomic<uint32_t> runGeneration{0};
    std::mutex wakeMutex;
    std::condition_variable tickWake;
    int monitorWakeFd = -1;
    std::shared_future<void> monitorDone;
    // Serialises appends to the history copy with its reset at a run start.
    std::mutex historyMutex;
    // Monitors of runs below this one were left behind and may not append.
    std::atomic<uint32_t> monitorFloor{0};
    // Supervisors that ended their run (or were replaced) and are not reaped yet.
    std::vector<pid_t> unreapedSupervisors;
    std::vector<EndedThread> endedThreads;
    std::chrono::milliseconds tickPeriod{std::chrono::seconds(kTickSeconds)};
    std::chrono::milliseconds historyRetry{kHistoryRetry};
};

}  // namespace vendor::brevane::hardware::ostrel::core
