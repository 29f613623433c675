// The planner's state machine: dispatch of events to the handler of the persisted
// state, the tick thread, progress accounting, the test-case runner and executor
// launcher, the result archive and the crash-history monitor. Members are defined
// in the OstrelFSM*.cpp files named after what they do.
#pragma once

#include <sys/types.h>
#include <ziparchive/zip_writer.h>

#include <atomic>
#include <ctime>
#include <mutex>
#include <string>
#include <thread>

#include "OstrelFSMData.h"
#include "OstrelLog.h"
#include "PlannerTypes.h"

namespace vendor {
namespace brevane {
namespace hardware {
namespace ostrel {
namespace V2_0 {
namespace implementation {
struct Ostrel;
}  // namespace implementation
}  // namespace V2_0

namespace core {

using V2_0::implementation::Ostrel;

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

class OstrelFSM {
  public:
    explicit OstrelFSM(Ostrel* owner);
    // Leaves the threads, the executor and the persisted state as they are.
    ~OstrelFSM() = default;

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
    bool resetRunningTestcasesTick();

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
    void monitorDBHistoryThread();
    std::string getLastLine(std::string path);
    bool appendLastLine(std::string path);
    bool saveDBHistory(char* hisfilename);

    // The configuration list as JSON text (malloc'd; the caller frees it), or null.
    char* getConfig();

    // Thread bodies.
    void tickThread();

    template <typename... Args>
    void error(const char* fmt, Args... args) {
        formatDiagnostic(kFsmLogTag, __FILE__, fmt, args...);
    }
    void error(const char* message) { formatDiagnostic(kFsmLogTag, __FILE__, "%s", message); }

    // Views for tests and tools.
    OstrelFSMData& planStore() { return data; }
    int32_t executorPid() const { return executorProcessId.load(); }
    bool threadsAreRunning() const { return threadsRunning.load(); }
    // The clock used for result names; tests replace it to name a result at a
    // given moment or with no clock at all.
    void setTimeSource(time_t (*source)(time_t*)) { timeSource = source; }

  private:
    Ostrel* owner;
    OstrelFSMData data;
    // The supervisor's process id, which is also the run's process-group id;
    // -1 once the group was terminated, 0 before any run in this process.
    std::atomic<int32_t> executorProcessId;
    std::thread* tickThreadHandle;
    std::thread* monitorThreadHandle;
    std::atomic<bool> threadsRunning;
    // Serialises events from the binder thread and the tick thread; follow-on
    // events re-enter on the same thread.
    std::recursive_mutex eventMutex;
    time_t (*timeSource)(time_t*) = ::time;
};

}  // namespace core
}  // namespace ostrel
}  // namespace hardware
}  // namespace brevane
}  // namespace vendor
