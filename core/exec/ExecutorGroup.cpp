#include "ExecutorGroup.h"

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace vendor::brevane::hardware::ostrel::core {

namespace {

bool groupExists(int32_t pgid) {
    return kill(-pgid, 0) == 0;
}

}  // namespace

void ExecutorGroup::terminate(int32_t p) {
    if (p < 1 || !groupExists(p)) return;
    log.error("ostrel: terminate process group: -%d", p);
    if (kill(-p, SIGTERM) == -1) {
        log.error("ostrel: terminate process group: -%d, (errno:%d, %s)\n", p, errno, strerror(errno));
    }
    bool present = groupExists(p);
    if (present) {
        usleep(100);
        present = groupExists(p);
        if (present) {
            usleep(100);
            present = groupExists(p);
        }
    }
    if (present) {
        log.error("ostrel: delete process group again: -%d", p);
        if (kill(-p, SIGKILL) == -1) {
            log.error("ostrel: delete process group again: -%d, (errno:%d, %s)\n", p, errno, strerror(errno));
        }
    }
}

void ExecutorGroup::retire(pid_t supervisor) {
    unreaped.push_back(supervisor);
}

void ExecutorGroup::reapRetired(const std::function<void(pid_t)>& reaped) {
    for (auto it = unreaped.begin(); it != unreaped.end();) {
        int status = 0;
        pid_t pid = waitpid(*it, &status, WNOHANG);
        if (pid == 0) {
            ++it;  // not ended yet: a later event or tick reaps it
        } else {
            if (pid == *it) reaped(pid);
            it = unreaped.erase(it);
        }
    }
}

void ExecutorGroup::forget(pid_t pid) {
    unreaped.erase(std::remove(unreaped.begin(), unreaped.end(), pid), unreaped.end());
}

}  // namespace vendor::brevane::hardware::ostrel::core
