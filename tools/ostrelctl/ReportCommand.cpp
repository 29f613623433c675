// ostrelctl report: parses the command line, reads the result with the report
// library (tools/report) and prints it in the format asked for.
#include <iostream>
#include <string>
#include <vector>

#include "Client.h"
#include "Report.h"

namespace ostrelctl {

using namespace ostrel_report;

namespace {

constexpr const char* kUsageText = "usage: ostrelctl report [--format text|json|junit|lava] ARCHIVE";

}  // namespace

ExitStatus reportCommand(const sp<IOstrel>&, const std::vector<std::string>& args,
                         const Options& options) {
    std::string format = options.json ? "json" : "text";
    std::vector<std::string> files;
    for (size_t i = 1; i < args.size(); i++) {
        const std::string& arg = args[i];
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
    if (files.size() != 1) {
        std::cerr << "ostrelctl: report takes one ARCHIVE\n" << kUsageText << "\n";
        return kUsage;
    }
    RunReport report;
    std::string error;
    if (!readRunReport(files[0], &report, &error)) {
        std::cerr << "ostrelctl: " << files[0] << ": " << error << "\n";
        return kUsage;
    }
    if (format == "json") {
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
