#include "RunThreads.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>

namespace vendor::brevane::hardware::ostrel::core {

void RunThreads::start(TickBody tick, MonitorBody monitor) {
    uint32_t run = generation.load();
    monitorWakeFd = eventfd(0, EFD_CLOEXEC);
    if (monitorWakeFd < 0) {
        int err = errno;
        log.error("ostrel: eventfd (errno:%d, %s)\n", err, strerror(err));
    }
    threadsRunning.store(true);
    tickThread = new std::thread(std::move(tick), run);
    auto done = std::make_shared<std::promise<void>>();
    monitorDone = done->get_future().share();
    monitorThread = new std::thread([monitor = std::move(monitor), run, wakeFd = monitorWakeFd, done] {
        monitor(run, wakeFd);
        done->set_value();
    });
}

void RunThreads::stop() {
    if (tickThread == nullptr) return;
    threadsRunning.store(false);
    {
        std::lock_guard<std::mutex> lock(wakeMutex);
        generation.fetch_add(1);
    }
    tickWake.notify_all();
    if (monitorWakeFd >= 0) {
        uint64_t one = 1;
        if (write(monitorWakeFd, &one, sizeof(one)) != sizeof(one)) {
            int err = errno;
            log.error("ostrel: wake monitor (errno:%d, %s)\n", err, strerror(err));
        }
    }
    uint32_t run = generation.load() - 1;
    ended.push_back({tickThread, -1, false, run, {}, false});
    if (monitorThread != nullptr) {
        ended.push_back({monitorThread, monitorWakeFd, true, run, monitorDone, false});
    }
    tickThread = nullptr;
    monitorThread = nullptr;
    monitorWakeFd = -1;
}

bool RunThreads::waitForTick(uint32_t run) {
    std::unique_lock<std::mutex> lock(wakeMutex);
    return !tickWake.wait_for(lock, tickPeriod, [&] { return !isCurrent(run); });
}

// Monitors are joined at once (within a bound), so that their last passes end
// before another event can clear or move the history copy.
void RunThreads::settle(std::thread::id self, std::vector<Ended>* afterLock) {
    std::vector<Ended> monitors;
    for (auto it = ended.begin(); it != ended.end();) {
        bool stillRunning =
            it->leftBehind && it->done.wait_for(std::chrono::seconds(0)) != std::future_status::ready;
        if (it->thread->get_id() == self || stillRunning) {
            ++it;
            continue;
        }
        (it->monitor ? monitors : *afterLock).push_back(std::move(*it));
        it = ended.erase(it);
    }
    joinOrLeaveMonitors(monitors);
}

// A monitor left behind is handed here only once it has stopped.
void RunThreads::joinOrLeaveMonitors(std::vector<Ended>& monitors) {
    std::vector<Ended> stopped;
    for (Ended& t : monitors) {
        if (t.leftBehind || t.done.wait_for(kMonitorJoinBound) == std::future_status::ready) {
            stopped.push_back(std::move(t));
            continue;
        }
        // Blocked in a file: it may no longer append, and is joined once it stops.
        retire(t.run);
        log.error("ostrel: history monitor of run %d did not stop, left behind", static_cast<int>(t.run));
        t.leftBehind = true;
        ended.push_back(std::move(t));
    }
    monitors.clear();
    join(stopped);
}

std::vector<RunThreads::Ended> RunThreads::takeAll() {
    std::vector<Ended> all;
    all.swap(ended);
    return all;
}

void RunThreads::join(std::vector<Ended>& threads) {
    for (Ended& t : threads) {
        t.thread->join();
        delete t.thread;
        if (t.wakeFd >= 0) close(t.wakeFd);
    }
    threads.clear();
}

}  // namespace vendor::brevane::hardware::ostrel::core
