// Construction, dispatch, the IDLE handler and the tick thread's body.
#include "OstrelFSM.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <thread>

namespace vendor::brevane::hardware::ostrel::core {

OstrelFSM::OstrelFSM(ReplyLogSink* owner)
    : owner(owner),
      data(),
      record(),
      executorProcessId(0),
      executors(diagnostics()),
      history(diagnostics(), [this](const char* path, std::string& line) { appendReadLine(path, line); }),
      threads(diagnostics(), std::chrono::seconds(kTickSeconds), [this](uint32_t run) { history.retire(run); }) {
    // Seeds the generator behind the result names used when the clock is unset;
    // without a clock the fixed seed makes those names repeat across starts.
    time_t now = time(nullptr);
    srandom(now == static_cast<time_t>(-1) ? 0xCAFEBABAu : static_cast<unsigned>(now));
    // The record is written before the plan; what a kill left it ahead of is marked.
    record.reconcile(data.getRunStart(), data.getRunFinished(), bootRoundsCounted());
}

OstrelFSM::~OstrelFSM() {
    std::vector<RunThreads::Ended> ended;
    {
        std::lock_guard<std::recursive_mutex> lock(eventMutex);
        threads.stop();
        ended = threads.takeAll();
    }
    RunThreads::join(ended);
}

PlannerFSMState OstrelFSM::getState() {
    std::lock_guard<std::recursive_mutex> lock(eventMutex);
    return data.getState();
}

bool OstrelFSM::sendEvent(PlannerEvent event, char* input, char* /*data*/, int value, long buf_fp) {
    std::vector<RunThreads::Ended> ended;
    bool result;
    {
        std::lock_guard<std::recursive_mutex> lock(eventMutex);
        enterEvent();
        result = dispatch(event, input, value, buf_fp);
        leaveEvent(&ended);
    }
    RunThreads::join(ended);
    return result;
}

void OstrelFSM::enterEvent() {
    eventDepth++;
    data.holdWrites();
}

// At the end of the outermost event the plan is written once (after the run
// record's lines of the event), ended supervisors are reaped, and the threads of
// an ended run are settled: monitors joined at once (within a bound), tick
// threads, which may be waiting for the event lock, handed out to be joined after
// it is released. A thread never joins itself: it ends by itself and a later
// event joins it.
void OstrelFSM::leaveEvent(std::vector<RunThreads::Ended>* ended) {
    data.releaseWrites();
    if (--eventDepth > 0) return;
    reapEndedSupervisors();
    record.commit();
    threads.settle(std::this_thread::get_id(), ended);
}

void OstrelFSM::reapEndedSupervisors() {
    executors.reapRetired([this](pid_t supervisor) { record.executorReaped(supervisor); });
}

// |data| (the installTesters array) is read by no handler.
bool OstrelFSM::dispatch(PlannerEvent event, char* input, int value, long buf_fp) {
    int8_t state = static_cast<int8_t>(data.getState());
    switch (state) {
        case IDLE:
            return idle(event, nullptr, nullptr, 0, 0);
        case PREPARING:
            return preparing(event, input, nullptr, 0, buf_fp);
        case RUNNING:
            return running(event, nullptr, nullptr, value, buf_fp);
        case COMPLETING:
            return completing(event, nullptr, nullptr, 0, buf_fp);
        default:
            // The store never reads such a value; repair it all the same.
            data.setState(IDLE);
            return idle(event, nullptr, nullptr, 0, 0);
    }
}

bool OstrelFSM::idle(PlannerEvent event, char*, char*, int, long) {
    if (data.getState() != IDLE) return false;
    if (event != BOOT_COMPLETED) return true;
    // No follow-on event: the new state acts from the next event on.
    if (!data.getRunStart()) {
        data.setState(PREPARING);
    } else if (!data.getRunFinished()) {
        data.setState(RUNNING);
    } else {
        data.setState(COMPLETING);
    }
    return true;
}

// One TICK per period, then a reap of every child that has ended; the run's end
// is sent when one of them is the current executor's supervisor. Both happen
// under the event lock and only while the thread's run is the current one, so a
// thread of an ended run never counts a tick or reaps the next run's supervisor,
// and a child of an earlier run never delays the current run's end.
void OstrelFSM::tickThread(uint32_t run) {
    while (threads.waitForTick(run)) {
        std::vector<RunThreads::Ended> ended;
        {
            std::lock_guard<std::recursive_mutex> lock(eventMutex);
            if (!threads.isCurrent(run)) break;
            enterEvent();
            sendEvent(TICK, nullptr, nullptr, kTickSeconds, 0);
            int status = 0;
            pid_t pid;
            while ((pid = waitpid(-1, &status, WNOHANG)) > 0) {
                executors.forget(pid);
                record.executorReaped(pid);
                // Other children reaped here are dropped on purpose.
                int32_t executor = executorProcessId.load();
                if (executor >= 1 && pid == executor) {
                    error("ostrel: send finished event, process : %d, status : 0x%04X", pid, status);
                    record.runEnded("executor");
                    sendEvent(RUN_FINISHED, nullptr, nullptr, 0, 0);
                }
                status = 0;
            }
            leaveEvent(&ended);
        }
        RunThreads::join(ended);
    }
}

}  // namespace vendor::brevane::hardware::ostrel::core
