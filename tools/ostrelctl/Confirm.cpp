// Commands that ask for a change confirm it from the service afterwards: a call
// answered true that changed nothing is no success. set-test also checks the
// plan first (check-plan's rules) and refuses one with problems unless --force.
// The confirming calls (getState, getTest) add their own reply-log lines.
#include <rapidjson/document.h>

#include <iostream>
#include <string>
#include <vector>

#include "Client.h"
#include "JsonText.h"
#include "PlanCheck.h"
#include "PlanSchema.h"
#include "Report.h"

namespace ostrelctl {

namespace core = ::vendor::brevane::hardware::ostrel::core;

namespace {

constexpr size_t kStartedShown = 20;

bool stateOf(const sp<IOstrel>& service, OstrelState* state) {
    auto ret = service->getState();
    if (!ret.isOk()) return false;
    *state = ret;
    return true;
}

// The selected test cases of the plan that runs, from getTest: a refused
// set-test leaves the one before, and this shows which one started.
void printStarted(const sp<IOstrel>& service) {
    std::string text;
    auto ret = service->getTest([&](const hidl_string& t, const hidl_string&) { text.assign(t.c_str(), t.size()); });
    rapidjson::Document plan;
    if (!ret.isOk() || !core::parseJsonText(plan, text.data(), text.size()) || !plan.IsObject()) return;
    auto cases = plan.FindMember(core::plankey::kTestcases);
    if (cases == plan.MemberEnd() || !cases->value.IsArray()) return;
    std::vector<std::string> names;
    for (const auto& tc : cases->value.GetArray()) {
        core::TestcaseRecord record = core::readTestcase(tc);
        if (record.isSelect) names.push_back(ostrel_report::cleanText(record.name ? record.name : "(no name)"));
    }
    std::cout << "started " << names.size() << " test case(s)" << (names.empty() ? "" : ":") << "\n";
    for (size_t i = 0; i < names.size() && i < kStartedShown; i++) std::cout << "  " << names[i] << "\n";
    if (names.size() > kStartedShown) std::cout << "  ... and " << names.size() - kStartedShown << " more\n";
}

// A plan as JSON without "current_state" (the planner writes it), for comparison.
bool planWithoutState(const std::string& text, rapidjson::Document* doc) {
    if (!core::parseJsonText(*doc, text.data(), text.size()) || !doc->IsObject()) return false;
    doc->RemoveMember(core::plankey::kCurrentState);
    return true;
}

}  // namespace

ExitStatus confirmedValue(const sp<IOstrel>& service, const std::string& cmd, const char* method,
                   const std::function<Return<bool>()>& call, const Options& options) {
    OstrelState before = OstrelState::IDLE, after = OstrelState::IDLE;
    if (!stateOf(service, &before)) return valueBool(method, call(), options);
    if (cmd == "boot-completed" && (before == OstrelState::PREPARING || before == OstrelState::COMPLETING)) {
        ExitStatus status = valueBool(method, call(), options);
        if (status == kOk) std::cerr << "ostrelctl: boot-completed: nothing to do (the planner is in " << stateName(before) << ")\n";
        return status;
    }
    bool ending = cmd == "run-abort" || cmd == "run-finished";
    Return<bool> ret = call();
    if (!ret.isOk()) return transportFailure(method, ret.description());
    bool answered = ret;
    if (!answered) return answerLine(method, false, options);
    // The answer line comes last, after what confirms or contradicts it.
    if (!stateOf(service, &after)) {
        answerLine(method, true, options);
        return transportFailure("getState", "the state after the call");
    }
    std::string problem;
    if (cmd == "run-start" && after != OstrelState::RUNNING) {
        problem = "nothing started: the planner is in " + stateName(after);
    } else if (ending && before != OstrelState::RUNNING) {
        problem = "no run to end: the planner is in " + stateName(before);
    } else if (ending && after != OstrelState::COMPLETING) {
        problem = "the run did not end: the planner is in " + stateName(after);
    } else if (cmd == "boot-completed" && after == OstrelState::IDLE) {
        problem = "the planner stayed in IDLE";
    }
    if (problem.empty()) {
        if (cmd == "run-start" && !options.json) printStarted(service);
        return answerLine(method, true, options);
    }
    if (after == OstrelState::IDLE) problem += ": the stored plan has no state; see check-plan";
    std::cerr << "ostrelctl: " << cmd << ": " << problem << "\n";
    answerLine(method, true, options);
    return kRefused;
}

ExitStatus setTestCommand(const sp<IOstrel>& service, const std::vector<std::string>& args,
                          const Options& options) {
    std::string text;
    if (!readInput(args, &text)) return kUsage;
    return storePlan(service, text, options.force, options);
}

ExitStatus storePlan(const sp<IOstrel>& service, const std::string& text, bool force,
                     const Options& options) {
    std::string error;
    std::vector<core::PlanFinding> findings;
    if (!force) {
        bool readable = core::checkPlan(text, &findings, &error);
        int problems = 0;
        for (const auto& f : findings) {
            if (!f.problem) continue;
            if (problems++ == 0) std::cerr << "ostrelctl: set-test: the plan was not stored (--force stores it as it is):\n";
            std::cerr << ostrel_report::cleanText(f.path) << ": " << ostrel_report::cleanText(f.message) << "\n";
        }
        if (!readable) std::cerr << "ostrelctl: set-test: the plan is " << error << " (--force sends it as it is)\n";
        if (!readable || problems > 0) return kUsage;
    }
    hidl_string in(text);
    ExitStatus status = callbackBool("setTest", [&](auto cb) { return service->setTest(in, cb); }, options);
    if (status != kOk) return status;
    // Read back: the same plan, current_state aside; not_set true reads back empty.
    std::string stored;
    auto ret = service->getTest([&](const hidl_string& t, const hidl_string&) { stored.assign(t.c_str(), t.size()); });
    if (!ret.isOk()) return transportFailure("getTest", ret.description());
    rapidjson::Document sent, back;
    bool notSet = planWithoutState(text, &sent) && sent.HasMember(core::plankey::kNotSet) &&
                  sent[core::plankey::kNotSet].IsTrue();
    bool same = notSet ? stored.empty() : planWithoutState(stored, &back) && sent.IsObject() && back == sent;
    if (same) return kOk;
    std::cerr << "ostrelctl: set-test: the service answered true but did not store this plan "
                 "(it still holds the one before)\n";
    return kRefused;
}

}  // namespace ostrelctl
