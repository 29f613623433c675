// Construction, dispatch, the IDLE handler and the tick thread.
#include "OstrelFSM.h"

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace vendor::brevane::hardware::ostrel::core {

OstrelFSM::OstrelFSM(ReplyLogSink* owner)
    : owner(owner),
      data(),
      record(),
      executorProcessId(0),
      tickThreadHandle(nullptr),
      monitorThreadHandle(nullptr),
      threadsRunning(false) {
    // Seeds the generator behind the result names used when the clock is unset;
    // without a clock the fixed seed makes those names repeat across starts.
    time_t now = time(nullptr);
    srandom(now == static_cast<time_t>(-1) ? 0xCAFEBABAu : static_cast<unsigned>(now));
    // The record is written before the plan; what a kill left it ahead of is marked.
    record.reconcile(data.getRunStart(), data.getRunFinished(), bootRoundsCounted());
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

// At the end of the outermost event the plan is written once (after the run
// record's lines of the event), ended supervisors are reaped, and the threads of an ended run are joined: monitors
// at once (within a bound), so that their last passes end before another event
// can clear or move the history copy; tick threads, which may be waiting for the
// event lock, are handed out to be joined after it is released. A thread never
// joins itself: it ends by itself and a later event joins it.
void OstrelFSM::leaveEvent(std::vector<EndedThread>* ended) {
    data.releaseWrites();
    if (--eventDepth > 0) return;
    reapEndedSupervisors();
    record.commit();
    std::thread::id self = std::this_thread::get_id();
    std::vector<EndedThread> monitors;
    for (auto it = endedThreads.begin(); it != endedThreads.end();) {
        bool stillRunning = it->leftBehind && it->done.wait_for(std::chrono::seconds(0)) !=
                                                      std::future_status::ready;
        if (it->thread->get_id() == self || stillRunning) {
            ++it;
            continue;
        }
        (it->monitor ? monitors : *ended).push_back(std::move(*it));
        it = endedThreads.erase(it);
    }
    joinOrLeaveMonitors(monitors);
}

// A monitor left behind is handed here only once it has stopped.
void OstrelFSM::joinOrLeaveMonitors(std::vector<EndedThread>& monitors) {
    std::vector<EndedThread> stopped;
    for (EndedThread& t : monitors) {
        if (t.leftBehind || t.done.wait_for(kMonitorJoinBound) == std::future_status::ready) {
            stopped.push_back(std::move(t));
            continue;
        }
        // Blocked in a file: it may no longer append, and is joined once it stops.
        uint32_t floor = monitorFloor.load();
        while (floor <= t.run && !monitorFloor.compare_exchange_weak(floor, t.run + 1)) {
        }
        error("ostrel: history monitor of run %d did not stop, left behind", static_cast<int>(t.run));
        t.leftBehind = true;
        endedThreads.push_back(std::move(t));
    }
    monitors.clear();
    joinEndedThreads(stopped);
}

void OstrelFSM::joinEndedThreads(std::vector<EndedThread>& ended) {
    for (EndedThread& t : ended) {
        t.thread->join();
        delete t.thread;
        if (t.wakeFd >= 0) close(t.wakeFd);
    }
    ended.clear();
}

void OstrelFSM::reapEndedSupervisors() {
    for (auto it = unreapedSupervisors.begin(); it != unreapedSupervisors.end();) {
        int status = 0;
        pid_t reaped = waitpid(*it, &status, WNOHANG);
        if (reaped == 0) {
            ++it;  // not ended yet: a later event or tick reaps it
        } else {
            if (reaped == *it) record.executorReaped(reaped);
            it = unreapedSupervisors.erase(it);
        }
    }
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

// One TICK per period, then a reap of every child that has ended; the run's end
// is sent when one of them is the current executor's supervisor. Both happen
// under the event lock and only while the thread's run is the current one, so a
// thread of an ended run never counts a tick or reaps the next run's supervisor,
// and a child of an earlier run never delays the current run's end.
void OstrelFSM::tickThread(uint32_t run) {
    while (waitForTick(run)) {
        std::vector<EndedThread> ended;
        {
            std::lock_guard<std::recursive_mutex> lock(eventMutex);
            if (!runIsCurrent(run)) break;
            enterEvent();
            sendEvent(TICK, nullptr, nullptr, kTickSeconds, 0);
            int status = 0;
            pid_t pid;
            while ((pid = waitpid(-1, &status, WNOHANG)) > 0) {
                auto& pending = unreapedSupervisors;
                pending.erase(std::remove(pending.begin(), pending.end(), pid), pending.end());
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
    uint32_t ended = runGeneration.load() - 1;
    endedThreads.push_back({tickThreadHandle, -1, false, ended, {}, false});
    if (monitorThreadHandle != nullptr) {
        endedThreads.push_back({monitorThreadHandle, monitorWakeFd, true, ended, monitorDone, false});
    }
    tickThreadHandle = nullptr;
    monitorThreadHandle = nullptr;
    monitorWakeFd = -1;
}

}  // namespace vendor::brevane::hardware::ostrel::core
