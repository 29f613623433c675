#include "RegularFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace vendor::brevane::hardware::ostrel::core {

// O_NONBLOCK: an ordinary open of a FIFO without a writer would block.
int openRegular(const char* path) {
    int fd = open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) return -1;
    struct stat st;
    if (fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
        close(fd);
        return kNotRegular;
    }
    return fd;
}

}  // namespace vendor::brevane::hardware::ostrel::core
