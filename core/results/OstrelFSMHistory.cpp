// The crash-history monitor: while a run is active, every change of the device's
// crash-history files appends their last line to the run's history copy, which
// is moved beside the result archive at the end of the run.
#include <android/log.h>
#include <fcntl.h>
#include <sys/inotify.h>
#include <sys/select.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "LastLine.h"
#include "OstrelFSM.h"

namespace vendor::brevane::hardware::ostrel::core {

namespace {

constexpr uint32_t kWatchMask = IN_MODIFY | IN_DELETE_SELF | IN_MOVE_SELF;
constexpr uint32_t kSkippedEvents = IN_DELETE_SELF | IN_MOVE_SELF | IN_IGNORED;
constexpr size_t kEventBufferSize = 1024;

// The line that the monitor read ahead of the history lock, for the
// appendLastLine call it makes under the lock; null when appendLastLine reads the
// file itself. The copy is written by appendLastLine either way, so its checks
// report as that function's.
thread_local std::string* lineReadAhead = nullptr;
}  // namespace

// O_NONBLOCK: an ordinary open of a FIFO without a writer would block.
int OstrelFSM::openRegular(const char* path) {
    int fd = open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) return -1;
    struct stat st;
    if (fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
        close(fd);
        return kNotRegular;
    }
    return fd;
}

// Notes which crash-history files exist and watches them. Called before the
// executor starts: a file its first crash creates is then taken as new.
OstrelFSM::HistoryWatch OstrelFSM::watchDBHistory() {
    HistoryWatch watch = {-1,
                          -1,
                          {{kShortHistoryPath, -1, access(kShortHistoryPath, R_OK) == 0, false},
                           {kLongHistoryPath, -1, access(kLongHistoryPath, R_OK) == 0, false}}};
    watch.fd = inotify_init1(IN_CLOEXEC);
    if (watch.fd < 0) {
        int err = errno;
        error("ostrel: inotify_init (errno:%d, %s)\n", err, strerror(err));
        return watch;
    }
    for (HistoryWatch::File& f : watch.files) {
        if (!f.readableAtStart) continue;
        f.wd = inotify_add_watch(watch.fd, f.path, kWatchMask);
        if (f.wd == -1) {
            int err = errno;
            error("ostrel: inotify_add_watch %s (errno:%d, %s)\n", f.path, err, strerror(err));
        }
    }
    return watch;
}

// Appends for the monitor's own run, also once the run has ended: a change read
// as the run ends is still the run's. The event that ends a run holds the event
// lock until the run's monitor is joined, so no later run can clear or move the
// copy meanwhile; a monitor that was left behind instead appends nothing more.
void OstrelFSM::appendForRun(HistoryWatch::File& file, uint32_t run) {
    int fd = openRegular(file.path);
    if (fd == kNotRegular) {
        if (!file.ignored) error("ostrel: %s is not a regular file, ignored\n", file.path);
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
    std::lock_guard<std::mutex> lock(historyMutex);
    if (run < monitorFloor.load()) return;
    lineReadAhead = &line;
    appendLastLine(file.path);
    lineReadAhead = nullptr;
}

// Runs until run |run| ends; the end of the run wakes it through its wake
// descriptor, and last passes take what the run left pending: a file that
// appeared and changes already queued. Every line written before the end is
// collected.
void OstrelFSM::monitorDBHistoryThread(HistoryWatch watch, uint32_t run) {
    int wakeFd = watch.wakeFd;
    if (watch.fd < 0) return;
    char buf[kEventBufferSize];
    memset(buf, 0, sizeof(buf));
    HistoryWatch::File* files = watch.files;
    // One pass: watch what appeared, wait for events (not at all once the run has
    // ended), append for each change. True when events were read.
    auto pass = [&](bool ended) {
        for (HistoryWatch::File& f : watch.files) {
            if (f.wd != -1 || access(f.path, R_OK) != 0) continue;
            f.wd = inotify_add_watch(watch.fd, f.path, kWatchMask);
            if (f.wd == -1) {
                int err = errno;
                error("ostrel: inotify_add_watch %s (errno:%d, %s)\n", f.path, err,
                      strerror(err));
            }
            // A file that appeared during the run holds a new crash already.
            // While its watch keeps failing this is repeated on every pass.
            if (!f.readableAtStart) appendForRun(f, run);
        }
        // A missing file is looked for again every retry period.
        bool bothWatched = files[0].wd != -1 && files[1].wd != -1;
        struct timeval timeout = {kTickSeconds, 0};
        if (ended) {
            timeout = {0, 0};
        } else if (!bothWatched) {
            timeout.tv_sec = historyRetry.count() / 1000;
            timeout.tv_usec = (historyRetry.count() % 1000) * 1000;
        }
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
    while (runIsCurrent(run)) pass(false);
    // The run has ended: what it left queued is still its own.
    while (pass(true)) {
    }

    for (HistoryWatch::File& f : watch.files) {
        if (f.wd >= 1) inotify_rm_watch(watch.fd, f.wd);
    }
    close(watch.fd);
}

std::string OstrelFSM::getLastLine(std::string path) {
    int fd = openRegular(path.c_str());
    if (fd < 0) return "";
    std::string line = lastLineOf(fd, path.c_str());
    close(fd);
    return line;
}

// Only the end of the file is read (see readLastLine); a line cut to its final
// bytes is reported once.
std::string OstrelFSM::lastLineOf(int fd, const char* path) {
    LastLine last = readLastLine(fd);
    if (last.cut) {
        error("ostrel: last line of %s is longer than %zu bytes, cut to its last %zu bytes\n", path,
              kLastLineBound, last.text.size());
    }
    return std::move(last.text);
}

bool OstrelFSM::appendLastLine(std::string path) {
    FILE* fp = fopen(kHistoryCopy, "ab");
    if (fp == nullptr) {
        int err = errno;
        error("ostrel: open %s (errno:%d, %s)\n", kHistoryCopy, err, strerror(err));
        return false;
    }
    OSTREL_CHECK(fseek(fp, 0, SEEK_END) != -1, "fseek(fp, 0, SEEK_END) != -1", 97);
    std::string lastLine = lineReadAhead ? std::move(*lineReadAhead) : getLastLine(path);
    if (!lastLine.empty()) {
        OSTREL_CHECK(fputs(lastLine.c_str(), fp) != EOF, "fputs(lastLine.c_str(), fp) != EOF",
                     101);
        OSTREL_CHECK(fputc('\n', fp) != EOF, "fputc('\\n', fp) != EOF", 102);
    }
    if (ferror(fp)) error("ostrel: write %s \n", kHistoryCopy);
    OSTREL_CHECK(fclose(fp) == 0, "fclose(fp) == 0", 107);
    return true;
}

bool OstrelFSM::saveDBHistory(char* hisfilename) {
    if (rename(kHistoryCopy, hisfilename) != 0) {
        int err = errno;
        error("ostrel: rename %s to %s (errno:%d, %s)\n", kHistoryCopy, hisfilename, err,
              strerror(err));
        hisfilename[0] = '\0';
        return false;
    }
    if (chmod(hisfilename, 0664) == -1) {
        int err = errno;
        error("ostrel: chmod %s (errno:%d, %s)\n", hisfilename, err, strerror(err));
    }
    __android_log_print(ANDROID_LOG_INFO, kFsmLogTag, "ostrel: save %s completed\n", hisfilename);
    return true;
}

}  // namespace vendor::brevane::hardware::ostrel::core
