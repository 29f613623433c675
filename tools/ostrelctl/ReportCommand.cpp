// ostrelctl report: parses the command line, reads one result or many with the
// report library (tools/report) and prints it, or the summary of many, in the
// format asked for; for LAVA it can run each lava-test-case call with its words
// as arguments (no shell).
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <iostream>
#include <map>
#include <string>
#include <vector>

#include "Client.h"
#include "Fleet.h"
#include "Report.h"

namespace ostrelctl {

using namespace ostrel_report;

namespace {

static_assert(kOk == kExitPass && kRefused == kExitFailed && kNotProven == kExitNotProven,
              "the report's exit statuses are the client's");

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

// The LAVA calls of one run, printed or run.
ExitStatus lavaOut(const RunReport& report, bool exec) {
    if (!exec) {
        std::cout << reportLava(report);
        return kOk;
    }
    for (const auto& words : lavaCalls(report)) {
        std::string failure = runCall(words);
        if (!failure.empty()) {
            std::cerr << "ostrelctl: report: " << words[0] << " " << words[1] << ": " << failure << "\n";
            return kUsage;
        }
    }
    return kOk;
}

// An ARCHIVE or FOLDER of the command line with the --device label it takes.
struct Input {
    std::string name;
    std::string device;
};

// Many results: each read, folded into the summary and let go. JUnit and LAVA
// are written run by run as they are read. Each archive takes the label of the
// input that named it (the last one, for an archive named twice).
ExitStatus fleetReport(const std::vector<Input>& inputs, const std::string& format, bool exec) {
    std::vector<std::string> archives;
    std::map<std::string, std::string> deviceOf;
    std::string error;
    FleetSummary fleet;
    for (const Input& input : inputs) {
        std::vector<std::string> found;
        if (!findArchives({input.name}, &found, &fleet.bad, &error)) {
            std::cerr << "ostrelctl: report: " << error << "\n";
            return kUsage;
        }
        for (const std::string& archive : found) {
            if (deviceOf.count(archive) == 0) archives.push_back(archive);
            deviceOf[archive] = input.device;
        }
    }
    orderByStart(&archives);
    if (format == "junit") std::cout << junitHead();
    for (const BadArchive& bad : fleet.bad) {
        if (format == "junit") std::cout << junitBadArchive(bad);
    }
    for (const std::string& archive : archives) {
        RunReport report;
        report.deviceLabel = deviceOf[archive];
        if (!readRunReport(archive, &report, &error)) {
            fleet.bad.push_back(BadArchive{archive, error});
            if (format == "junit") std::cout << junitBadArchive(fleet.bad.back());
            continue;
        }
        // A run packed twice (the same run id) is counted and written once.
        if (!addRun(&fleet, report)) continue;
        if (format == "junit") std::cout << junitSuite(report);
        if (format == "lava" && lavaOut(report, exec) != kOk) return kUsage;
    }
    if (format == "junit") std::cout << junitTail();
    if (format == "text") fleetText(fleet, std::cout);
    if (format == "json") fleetJson(fleet, std::cout);
    if (format == "html") fleetHtml(fleet, std::cout);
    std::cout.flush();
    for (const BadArchive& bad : fleet.bad) {
        if (format == "junit" || format == "lava") {
            std::cerr << "ostrelctl: " << cleanText(bad.archive) << ": " << bad.reason << "\n";
        }
    }
    if (fleet.runs.empty()) {
        std::cerr << "ostrelctl: report: no result could be read (" << fleet.bad.size() << " tried)\n";
        return kUsage;
    }
    return static_cast<ExitStatus>(fleetExitStatus(fleet));
}

}  // namespace

ExitStatus reportCommand(const sp<IOstrel>&, const std::vector<std::string>& args,
                         const Options& options) {
    std::string format = !options.format.empty() ? options.format : options.json ? "json" : "text";
    bool exec = options.exec;
    // Each ARCHIVE or FOLDER takes the last --device before it; those before the
    // first --device take that one, so that one --device anywhere names them all.
    std::vector<Input> inputs;
    std::vector<std::string> files(args.begin() + 1, args.end());
    size_t label = 0;
    for (size_t i = 0; i < files.size(); i++) {
        while (label + 1 < options.devices.size() && options.devices[label + 1].first <= i) label++;
        inputs.push_back(Input{files[i], options.devices.empty() ? "" : options.devices[label].second});
    }
    const std::string usage = "usage: " + usageOf(*findCommand("report"));
    if (format != "text" && format != "json" && format != "junit" && format != "lava" && format != "html") {
        std::cerr << "ostrelctl: report: unknown format \"" << cleanText(format) << "\"\n" << usage << "\n";
        return kUsage;
    }
    if (exec && format != "lava") {
        std::cerr << "ostrelctl: report: --exec goes with --format lava\n" << usage << "\n";
        return kUsage;
    }
    if (files.empty()) {
        std::cerr << "ostrelctl: report takes an ARCHIVE or more, or a folder\n" << usage << "\n";
        return kUsage;
    }
    struct stat st;
    bool single = files.size() == 1 && format != "html" &&
                  !(stat(files[0].c_str(), &st) == 0 && S_ISDIR(st.st_mode));
    if (!single) return fleetReport(inputs, format, exec);
    RunReport report;
    report.deviceLabel = inputs[0].device;
    std::string error;
    if (!readRunReport(files[0], &report, &error)) {
        std::cerr << "ostrelctl: " << cleanText(files[0]) << ": " << error << "\n";
        return kUsage;
    }
    if (format == "lava") {
        if (lavaOut(report, exec) != kOk) return kUsage;
    } else if (format == "json") {
        std::cout << reportJson(report);
    } else if (format == "junit") {
        std::cout << reportJunit(report);
    } else {
        std::cout << reportText(report);
    }
    std::cout.flush();
    return static_cast<ExitStatus>(exitStatusOf(runVerdict(report)));
}

}  // namespace ostrelctl
