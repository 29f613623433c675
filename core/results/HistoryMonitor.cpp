#include "HistoryMonitor.h"

#include <sys/inotify.h>
#include <sys/select.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "LastLine.h"
#include "RegularFile.h"
#include "ResultLayout.h"

namespace vendor::brevane::hardware::ostrel::core {

namespace {

constexpr uint32_t kWatchMask = IN_MODIFY | IN_DELETE_SELF | IN_MOVE_SELF;
constexpr uint32_t kSkippedEvents = IN_DELETE_SELF | IN_MOVE_SELF | IN_IGNORED;
constexpr size_t kEventBufferSize = 1024;

struct timeval timeoutOf(std::chrono::milliseconds period) {
    return {static_cast<time_t>(period.count() / 1000), static_cast<suseconds_t>((period.count() % 1000) * 1000)};
}

}  // namespace

// Called before the executor starts: a file its first crash creates is then
// taken as new.
HistoryMonitor::Watch HistoryMonitor::watch() {
    Watch watch = {-1,
                   -1,
                   {{kShortHistoryPath, -1, access(kShortHistoryPath, R_OK) == 0, false},
                    {kLongHistoryPath, -1, access(kLongHistoryPath, R_OK) == 0, false}}};
    watch.fd = inotify_init1(IN_CLOEXEC);
    if (watch.fd < 0) {
        int err = errno;
        log.error("ostrel: inotify_init (errno:%d, %s)\n", err, strerror(err));
        return watch;
    }
    for (Watch::File& f : watch.files) {
        if (!f.readableAtStart) continue;
        f.wd = inotify_add_watch(watch.fd, f.path, kWatchMask);
        if (f.wd == -1) {
            int err = errno;
            log.error("ostrel: inotify_add_watch %s (errno:%d, %s)\n", f.path, err, strerror(err));
        }
    }
    return watch;
}

void HistoryMonitor::startCopy() {
    std::lock_guard<std::mutex> lock(copyMutex);
    unlink(kHistoryCopy);
    if (FILE* fp = fopen(kHistoryCopy, "w")) fclose(fp);
}

void HistoryMonitor::retire(uint32_t run) {
    uint32_t current = floor.load();
    while (current <= run && !floor.compare_exchange_weak(current, run + 1)) {
    }
}

// Appends for the monitor's own run, also once the run has ended: a change read
// as the run ends is still the run's. The event that ends a run holds the event
// lock until the run's monitor is joined, so no later run can clear or move the
// copy meanwhile; a monitor that was left behind instead appends nothing more.
void HistoryMonitor::appendForRun(Watch::File& file, uint32_t run) {
    int fd = openRegular(file.path);
    if (fd == kNotRegular) {
        if (!file.ignored) log.error("ostrel: %s is not a regular file, ignored\n", file.path);
        file.ignored = true;
        return;
    }
    // Read before the lock, which a run start takes under the event lock: no
    // event waits on a crash-history file.
    std::string line;
    if (fd >= 0) {
        line = lastLineOf(fd, file.path);
        close(fd);
    }
    std::lock_guard<std::mutex> lock(copyMutex);
    if (run < floor.load()) return;
    copy(file.path, line);
}

// The end of the run wakes the thread through the watch's wake descriptor, and
// last passes take what the run left pending: a file that appeared and changes
// already queued. Every line written before the end is collected.
void HistoryMonitor::run(Watch watch, uint32_t run, const std::function<bool()>& live) {
    int wakeFd = watch.wakeFd;
    if (watch.fd < 0) return;
    char buf[kEventBufferSize];
    memset(buf, 0, sizeof(buf));
    Watch::File* files = watch.files;
    // One pass: watch what appeared, wait for events (not at all once the run has
    // ended), append for each change. True when events were read.
    auto pass = [&](bool ended) {
        for (Watch::File& f : watch.files) {
            if (f.wd != -1 || access(f.path, R_OK) != 0) continue;
            f.wd = inotify_add_watch(watch.fd, f.path, kWatchMask);
            if (f.wd == -1) {
                int err = errno;
                log.error("ostrel: inotify_add_watch %s (errno:%d, %s)\n", f.path, err, strerror(err));
            }
            // A file that appeared during the run holds a new crash already.
            // While its watch keeps failing this is repeated on every pass.
            if (!f.readableAtStart) appendForRun(f, run);
        }
        // A missing file is looked for again every retry period.
        bool bothWatched = files[0].wd != -1 && files[1].wd != -1;
        struct timeval timeout = ended ? timeoutOf(std::chrono::milliseconds(0))
                                       : timeoutOf(bothWatched ? kHistoryWait : retry);
        fd_set readSet;
        FD_ZERO(&readSet);
        FD_SET(watch.fd, &readSet);
        if (wakeFd >= 0 && !ended) FD_SET(wakeFd, &readSet);
        int ready = select(std::max(watch.fd, wakeFd) + 1, &readSet, nullptr, nullptr, &timeout);
        if (ready < 1 || !FD_ISSET(watch.fd, &readSet)) return false;

        ssize_t n = read(watch.fd, buf, sizeof(buf) - 1);
        for (ssize_t off = 0; n >= 1 && off < n;) {
            struct inotify_event event;
            memcpy(&event, buf + off, sizeof(event));
            off += sizeof(struct inotify_event) + event.len;
            if (event.mask & kSkippedEvents) continue;
            if (event.wd == files[0].wd) {
                appendForRun(files[0], run);
            } else if (event.wd == files[1].wd) {
                appendForRun(files[1], run);
            }
        }
        memset(buf, 0, sizeof(buf));
        return n >= 1;
    };
    while (live()) pass(false);
    // The run has ended: what it left queued is still its own.
    while (pass(true)) {
    }

    for (Watch::File& f : watch.files) {
        if (f.wd >= 1) inotify_rm_watch(watch.fd, f.wd);
    }
    close(watch.fd);
}

std::string HistoryMonitor::lastLine(const char* path) {
    int fd = openRegular(path);
    if (fd < 0) return "";
    std::string line = lastLineOf(fd, path);
    close(fd);
    return line;
}

// Only the end of the file is read (see readLastLine); a line cut to its final
// bytes is reported once.
std::string HistoryMonitor::lastLineOf(int fd, const char* path) {
    LastLine last = readLastLine(fd);
    if (last.cut) {
        log.error("ostrel: last line of %s is longer than %zu bytes, cut to its last %zu bytes\n", path,
                  kLastLineBound, last.text.size());
    }
    return std::move(last.text);
}

}  // namespace vendor::brevane::hardware::ostrel::core
