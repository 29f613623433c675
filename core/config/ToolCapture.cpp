#include "ToolCapture.h"

#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>

namespace vendor::brevane::hardware::ostrel::core {

namespace {

void closeFd(int* fd) {
    if (*fd >= 0) close(*fd);
    *fd = -1;
}

int growOutput(ReplyLogSink* owner, ToolOutput* output) {
    if (output->size > INT32_MAX - kToolBufferStep) {
        logText(owner, stderr, "Cannot realloc memory (errno:%d)\n", ENOMEM);
        return -1;
    }
    char* data = static_cast<char*>(realloc(output->data, output->size + kToolBufferStep));
    if (data == nullptr) {
        logText(owner, stderr, "Cannot realloc memory (errno:%d)\n", errno);
        return -1;
    }
    output->data = data;
    output->size += kToolBufferStep;
    return 0;
}

// Reads |fd| to its end with blocking reads into the free tail of |output|, which
// grows whenever it fills, so one byte is always left for the terminator.
int drainPipe(ReplyLogSink* owner, int fd, ToolOutput* output) {
    if (output->length == output->size && growOutput(owner, output) != 0) return -1;
    for (;;) {
        ssize_t n = read(fd, output->data + output->length, output->size - output->length);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) {
            logText(owner, stderr, "Cannot read pipe (errno:%d)\n", errno);
            return -1;
        }
        if (n == 0) return 0;
        output->length += static_cast<int32_t>(n);
        if (output->length == output->size && growOutput(owner, output) != 0) return -1;
    }
}

// Polls both read ends until each reached its end or hung up.
int collectOutputs(ReplyLogSink* owner, int outFd, int errFd, ToolOutput* out, ToolOutput* err) {
    struct pollfd fds[2] = {{outFd, POLLIN, 0}, {errFd, POLLIN, 0}};
    ToolOutput* outputs[2] = {out, err};
    while (fds[0].fd != -1 || fds[1].fd != -1) {
        errno = 0;
        int ready = poll(fds, 2, kToolPollMs);
        if (ready < 0 && errno == EINTR) continue;
        if (ready <= 0) {
            logText(owner, stderr, "Cannot poll (errno:%d)\n", errno);
            return -1;
        }
        for (int i = 0; i < 2; i++) {
            if (fds[i].fd == -1) continue;
            if (fds[i].revents & POLLIN) {
                if (drainPipe(owner, fds[i].fd, outputs[i]) != 0) return -1;
                fds[i].fd = -1;
            } else if (fds[i].revents & (POLLHUP | POLLERR | POLLNVAL)) {
                fds[i].fd = -1;
            }
        }
    }
    return 0;
}

}  // namespace

ToolRunResult runToolCaptured(ReplyLogSink* owner, const std::function<void()>& child,
                              ToolOutput* out, ToolOutput* err, int* status) {
    int outPipe[2] = {-1, -1};
    int errPipe[2] = {-1, -1};
    if (pipe(outPipe) != 0 || pipe(errPipe) != 0) {
        logText(owner, stderr, "Cannot create pipe (errno:%d)\n", errno);
        for (int* fd : {&outPipe[0], &outPipe[1], &errPipe[0], &errPipe[1]}) closeFd(fd);
        return TOOL_NO_PIPE;
    }
    // Nothing buffered may be written twice by the child.
    fflush(stdout);
    fflush(stderr);
    pid_t pid = fork();
    if (pid == 0) {
        dup2(outPipe[1], STDOUT_FILENO);
        close(outPipe[0]);
        close(outPipe[1]);
        dup2(errPipe[1], STDERR_FILENO);
        close(errPipe[0]);
        close(errPipe[1]);
        child();
        _exit(1);
    }
    ToolRunResult result = TOOL_FAILED;
    if (pid < 0) {
        logText(owner, stderr, "Cannot fork (errno:%d)\n", errno);
    } else {
        closeFd(&outPipe[1]);
        closeFd(&errPipe[1]);
        out->data = static_cast<char*>(malloc(kToolBufferStep));
        err->data = static_cast<char*>(malloc(kToolBufferStep));
        if (out->data == nullptr || err->data == nullptr) {
            logText(owner, stderr, "Cannot malloc memory (errno:%d)\n", errno);
        } else {
            out->size = err->size = kToolBufferStep;
            if (collectOutputs(owner, outPipe[0], errPipe[0], out, err) == 0) {
                pid_t waited;
                do {
                    waited = waitpid(pid, status, 0);
                } while (waited < 0 && errno == EINTR);
                if (waited < 0) {
                    logText(owner, stderr, "Cannot wait for child (errno:%d)\n", errno);
                } else {
                    out->data[out->length] = '\0';
                    err->data[err->length] = '\0';
                    result = TOOL_DONE;
                }
            }
        }
    }
    for (int* fd : {&outPipe[0], &outPipe[1], &errPipe[0], &errPipe[1]}) closeFd(fd);
    return result;
}

void releaseToolOutput(ToolOutput* output) {
    free(output->data);
    *output = ToolOutput();
}

void failExec() {
    fprintf(stderr, "Cannot execvp (errno:%d)\n", errno);
    fflush(stderr);
    _exit(1);
}

}  // namespace vendor::brevane::hardware::ostrel::core
