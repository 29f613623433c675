// ostrelctl report: parses the command line, reads the result with the report
// library (tools/report) and prints it in the format asked for, or, for LAVA,
// runs each lava-test-case call with its words as arguments (no shell).
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <iostream>
#include <string>
#include <vector>

#include "Client.h"
#include "Report.h"

namespace ostrelctl {

using namespace ostrel_report;

namespace {

constexpr const char* kUsageText = "usage: ostrelctl report [--format text|json|junit|lava] [--exec] ARCHIVE";

// Runs |words| as a command found on PATH and waits for it; "" when it exited 0,
// else what went wrong.
std::string runCall(const std::vector<std::string>& words) {
    std::vector<char*> argv;
    for (const std::string& w : words) argv.push_back(const_cast<char*>(w.c_str()));
    argv.push_back(nullptr);
    std::cout.flush();
    pid_t pid = fork();
    if (pid < 0) return std::string("cannot fork: ") + strerror(errno);
    if (pid == 0) {
        execvp(argv[0], argv.data());
        _exit(127);
    }
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {}
    if (WIFEXITED(status) && WEXITSTATUS(status) == 0) return "";
    if (WIFEXITED(status) && WEXITSTATUS(status) == 127) return "not found or not runnable";
    return WIFEXITED(status) ? "exit " + std::to_string(WEXITSTATUS(status))
                             : std::string("ended by ") + strsignal(WTERMSIG(status));
}

}  // namespace

ExitStatus reportCommand(const sp<IOstrel>&, const std::vector<std::string>& args,
                         const Options& options) {
    std::string format = options.json ? "json" : "text";
    std::vector<std::string> files;
    bool exec = false;
    for (size_t i = 1; i < args.size(); i++) {
        const std::string& arg = args[i];
        if (arg == "--exec") {
            exec = true;
            continue;
        }
        if (arg == "--format" && i + 1 < args.size()) {
            format = args[++i];
        } else if (arg.compare(0, 9, "--format=") == 0) {
            format = arg.substr(9);
        } else if (arg.size() > 1 && arg[0] == '-') {
            std::cerr << "ostrelctl: report: unknown option " << arg << "\n" << kUsageText << "\n";
            return kUsage;
        } else {
            files.push_back(arg);
        }
    }
    if (format != "text" && format != "json" && format != "junit" && format != "lava") {
        std::cerr << "ostrelctl: report: unknown format \"" << format << "\"\n" << kUsageText << "\n";
        return kUsage;
    }
    if (exec && format != "lava") {
        std::cerr << "ostrelctl: report: --exec goes with --format lava\n" << kUsageText << "\n";
        return kUsage;
    }
    if (files.size() != 1) {
        std::cerr << "ostrelctl: report takes one ARCHIVE\n" << kUsageText << "\n";
        return kUsage;
    }
    RunReport report;
    std::string error;
    if (!readRunReport(files[0], &report, &error)) {
        std::cerr << "ostrelctl: " << cleanText(files[0]) << ": " << error << "\n";
        return kUsage;
    }
    if (exec) {
        for (const auto& words : lavaCalls(report)) {
            std::string failure = runCall(words);
            if (!failure.empty()) {
                std::cerr << "ostrelctl: report: " << words[0] << " " << words[1] << ": " << failure << "\n";
                return kUsage;
            }
        }
    } else if (format == "json") {
        std::cout << reportJson(report);
    } else if (format == "junit") {
        std::cout << reportJunit(report);
    } else if (format == "lava") {
        std::cout << reportLava(report);
    } else {
        std::cout << reportText(report);
    }
    std::cout.flush();
    return overallVerdict(report) == Verdict::Fail ? kRefused : kOk;
}

}  // namespace ostrelctl
