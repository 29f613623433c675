// Construction, dispatch, the IDLE handler and the tick thread.
#include "OstrelFSM.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>

namespace vendor::brevane::hardware::ostrel::core {

const char* const kStateNames[4] = {"IDLE", "PREPARING", "RUNNING", "COMPLETING"};

OstrelFSM::OstrelFSM(Ostrel* owner)
    : owner(owner),
      data(),
      executorProcessId(0),
      tickThreadHandle(nullptr),
      monitorThreadHandle(nullptr),
      threadsRunning(false) {
    // Seeds the generator behind the result names used when the clock is unset;
    // without a clock the fixed seed makes those names repeat across starts.
    time_t now = time(nullptr);
    srandom(now == static_cast<time_t>(-1) ? 0xCAFEBABAu : static_cast<unsigned>(now));
}

PlannerFSMState OstrelFSM::getState() {
    std::lock_guard<std::recursive_mutex> lock(eventMutex);
    return data.getState();
}

// |data| (the installTesters array) is read by no handler.
bool OstrelFSM::sendEvent(PlannerEvent event, char* input, char* /*data*/, int value, long buf_fp) {
    std::lock_guard<std::recursive_mutex> lock(eventMutex);
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

void OstrelFSM::tickThread() {
    while (threadsRunning.load()) {
        sleep(kTickSeconds);
        sendEvent(TICK, nullptr, nullptr, kTickSeconds, 0);
        int status = 0;
        pid_t pid = waitpid(-1, &status, WNOHANG);
        // Other children reaped here are dropped on purpose.
        int32_t executor = executorProcessId.load();
        if (executor >= 1 && pid == executor) {
            error("ostrel: send finished event, process : %d, status : 0x%04X", pid, status);
            sendEvent(RUN_FINISHED, nullptr, nullptr, 0, 0);
        }
    }
}

}  // namespace vendor::brevane::hardware::ostrel::core
