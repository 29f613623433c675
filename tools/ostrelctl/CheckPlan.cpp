// ostrelctl check-plan FILE|-: every problem of a plan that the service would
// store but run wrong, one line each with its JSON path and what to write
// instead, then the warnings. Offline: nothing is sent to the service.
#include <iostream>
#include <string>
#include <vector>

#include "Client.h"
#include "PlanCheck.h"
#include "Report.h"

namespace ostrelctl {

namespace core = ::vendor::brevane::hardware::ostrel::core;

ExitStatus checkPlanCommand(const sp<IOstrel>&, const std::vector<std::string>& args,
                            const Options&) {
    std::string text, error;
    if (!readInput(args, &text)) return kUsage;
    std::vector<core::PlanFinding> findings;
    const std::string source = args.size() < 2 ? "-" : args[1];
    if (!core::checkPlan(text, &findings, &error)) {
        std::cerr << "ostrelctl: " << source << ": " << error << "\n";
        return kUsage;
    }
    int problems = 0;
    for (bool wantProblems : {true, false}) {
        for (const auto& f : findings) {
            if (f.problem != wantProblems) continue;
            problems += f.problem;
            // Paths and messages hold the plan's own words: cleaned, as every text printed.
            std::cout << (f.problem ? "" : "warning: ") << ostrel_report::cleanText(f.path) << ": "
                      << ostrel_report::cleanText(f.message) << "\n";
        }
    }
    if (problems == 0) std::cout << source << ": the plan is fine\n";
    return problems == 0 ? kOk : kRefused;
}

}  // namespace ostrelctl
