#include "SilletCmd.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>

namespace vendor::brevane::hardware::ostrel::core {

const char* silletPath() {
    const char* bin = getenv("SILLET_BIN");
    return bin != nullptr ? bin : SilletCmd::defaultBin;
}

int toolExitCode(ReplyLogSink* owner, int status) {
    if ((status & 0x7f) != 0) {
        logText(owner, stderr, "sillet abnormally existed\n");
        return -1;
    }
    return (status >> 8) & 0xff;
}

SilletCmd::SilletCmd(ReplyLogSink* owner)
    : argc(0), capacity(0), growStep(10), argSize(32), argv(nullptr) {
    argv = static_cast<char**>(malloc(sizeof(char*) * growStep));
    if (argv == nullptr) {
        logText(owner, stderr, "Cannot malloc memory (errno:%d)\n", errno);
        return;
    }
    capacity = growStep;
    // Any value of SILLET_BIN, even an empty one, is taken as the program.
    argv[0] = const_cast<char*>(silletPath());
    argv[1] = const_cast<char*>(action);
    argc = 2;
    // Terminated at once, so that a run with no feature words is well formed.
    argv[2] = nullptr;
}

int SilletCmd::addArg(ReplyLogSink* owner, int num, int value) {
    // Room for two words and the terminator is made before anything is added.
    if (argc + 3 >= capacity) {
        argv = static_cast<char**>(
                realloc(argv, sizeof(char*) * (static_cast<size_t>(capacity) + growStep)));
        if (argv == nullptr) {
            logText(owner, stderr, "Cannot realloc memory (errno:%d)\n", errno);
            return -1;
        }
        capacity += growStep;
    }
    if (addWord(owner, "%d", num) != 0) return -1;
    if (value >= 0 && addWord(owner, "a%d", value) != 0) return -1;
    argv[argc] = nullptr;
    return 0;
}

void SilletCmd::stdoutCmd() {
    for (int i = 0; i < argc; i++) printf("%s ", argv[i]);
    printf("\n");
    fflush(stdout);
    fflush(stderr);
}

#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wformat-nonliteral"
int SilletCmd::addWord(ReplyLogSink* owner, const char* format, int number) {
    char* word = static_cast<char*>(malloc(argSize));
    if (word == nullptr) {
        logText(owner, stderr, "Cannot malloc memory (errno:%d)\n", errno);
        return -1;
    }
    snprintf(word, argSize, format, number);
    argv[argc++] = word;
    return 0;
}
#pragma clang diagnostic pop

}  // namespace vendor::brevane::hardware::ostrel::core
