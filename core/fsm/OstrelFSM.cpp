// Construction, dispatch, the IDLE handler and the tick thread.
#include "OstrelFSM.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace vendor::brevane::hardware::ostrel::core {

OstrelFSM::OstrelFSM(ReplyLogSink* owner)
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

OstrelFSM::~OstrelFSM() {
    std::vector<EndedThread> ended;
    {
        std::lock_guard<std::recursive_mutex> lock(eventMutex);
        stopRunThreads();
        ended.swap(endedThreads);
    }
    joinEndedThreads(ended);
}

PlannerFSMState OstrelFSM::getState() {
    std::lock_guard<std::recursive_mutex> lock(eventMutex);
    return data.getState();
}

bool OstrelFSM::sendEvent(PlannerEvent event, char* input, char* /*data*/, int value, long buf_fp) {
    std::vector<EndedThread> ended;
    bool result;
    {
        std::lock_guard<std::recursive_mutex> lock(eventMutex);
        enterEvent();
        result = dispatch(event, input, value, buf_fp);
        leaveEvent(&ended);
    }
    joinEndedThreads(ended);
    return result;
}

void OstrelFSM::enterEvent() {
    eventDepth++;
    data.holdWrites();
}

// At the end of the outermost event the plan is written once, and the threads
// of an ended run are joined: monitors at once, so that their last passes end
// before another event can clear or move the history copy; tick threads, which
// may be waiting for the event lock, are handed out to be joined after it is
// released. A thread never joins itself: it ends by itself and a later event
// joins it.
void OstrelFSM::leaveEvent(std::vector<EndedThread>* ended) {
    data.releaseWrites();
    if (--eventDepth > 0) return;
    std::thread::id self = std::this_thread::get_id();
    std::vector<EndedThread> monitors;
    for (auto it = endedThreads.begin(); it != endedThreads.end();) {
        if (it->thread->get_id() == self) {
            ++it;
            continue;
        }
        (it->monitor ? monitors : *ended).push_back(*it);
        it = endedThreads.erase(it);
    }
    joinEndedThreads(monitors);
}

void OstrelFSM::joinEndedThreads(std::vector<EndedThread>& ended) {
    for (EndedThread& t : ended) {
        t.thread->join();
        delete t.thread;
        if (t.wakeFd >= 0) close(t.wakeFd);
    }
    ended.clear();
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

bool OstrelFSM::waitForTick(uint32_t run) {
    std::unique_lock<std::mutex> lock(wakeMutex);
    return !tickWake.wait_for(lock, tickPeriod, [&] { return !runIsCurrent(run); });
}

// One TICK per period, then a reap of any ended child; the run's end is sent
// when the reaped child is the executor's supervisor. Both happen under the
// event lock and only while the thread's run is the current one, so a thread of
// an ended run never counts a tick or reaps the next run's supervisor.
void OstrelFSM::tickThread(uint32_t run) {
    while (waitForTick(run)) {
        std::vector<EndedThread> ended;
        {
            std::lock_guard<std::recursive_mutex> lock(eventMutex);
            if (!runIsCurrent(run)) break;
            enterEvent();
            sendEvent(TICK, nullptr, nullptr, kTickSeconds, 0);
            int status = 0;
            pid_t pid = waitpid(-1, &status, WNOHANG);
            // Other children reaped here are dropped on purpose.
            int32_t executor = executorProcessId.load();
            if (executor >= 1 && pid == executor) {
                error("ostrel: send finished event, process : %d, status : 0x%04X", pid, status);
                sendEvent(RUN_FINISHED, nullptr, nullptr, 0, 0);
            }
            leaveEvent(&ended);
        }
        joinEndedThreads(ended);
    }
}

void OstrelFSM::stopRunThreads() {
    if (tickThreadHandle == nullptr) return;
    threadsRunning.store(false);
    {
        std::lock_guard<std::mutex> lock(wakeMutex);
        runGeneration.fetch_add(1);
    }
    tickWake.notify_all();
    if (monitorWakeFd >= 0) {
        uint64_t one = 1;
        if (write(monitorWakeFd, &one, sizeof(one)) != sizeof(one)) {
            int err = errno;
            error("ostrel: wake monitor (errno:%d, %s)\n", err, strerror(err));
        }
    }
    endedThreads.push_back({tickThreadHandle, -1, false});
    if (monitorThreadHandle != nullptr) {
        endedThreads.push_back({monitorThreadHandle, monitorWakeFd, true});
    }
    tickThreadHandle = nullptr;
    monitorThreadHandle = nullptr;
    monitorWakeFd = -1;
}

}  // namespace vendor::brevane::hardware::ostrel::core
