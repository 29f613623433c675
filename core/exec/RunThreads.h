// The threads of a run: the tick thread and the crash-history monitor, whose
// bodies the owner gives. They belong to the run they were started for: ending a
// run advances the run generation, wakes both and hands them over to be joined,
// and a thread acts only while its generation is the current one. The monitor of
// an ended run is joined within a bound, or left behind (its run is retired, so
// it may no longer append) and joined once it has stopped; a tick thread, which
// may be waiting for its owner's event lock, is joined after that lock is left.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <future>
#include <mutex>
#include <thread>
#include <vector>

#include "OstrelLog.h"

namespace vendor::brevane::hardware::ostrel::core {

// How long the end of a run waits for its history monitor before leaving it behind.
constexpr std::chrono::milliseconds kMonitorJoinBound{500};

class RunThreads {
  public:
    using TickBody = std::function<void(uint32_t run)>;
    // |wakeFd| becomes readable once the run has ended; -1 when there is none.
    using MonitorBody = std::function<void(uint32_t run, int wakeFd)>;
    // Told the run of a monitor that is left behind.
    using Retire = std::function<void(uint32_t run)>;

    // A thread of an ended run, to be joined.
    struct Ended {
        std::thread* thread;
        int wakeFd;  // closed once the thread is joined; -1 for none
        bool monitor;
        uint32_t run;
        std::shared_future<void> done;  // a monitor's: ready once its body returned
        bool leftBehind;                // a monitor that did not stop within the bound
    };

    RunThreads(Diagnostics log, std::chrono::milliseconds tickPeriod, Retire retire)
        : log(log), tickPeriod(tickPeriod), retire(std::move(retire)) {}

    // The generation of the run to come or in progress.
    uint32_t current() const { return generation.load(); }
    bool isCurrent(uint32_t run) const { return generation.load() == run; }
    // The threads-running flag: true from a start until the run's end.
    bool running() const { return threadsRunning.load(); }
    void setTickPeriod(std::chrono::milliseconds period) { tickPeriod = period; }

    // Starts the current run's threads.
    void start(TickBody tick, MonitorBody monitor);
    // Ends the current run's threads: wakes them and keeps them to be joined.
    void stop();
    // Waits one tick period; false once run |run| has ended.
    bool waitForTick(uint32_t run);
    // At the end of the owner's outermost event, on thread |self|: joins the
    // monitors of ended runs (or leaves them behind), and moves the tick threads
    // that may be joined once the event lock is left to |afterLock|. A thread is
    // never handed out to itself.
    void settle(std::thread::id self, std::vector<Ended>* afterLock);
    // Every ended thread, for an owner that goes.
    std::vector<Ended> takeAll();
    static void join(std::vector<Ended>& ended);

  private:
    void joinOrLeaveMonitors(std::vector<Ended>& monitors);

    Diagnostics log;
    std::chrono::milliseconds tickPeriod;
    Retire retire;
    std::thread* tickThread = nullptr;
    std::thread* monitorThread = nullptr;
    std::atomic<bool> threadsRunning{false};
    // Advanced when a run's threads are stopped.
    std::atomic<uint32_t> generation{0};
    std::mutex wakeMutex;
    std::condition_variable tickWake;
    int monitorWakeFd = -1;
    std::shared_future<void> monitorDone;
    std::vector<Ended> ended;
};

}  // namespace vendor::brevane::hardware::ostrel::core
