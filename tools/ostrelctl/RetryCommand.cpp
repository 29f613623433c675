// ostrelctl retry RESULT: a lab's first move after a failing run. From the run's
// result (archive and record) it makes the plan again with only the test cases
// that did not pass selected (the verdict model's rule) and every counter reset,
// says which and why, stores it as set-test does (checked, read back), and
// applies again the configuration that run applied, from the client's list kept
// in the record. A result of another device is refused.
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <iostream>

#include "Client.h"
#include "DeviceIdentity.h"
#include "JsonText.h"
#include "PlanSchema.h"
#include "Report.h"

namespace ostrelctl {

namespace core = ::vendor::brevane::hardware::ostrel::core;
using namespace ostrel_report;

namespace {

namespace key = core::runrecord;

// The members that name a device rather than its build. The device id is
// compared only where this client can tell its own (not on Android, where the
// service's id is not the client's to read).
const char* const kIdentityKeys[] = {key::kPlatform, key::kModel, key::kDeviceId};

// "" when the record's device is this one, else what differs.
std::string otherDevice(const RunFacts& run) {
    rapidjson::Document here(rapidjson::kObjectType);
    core::describeDevice(&here, here.GetAllocator());
    for (const char* name : kIdentityKeys) {
        std::string recorded = deviceMember(run, {name});
        auto it = here.FindMember(name);
        std::string mine = it != here.MemberEnd() && it->value.IsString() ? it->value.GetString() : "";
        if (name == key::kDeviceId && mine.empty()) continue;
        if (recorded != mine) return std::string(name) + " \"" + cleanText(recorded) + "\", this device's \"" + mine + "\"";
    }
    return "";
}

void setMember(rapidjson::Value& object, const char* key, rapidjson::Value value,
               rapidjson::Document::AllocatorType& a) {
    auto it = object.FindMember(key);
    if (it != object.MemberEnd()) {
        it->value = value;
    } else {
        object.AddMember(rapidjson::StringRef(key), value, a);
    }
}

// The archived plan |text| made the plan to store again: the test cases to run
// again selected (|count| of them, each a line of |list|, the first
// kShownCases), every counter reset. False when it is no JSON object. The
// plan's document is let go before the plan is stored and checked again.
bool retryPlan(const std::string& text, const RunFacts& run, bool failedOnly, std::string* planText,
               size_t* count, std::string* list) {
    rapidjson::Document plan;
    if (!core::parseJsonText(plan, text.data(), text.size()) || !plan.IsObject()) return false;
    auto& a = plan.GetAllocator();
    auto cases = plan.FindMember(core::plankey::kTestcases);
    size_t& again = *count;
    if (cases != plan.MemberEnd() && cases->value.IsArray()) {
        int64_t index = 0;
        for (auto& tc : cases->value.GetArray()) {
            int64_t i = index++;
            if (!tc.IsObject()) continue;
            bool rerun = false;
            if (core::readTestcase(tc).isSelect) {
                CaseReport c = judgeTestcase(tc, i, run);
                rerun = retried(c.verdict, failedOnly);
                if (rerun && again < kShownCases) {
                    *list += "  " + std::string(verdictName(c.verdict)) + "  " + cleanText(c.name) + ": " +
                            cleanText(c.reason) + "\n";
                }
            }
            again += rerun;
            setMember(tc, core::plankey::kSelect, rapidjson::Value(rerun), a);
            for (const char* key : {core::plankey::kCurrentTime, core::plankey::kTargetTime,
                                    core::plankey::kCurrentRound, core::plankey::kTargetRound}) {
                setMember(tc, key, rapidjson::Value(0), a);
            }
        }
    }
    setMember(plan, core::plankey::kNotSet, rapidjson::Value(false), a);
    setMember(plan, core::plankey::kCurrentState, rapidjson::Value(1), a);
    setMember(plan, core::plankey::kRunStart, rapidjson::Value(false), a);
    setMember(plan, core::plankey::kRunFinished, rapidjson::Value(false), a);
    rapidjson::StringBuffer buffer;
    rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
    plan.Accept(writer);
    planText->assign(buffer.GetString(), buffer.GetSize());
    return true;
}

}  // namespace

ExitStatus retryCommand(const sp<IOstrel>& service, const std::vector<std::string>& args,
                        const Options& options) {
    bool failedOnly = options.failedOnly;
    const std::string& archive = args[1];
    RunReport report;
    std::string error, text;
    if (!readRunReport(archive, &report, &error) || !readArchivedPlan(archive, &text, &error)) {
        std::cerr << "ostrelctl: retry: " << cleanText(archive) << ": " << error << "\n";
        return kUsage;
    }
    const RunFacts& run = report.run;
    if (!run.present) {
        std::cerr << "ostrelctl: retry: " << cleanText(archive)
                  << ": no run record beside it (QAV<stamp>.run.json): it tells the device and the "
                     "configuration to apply again\n";
        return kUsage;
    }
    if (std::string other = otherDevice(run); !other.empty()) {
        std::cerr << "ostrelctl: retry: the result is of another device (its " << other << ")\n";
        return kRefused;
    }
    std::string planText, list;
    size_t again = 0;
    bool parsed = retryPlan(text, run, failedOnly, &planText, &again, &list);
    text = std::string();
    if (!parsed) {
        std::cerr << "ostrelctl: retry: " << cleanText(archive) << ": the archived plan is not a JSON object\n";
        return kUsage;
    }
    if (again == 0) {
        std::cerr << "ostrelctl: retry: nothing to retry: every selected test case "
                  << (failedOnly ? "passed or is aborted or unknown" : "passed") << " in " << cleanText(archive)
                  << "\n";
        return kRefused;
    }
    std::cout << "retry: run again from " << cleanText(archive) << ":\n" << list;
    if (again > kShownCases) std::cout << "  ... and " << again - kShownCases << " more\n";
    ExitStatus status = storePlan(service, planText, false, options);
    if (status != kOk) return status;
    if (run.configurationList.empty()) {
        std::cerr << "ostrelctl: retry: the run applied no configuration; the current one stays\n";
    } else if (run.configurationList == "null") {
        status = callbackBool("clearConfig", [&](auto cb) { return service->clearConfig(cb); }, options);
    } else {
        hidl_string list(run.configurationList);
        status = callbackBool("setConfig", [&](auto cb) { return service->setConfig(list, cb); }, options);
    }
    if (status == kOk) {
        std::cout << "retry: " << again << " test case(s) selected again" << (failedOnly ? " (--failed-only)" : "")
                  << "; run-start runs them\n";
    }
    return status;
}

}  // namespace ostrelctl
