// The executor launcher: a supervisor in a session and process group of its own
// runs the executor in that group, waits for it, and then kills the whole group,
// itself included. The group id is the supervisor's id, which the machine keeps.
#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "OstrelFSM.h"

namespace vendor::brevane::hardware::ostrel::core {

bool OstrelFSM::forkAndExec(char** argv) {
    // The supervisor closes its end of this pipe once its group exists, so that an
    // abort right after the start finds the group to terminate.
    int groupReady[2];
    bool synced = pipe2(groupReady, O_CLOEXEC) == 0;
    pid_t pid = fork();
    if (pid == 0) {
        setsid();
        if (synced) {
            close(groupReady[0]);
            close(groupReady[1]);
        }
        // The run goes at the normal priority whatever the service's own is.
        if (setpriority(PRIO_PROCESS, 0, 0) != 0) {
            int err = errno;
            error("ostrel: pid %d set priority (errno:%d, %s)\n", getpid(), err, strerror(err));
        }
        runKelbrun(argv);
        error("ostrel: runKelbrun should not be here!! ");
        // _exit: the static destructors inherited from the service may wait on
        // locks that other threads held at fork time.
        _exit(1);
    }
    int err = errno;
    if (synced) {
        close(groupReady[1]);
        char c;
        while (pid > 0 && read(groupReady[0], &c, 1) == -1 && errno == EINTR) {
        }
        close(groupReady[0]);
    }
    if (pid < 1) {
        executorProcessId.store(-1);
        error("ostrel: Cannot fork (errno:%d, %s)\n", err, strerror(err));
        return false;
    }
    executorProcessId.store(pid);
    return true;
}

bool OstrelFSM::runKelbrun(char** argv) {
    pid_t pid = fork();
    if (pid == 0) {
        int fd = open(kExecutorLogFile, O_RDWR | O_CREAT | O_APPEND, 0600);
        if (fd < 0) {
            int err = errno;
            error("ostrel: Cannot create %s (errno:%d, %s)\n", kExecutorLogFile, err,
                  strerror(err));
        } else {
            dup2(fd, STDOUT_FILENO);
            dup2(fd, STDERR_FILENO);
            close(fd);
        }
        setpgid(getpid(), getpgid(getppid()));
        execvp(argv[0], argv);
        int err = errno;
        // Standard error is the log file by now, so this line lands there too.
        error("ostrel: execvp %s should not be here!! (errno:%d, %s)", argv[0], err,
              strerror(err));
        delete[] argv;
        _exit(1);
    }
    if (pid < 1) {
        int err = errno;
        error("ostrel: can't fork (errno:%d, %s)\n", err, strerror(err));
        return false;
    }
    delete[] argv;

    // Stop and continue reports are not the executor's end: wait again.
    int status = 0;
    bool ended;
    while (true) {
        if (waitpid(pid, &status, WUNTRACED | WCONTINUED) == -1) {
            int err = errno;
            error("ostrel: waitpid (errno:%d, %s)", err, strerror(err));
            ended = false;
            break;
        }
        if (WIFEXITED(status) || WIFSIGNALED(status)) {
            ended = true;
            break;
        }
    }
    error("ostrel: process %d back, status 0x%04X", pid, status);
    // How the executor ended goes to the run record before the group is signalled.
    if (ended) RunRecord::persistExecutorEnd(status);

    // Removes whatever the executor left in the group, and this process with it.
    pid_t group = getpgid(getpid());
    error("ostrel: delete process group: -%d", group);
    if (kill(-group, SIGKILL) == -1) {
        int err = errno;
        error("ostrel: delete process group: -%d, (errno:%d, %s)\n", group, err, strerror(err));
    }
    return ended;
}

}  // namespace vendor::brevane::hardware::ostrel::core
