#include "AtomicFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

namespace vendor::brevane::hardware::ostrel::core {

namespace {

// Writes all of |text| to |fd| and flushes it to disk.
bool writeAndSync(int fd, const std::string& text) {
    const char* p = text.data();
    size_t left = text.size();
    bool ok = true;
    while (ok && left > 0) {
        ssize_t n = write(fd, p, left);
        if (n < 0 && errno == EINTR) continue;
        ok = n > 0;
        if (ok) {
            p += n;
            left -= static_cast<size_t>(n);
        }
    }
    return ok && fsync(fd) == 0;
}

}  // namespace

bool appendDurably(const char* path, const std::string& text, int mode) {
    int fd = open(path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, mode);
    if (fd < 0) return false;
    bool ok = writeAndSync(fd, text);
    int err = errno;
    close(fd);
    errno = err;
    return ok;
}

bool replaceFileAtomically(const char* temp, const char* path, const std::string& text, int mode) {
    int fd = open(temp, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, mode);
    if (fd < 0) return false;
    bool ok = writeAndSync(fd, text);
    int err = errno;
    close(fd);
    if (ok && rename(temp, path) == 0) return true;
    err = ok ? errno : err;
    unlink(temp);
    errno = err;
    return false;
}

}  // namespace vendor::brevane::hardware::ostrel::core
