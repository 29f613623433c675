// The config tool as a program: its path, the argument vector of one "sillet set"
// run, and how its exit status reads. The program path and the action word come
// first; every addArg appends a feature number and, optionally, its value as
// "a<value>". Failures go to standard error and, with an owner, to its reply log.
#pragma once

#include <cstdint>

#include "ReplyLogSink.h"

namespace vendor::brevane::hardware::ostrel::core {

// The tool path: SILLET_BIN when set (even empty), else "sillet" along PATH.
const char* silletPath();
// The exit code of a tool that exited, or -1 after reporting
// "sillet abnormally existed\n" when a signal ended it.
int toolExitCode(ReplyLogSink* owner, int status);

class SilletCmd {
  public:
    int32_t argc;
    int32_t capacity;
    int32_t growStep;
    int32_t argSize;
    char** argv;
    static constexpr const char* defaultBin = "sillet";
    static constexpr const char* action = "set";

    explicit SilletCmd(ReplyLogSink* owner);

    // Appends |num| and, when |value| is 0 or more, "a<value>". 0, or -1 when an
    // allocation failed; after a failed growth the vector is gone (argv is null).
    int addArg(ReplyLogSink* owner, int num, int value);

    // Prints the vector on one line, every word followed by a blank.
    void stdoutCmd();

  private:
    int addWord(ReplyLogSink* owner, const char* format, int number);
};

}  // namespace vendor::brevane::hardware::ostrel::core
