// The machine's side of the crash-history monitor: the monitor thread's body
// (the watching is the HistoryMonitor's), the last line of a file, the append of
// one line to the run's history copy, and the move of the copy beside the result
// archive at the end of the run.
#include <android/log.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "OstrelFSM.h"

namespace vendor::brevane::hardware::ostrel::core {

namespace {

// The line that the monitor read ahead of the history lock, for the
// appendLastLine call made under the lock; null when appendLastLine reads the
// file itself. The copy is written by appendLastLine either way, so its checks
// report as that function's.
thread_local std::string* lineReadAhead = nullptr;

}  // namespace

void OstrelFSM::monitorDBHistoryThread(HistoryMonitor::Watch watch, uint32_t run) {
    history.run(watch, run, [this, run] { return threads.isCurrent(run); });
}

void OstrelFSM::appendReadLine(const char* path, std::string& line) {
    lineReadAhead = &line;
    appendLastLine(path);
    lineReadAhead = nullptr;
}

std::string OstrelFSM::getLastLine(std::string path) {
    return history.lastLine(path.c_str());
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
