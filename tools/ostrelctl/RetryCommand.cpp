// ostrelctl retry RESULT: a lab's first move after a failing run. From the run's
// result (archive and record) it makes the plan again with only the test cases
// that did not pass selected (the verdict model's rule) and every counter reset,
// says which and why, stores it as set-test does (checked, read back), and
// applies again the configuration that run applied, from the client's list kept
// in the record. A result of another device is refused.
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <functional>
#include <iostream>
#include <vector>

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

using PlanWriter = rapidjson::Writer<rapidjson::StringBuffer>;

// Members of an object written again with new values: each one's first
// occurrence takes its value in place, and those the object lacks follow at its
// end; every other member is written as it was.
struct NewValue {
    const char* key;
    std::function<void(PlanWriter&)> write;
};

void writeObject(PlanWriter& w, const rapidjson::Value& object, const std::vector<NewValue>& values,
                 const std::function<bool(const rapidjson::Value& name, const rapidjson::Value& value)>& own) {
    std::vector<bool> written(values.size());
    w.StartObject();
    for (const auto& m : object.GetObject()) {
        w.Key(m.name.GetString(), m.name.GetStringLength());
        size_t i = 0;
        while (i < values.size() && (written[i] || !(m.name == values[i].key))) i++;
        if (i < values.size()) {
            written[i] = true;
            values[i].write(w);
        } else if (!own || !own(m.name, m.value)) {
            m.value.Accept(w);
        }
    }
    for (size_t i = 0; i < values.size(); i++) {
        if (written[i]) continue;
        w.Key(values[i].key);
        values[i].write(w);
    }
    w.EndObject();
}

// The archived plan |text| made the plan to store again: the test cases to run
// again selected (|count| of them, each a line of |list|, the first
// kShownCases), every counter reset. Written as it is read, without changing
// the archived plan's document, and stopped past kInputBytes, the most a plan
// can be. False with |error| set when it is no JSON object or grows past that.
bool retryPlan(const std::string& text, const RunFacts& run, bool failedOnly, std::string* planText,
               size_t* count, std::string* list, std::string* error) {
    rapidjson::Document plan;
    if (!core::parseJsonText(plan, text.data(), text.size()) || !plan.IsObject()) {
        *error = "the archived plan is not a JSON object";
        return false;
    }
    size_t& again = *count;
    rapidjson::StringBuffer buffer;
    PlanWriter w(buffer);
    auto value = [](auto v) { return [v](PlanWriter& out) { rapidjson::Value(v).Accept(out); }; };
    bool casesWritten = false, tooLarge = false;
    auto testcases = [&](const rapidjson::Value& name, const rapidjson::Value& cases) {
        if (casesWritten || !(name == core::plankey::kTestcases) || !cases.IsArray()) return false;
        casesWritten = true;
        int64_t index = 0;
        w.StartArray();
        for (const auto& tc : cases.GetArray()) {
            int64_t i = index++;
            if (tooLarge || buffer.GetSize() > kInputBytes) {
                tooLarge = true;
                break;
            }
            if (!tc.IsObject()) {
                tc.Accept(w);
                continue;
            }
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
            writeObject(w, tc,
                        {{core::plankey::kSelect, value(rerun)},
                         {core::plankey::kCurrentTime, value(0)},
                         {core::plankey::kTargetTime, value(0)},
                         {core::plankey::kCurrentRound, value(0)},
                         {core::plankey::kTargetRound, value(0)}},
                        nullptr);
        }
        w.EndArray();
        return true;
    };
    writeObject(w, plan,
                {{core::plankey::kNotSet, value(false)},
                 {core::plankey::kCurrentState, value(1)},
                 {core::plankey::kRunStart, value(false)},
                 {core::plankey::kRunFinished, value(false)}},
                testcases);
    if (tooLarge || buffer.GetSize() > kInputBytes) {
        *error = "the plan to store again would be more than 16 MiB, which no plan is";
        return false;
    }
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
    bool parsed = retryPlan(text, run, failedOnly, &planText, &again, &list, &error);
    text = std::string();
    if (!parsed) {
        std::cerr << "ostrelctl: retry: " << cleanText(archive) << ": " << error << "\n";
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
