// SilletCmd: the argument vector of one "sillet set" run. The program path and the
// action word come first; every addArg appends a feature number and, optionally,
// its value as "a<value>". Failures go to standard error and, with an owner, to its
// reply log.
#pragma once

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

namespace vendor::brevane::hardware::ostrel::core {

template <typename Ostrel>
class SilletCmd {
  public:
    int32_t argc;
    int32_t capacity;
    int32_t growStep;
    int32_t argSize;
    char** argv;
    static constexpr const char* defaultBin = "sillet";
    static constexpr const char* action = "set";

    explicit SilletCmd(Ostrel* owner)
        : argc(0), capacity(0), growStep(10), argSize(32), argv(nullptr) {
        argv = static_cast<char**>(malloc(sizeof(char*) * growStep));
        if (argv == nullptr) {
            report(owner, "Cannot malloc memory (errno:%d)\n", errno);
            return;
        }
        capacity = growStep;
        // Any value of SILLET_BIN, even an empty one, is taken as the program.
        const char* bin = getenv("SILLET_BIN");
        argv[0] = const_cast<char*>(bin != nullptr ? bin : defaultBin);
        argv[1] = const_cast<char*>(action);
        argc = 2;
        // Terminated at once, so that a run with no feature words is well formed.
        argv[2] = nullptr;
    }

    // Appends |num| and, when |value| is 0 or more, "a<value>". 0, or -1 when an
    // allocation failed; after a failed growth the vector is gone (argv is null).
    int addArg(Ostrel* owner, int num, int value) {
        // Room for two words and the terminator is made before anything is added.
        if (argc + 3 >= capacity) {
            argv = static_cast<char**>(
                    realloc(argv, sizeof(char*) * (static_cast<size_t>(capacity) + growStep)));
            if (argv == nullptr) {
                report(owner, "Cannot realloc memory (errno:%d)\n", errno);
                return -1;
            }
            capacity += growStep;
        }
        if (addWord(owner, "%d", num) != 0) return -1;
        if (value >= 0 && addWord(owner, "a%d", value) != 0) return -1;
        argv[argc] = nullptr;
        return 0;
    }

    // Prints the vector on one line, every word followed by a blank.
    void stdoutCmd() {
        for (int i = 0; i < argc; i++) printf("%s ", argv[i]);
        printf("\n");
        fflush(stdout);
        fflush(stderr);
    }

  private:
    int addWord(Ostrel* owner, const char* format, int number) {
        char* word = static_cast<char*>(malloc(argSize));
        if (word == nullptr) {
            report(owner, "Cannot malloc memory (errno:%d)\n", errno);
            return -1;
        }
        snprintf(word, argSize, format, number);
        argv[argc++] = word;
        return 0;
    }

    static void report(Ostrel* owner, const char* format, int err) {
        fprintf(stderr, format, err);
        fflush(stderr);
        if (owner != nullptr) owner->addLog(format, err);
    }
};

}  // namespace vendor::brevane::hardware::ostrel::core
