#include "AtomicFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

namespace vendor::brevane::hardware::ostrel::core {

bool replaceFileAtomically(const char* temp, const char* path, const std::string& text, int mode) {
    int fd = open(temp, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, mode);
    if (fd < 0) return false;
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
    ok = ok && fsync(fd) == 0;
    int err = errno;
    close(fd);
    if (ok && rename(temp, path) == 0) return true;
    err = ok ? errno : err;
    unlink(temp);
    errno = err;
    return false;
}

}  // namespace vendor::brevane::hardware::ostrel::core
