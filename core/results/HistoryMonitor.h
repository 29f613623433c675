// The crash-history monitor: while a run lives, every change of the device's
// crash-history files hands their last line to the owner's history copy. The
// files present before the executor starts are noted first (watch), so that a
// file that the executor's first crash creates is taken as new; the run's
// monitor thread then runs run() until its run has ended and what the run left
// queued is taken. A run's start and its late monitors meet at the copy's lock:
// a monitor that was left behind (retire) appends nothing more.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>

#include "OstrelLog.h"

namespace vendor::brevane::hardware::ostrel::core {

constexpr const char* kShortHistoryPath = "/data/fyr_exp/db_history";
constexpr const char* kLongHistoryPath = "/data/vendor/brvlog/fyr_exp/db_history";
// How long a pass waits for a change while both files are watched.
constexpr std::chrono::seconds kHistoryWait{10};
// A missing crash-history file is looked for again this often.
constexpr std::chrono::milliseconds kHistoryRetry{1000};

class HistoryMonitor {
  public:
    // Writes |line|, the last line of the file at |path| read just now, to the
    // history copy; called with the copy's lock held.
    using CopyWriter = std::function<void(const char* path, std::string& line)>;

    // What the monitor of one run watches: set up before the executor starts.
    struct Watch {
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

    // Lines go out through |log|, copies through |copy|.
    HistoryMonitor(Diagnostics log, CopyWriter copy) : log(log), copy(std::move(copy)) {}

    // Notes which files exist and watches them.
    Watch watch();
    // The body of run |run|'s monitor thread: takes changes while |live| holds,
    // then what the run left pending, and closes the watch.
    void run(Watch watch, uint32_t run, const std::function<bool()>& live);
    // The last line of the crash-history file at |path|, "" when it cannot be read
    // or is no regular file.
    std::string lastLine(const char* path);

    // Empties the history copy for a new run.
    void startCopy();
    // The monitors of runs up to |run| append nothing more.
    void retire(uint32_t run);
    void setRetry(std::chrono::milliseconds period) { retry = period; }

  private:
    void appendForRun(Watch::File& file, uint32_t run);
    std::string lastLineOf(int fd, const char* path);

    Diagnostics log;
    CopyWriter copy;
    std::chrono::milliseconds retry{kHistoryRetry};
    // Serialises appends to the history copy with its reset at a run start.
    std::mutex copyMutex;
    // Monitors of runs below this one were left behind and may not append.
    std::atomic<uint32_t> floor{0};
};

}  // namespace vendor::brevane::hardware::ostrel::core
