// A plan read before it is stored: every problem of a plan that the service
// would store as it is but run wrong (a missing key the planner writes into, a
// value of the wrong type, a size that is reached at once, ...), and warnings for
// what is harmless (keys the planner does not know, which the store keeps).
#pragma once

#include <string>
#include <vector>

namespace vendor::brevane::hardware::ostrel::core {

struct PlanFinding {
    bool problem;         // false: a warning
    std::string path;     // JSON path, e.g. $.testcases[0].isround
    std::string message;  // what is wrong and what to write instead
};

// False, with |error|, when |text| is no JSON object at all.
bool checkPlan(const std::string& text, std::vector<PlanFinding>* findings, std::string* error);

}  // namespace vendor::brevane::hardware::ostrel::core
