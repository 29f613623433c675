// ostrelctl watch: the planner's state and one progress bar per selected test
// case (rounds or hours, from the plan's counters), until the run leaves
// RUNNING. On a terminal the bars are redrawn in place; otherwise a new block
// is printed whenever something changed.
#include <rapidjson/document.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <iostream>
#include <sstream>
#include <thread>

#include "Client.h"
#include "JsonText.h"
#include "PlanSchema.h"

namespace ostrelctl {

namespace core = ::vendor::brevane::hardware::ostrel::core;

using ::android::hardware::hidl_string;

namespace {

constexpr int kBarWidth = 30;

std::string bar(double done, double target) {
    double fraction = target > 0 ? done / target : 0;
    if (fraction > 1) fraction = 1;
    if (fraction < 0) fraction = 0;
    int filled = static_cast<int>(fraction * kBarWidth + 0.5);
    char percent[16];
    snprintf(percent, sizeof(percent), "%3d%%", static_cast<int>(fraction * 100 + 0.5));
    return "[" + std::string(filled, '#') + std::string(kBarWidth - filled, '.') + "] " + percent;
}

// One line per selected test case of |plan|, or a note when there is none.
std::string progressLines(const std::string& plan) {
    rapidjson::Document doc;
    using vendor::brevane::hardware::ostrel::core::parseJsonText;
    if (!parseJsonText(doc, plan.data(), plan.size()) || !doc.IsObject()) {
        return "  (no plan available)\n";
    }
    auto cases = doc.FindMember("testcases");
    if (cases == doc.MemberEnd() || !cases->value.IsArray()) return "  (plan has no test cases)\n";
    std::ostringstream out;
    int index = 0;
    for (const auto& tc : cases->value.GetArray()) {
        int i = index++;
        if (!tc.IsObject()) continue;
        core::TestcaseRecord record = core::readTestcase(tc);
        if (!record.isSelect) continue;
        std::string name = record.name ? record.name : "test case " + std::to_string(i);
        int cur = core::currentOf(record), target = core::targetOf(record);
        char amount[96];
        switch (core::countingOf(record)) {
            case core::Counting::ByTime:
                snprintf(amount, sizeof(amount), "%.2f/%.2f h", cur / 3600.0, target / 3600.0);
                break;
            case core::Counting::ByBoots:
                snprintf(amount, sizeof(amount), "%d/%d boots", cur, target);
                break;
            case core::Counting::ByExecutor:
                snprintf(amount, sizeof(amount), "%d/%d rounds (run by the executor, not counted)",
                         cur, target);
                break;
        }
        out << "  " << bar(cur, target) << "  " << amount << "  " << name << "\n";
    }
    std::string lines = out.str();
    return lines.empty() ? "  (no selected test case)\n" : lines;
}

}  // namespace

int watchRun(const sp<IOstrel>& service, const Options& options) {
    bool tty = isatty(STDOUT_FILENO) && !options.json;
    std::string shown;
    int shownLines = 0;
    for (;;) {
        auto state = service->getState();
        if (!state.isOk()) {
            std::cerr << "ostrelctl: watch: getState failed: " << state.description() << "\n";
            return kTransport;
        }
        std::string plan, log;
        auto ret = service->getTest([&](const hidl_string& t, const hidl_string& l) {
            plan.assign(t.c_str(), t.size());
            log.assign(l.c_str(), l.size());
        });
        if (!ret.isOk()) {
            std::cerr << "ostrelctl: watch: getTest failed: " << ret.description() << "\n";
            return kTransport;
        }
        if (options.showLog) std::cerr << log;
        OstrelState value = state;
        std::string block;
        if (options.json) {
            rapidjson::Document doc;
            bool isJson = vendor::brevane::hardware::ostrel::core::parseJsonText(
                    doc, plan.data(), plan.size());
            block = "{\"method\":\"watch\",\"state\":" + jsonString(stateName(value)) +
                    ",\"test\":" + (isJson ? plan : jsonString(plan)) + "}\n";
        } else {
            block = "state: " + stateName(value) + "\n" + progressLines(plan);
        }
        if (block != shown) {
            if (tty && shownLines > 0) std::cout << "\033[" << shownLines << "A\033[J";
            std::cout << block << std::flush;
            shown = block;
            shownLines = 0;
            for (char c : block) shownLines += c == '\n';
        }
        if (value != OstrelState::RUNNING) return kOk;
        std::this_thread::sleep_for(std::chrono::duration<double>(options.interval));
    }
}

}  // namespace ostrelctl
