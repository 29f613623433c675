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
#include "Report.h"

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

// A name on one line: every control character, line ends included, and broken
// UTF-8 become U+FFFD, as in a report.
std::string oneLine(const char* text) {
    return ostrel_report::cleanText(text);
}

std::string hoursText(int seconds) {
    char buf[32];
    snprintf(buf, sizeof(buf), "%.2f h", seconds / 3600.0);
    return buf;
}

// One line per selected test case of |plan| (a note when there is none), and
// whether every test case the planner counts has reached its target.
std::string progressLines(const std::string& plan, bool* allReached) {
    *allReached = false;
    rapidjson::Document doc;
    if (!core::parseJsonText(doc, plan.data(), plan.size()) || !doc.IsObject()) {
        return "  (no plan available)\n";
    }
    auto cases = doc.FindMember(core::plankey::kTestcases);
    if (cases == doc.MemberEnd() || !cases->value.IsArray()) return "  (plan has no test cases)\n";
    std::ostringstream out;
    int index = 0, counted = 0, reached = 0;
    for (const auto& tc : cases->value.GetArray()) {
        int i = index++;
        if (!tc.IsObject()) continue;
        core::TestcaseRecord record = core::readTestcase(tc);
        if (!record.isSelect) continue;
        std::string name = record.name ? oneLine(record.name) : "test case " + std::to_string(i);
        int cur = core::currentOf(record), target = core::targetOf(record);
        core::Counting counting = core::countingOf(record);
        if (counting == core::Counting::ByExecutor) {
            out << "  [" << std::string(kBarWidth, '-') << "]    -  " << target
                << (target == 1 ? " round" : " rounds") << ", run by the executor  " << name << "\n";
            continue;
        }
        counted++;
        reached += cur >= target;
        std::string amount = counting == core::Counting::ByTime
                                     ? hoursText(cur) + " of " + hoursText(target) +
                                               (cur < target ? ", " + hoursText(target - cur) + " left" : "")
                                     : std::to_string(cur) + " of " + std::to_string(target) + " boots";
        out << "  " << bar(cur, target) << "  " << amount << "  " << name << "\n";
    }
    *allReached = counted > 0 && reached == counted;
    std::string lines = out.str();
    return lines.empty() ? "  (no selected test case)\n" : lines;
}

// The local time of day, for the line of each update.
std::string clockNow() {
    time_t now = time(nullptr);
    struct tm tm;
    char text[16] = "";
    if (localtime_r(&now, &tm) != nullptr) strftime(text, sizeof(text), "%H:%M:%S", &tm);
    return text;
}

// The service again after it went away (a reboot, a restart), within |seconds|.
sp<IOstrel> reconnect(double seconds) {
    auto until = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    do {
        sp<IOstrel> service = IOstrel::getService("default");
        if (service != nullptr && service->getState().isOk()) return service;
        std::this_thread::sleep_for(std::chrono::milliseconds(500));
    } while (std::chrono::steady_clock::now() < until);
    return nullptr;
}

}  // namespace

// Exit 0 once the run has left RUNNING or is found ended (COMPLETING), 1 when
// there is no run (IDLE, PREPARING), 3 when the service is gone for longer than
// the reconnect time.
ExitStatus watchCommand(const sp<IOstrel>& first, const std::vector<std::string>&,
                        const Options& options) {
    bool tty = isatty(STDOUT_FILENO) && !options.json;
    sp<IOstrel> service = first;
    std::string shown;
    int shownLines = 0;
    bool sawRun = false;
    auto start = std::chrono::steady_clock::now();
    for (;;) {
        auto state = service->getState();
        std::string plan, log;
        bool ok = state.isOk() && service->getTest([&](const hidl_string& t, const hidl_string& l) {
                                          plan.assign(t.c_str(), t.size());
                                          log.assign(l.c_str(), l.size());
                                      }).isOk();
        if (!ok) {
            std::cerr << "ostrelctl: watch: the service went away; waiting up to " << options.reconnect
                      << " s for it to come back\n";
            service = reconnect(options.reconnect);
            if (service == nullptr) {
                std::cerr << "ostrelctl: watch: the service did not come back\n";
                return kTransport;
            }
            shown.clear();
            shownLines = 0;
            continue;
        }
        printLog(log, options);
        OstrelState value = state;
        sawRun = sawRun || value == OstrelState::RUNNING;
        std::string block;
        if (options.json) {
            block = watchJson(value, plan);
        } else {
            bool allReached = false;
            std::string lines = progressLines(plan, &allReached);
            block = "state: " + stateName(value) + "\n" + lines;
            if (allReached && value == OstrelState::RUNNING) {
                block += "  every counted target is reached: the run ends when the executor ends "
                         "(seen at the next tick), or on run-finished or run-abort\n";
            }
        }
        if (block != shown) {
            if (tty && shownLines > 0) std::cout << "\033[" << shownLines << "A\033[J";
            int watched = static_cast<int>(std::chrono::duration<double>(
                                                   std::chrono::steady_clock::now() - start).count());
            std::string stamp = options.json ? "" : "at " + clockNow() + ", watched " +
                                                            std::to_string(watched) + " s\n";
            std::cout << stamp << block << std::flush;
            shown = block;
            shownLines = 0;
            for (char c : stamp + block) shownLines += c == '\n';
        }
        // A run that ended before the watch began is found in COMPLETING: ended.
        if (value != OstrelState::RUNNING) return sawRun || value == OstrelState::COMPLETING ? kOk : kRefused;
        std::this_thread::sleep_for(std::chrono::duration<double>(options.interval));
    }
}

}  // namespace ostrelctl
