// ostrelctl watch: the planner's state and one progress bar per selected test
// case (rounds or hours, from the plan's counters), with an estimate of the end
// of each time-based one and the run's time so far, until the run leaves
// RUNNING. On a terminal the bars are redrawn in place; otherwise, and always
// with --plain, a new block is printed whenever something changed.
#include <rapidjson/document.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <iostream>
#include <map>
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
// A tick every 10 seconds counts 10 seconds of each time-based test case: the
// seconds left of one are also the seconds until it reaches its target.
constexpr double kCountedPerSecond = 1.0;

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

// "40 s", "12 min 5 s", "3 h 20 min", "4 d 2 h"; a part of 0 is left out ("1 h").
std::string durationText(long seconds) {
    struct Unit {
        long seconds;
        const char* name;
    };
    static const Unit kUnits[] = {{86400, "d"}, {3600, "h"}, {60, "min"}, {1, "s"}};
    // The two largest units of the span: days and hours from 2 days on, hours and
    // minutes from an hour, minutes and seconds below.
    int u = seconds >= 2 * 86400 ? 0 : seconds >= 3600 ? 1 : seconds >= 60 ? 2 : 3;
    std::string text = std::to_string(seconds / kUnits[u].seconds) + " " + kUnits[u].name;
    long rest = u < 3 ? seconds % kUnits[u].seconds / kUnits[u + 1].seconds : 0;
    if (rest > 0) text += " " + std::to_string(rest) + " " + kUnits[u + 1].name;
    return text;
}

// The local time |when| as "14:05" on the day |now|, else "2025-03-04 14:05".
std::string clockText(time_t when, time_t now) {
    struct tm at, today;
    char text[32] = "";
    if (localtime_r(&when, &at) == nullptr || localtime_r(&now, &today) == nullptr) return "?";
    bool sameDay = at.tm_year == today.tm_year && at.tm_yday == today.tm_yday;
    strftime(text, sizeof(text), sameDay ? "%H:%M" : "%Y-%m-%d %H:%M", &at);
    return text;
}

// What watch remembers between updates: when it first saw each time-based test
// case's counter at its current value (the end it reaches is estimated from
// then, so the estimate moves only when a tick counts), and the run's time.
struct Progress {
    struct Seen {
        int value;
        time_t at;
    };
    std::map<int, Seen> seen;  // by the test case's index in the plan
    int counted = 0;           // the largest time counted of a time-based test case
    bool counting = false;     // one of them is still short of its target
};

// "      about 1 h 20 min left, ends about 14:05": the end of a time-based test
// case |i| that has |left| seconds to count, seen now at |now|.
std::string estimateLine(Progress* progress, int i, int current, int left, time_t now) {
    auto seen = progress->seen.find(i);
    if (seen == progress->seen.end() || seen->second.value != current) {
        seen = progress->seen.insert_or_assign(i, Progress::Seen{current, now}).first;
    }
    long seconds = static_cast<long>(left / kCountedPerSecond + 0.5);
    long minutes = (seconds + 59) / 60;
    return "      about " + durationText(minutes * 60) + " left, ends about " +
           clockText(seen->second.at + seconds, now) + "\n";
}

// One line per selected test case of |plan| (a note when there is none), in a
// live run each time-based one short of its target followed by its estimate,
// and whether every test case the planner counts has reached its target.
std::string progressLines(const std::string& plan, bool running, bool* allReached, Progress* progress,
                          time_t now) {
    *allReached = false;
    progress->counted = 0;
    progress->counting = false;
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
        if (counting == core::Counting::ByTime) {
            progress->counted = std::max(progress->counted, cur);
            progress->counting = progress->counting || cur < target;
            if (running && cur < target) out << estimateLine(progress, i, cur, target - cur, now);
        }
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
    bool plain = options.plain;
    // A LAVA test shell is a terminal too: --plain keeps its log free of cursor codes.
    bool tty = isatty(STDOUT_FILENO) && !options.json && !plain;
    sp<IOstrel> service = first;
    std::string shown;
    int shownLines = 0;
    bool sawRun = false;
    auto start = std::chrono::steady_clock::now();
    Progress progress;
    // The run's time: what the planner had counted when the run was first seen,
    // and the watch's own clock from then on (a time-based test case counts from
    // the start of the run, but not while the device is off).
    int countedFirst = -1;
    bool runTimeKnown = false;
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
            std::string lines = progressLines(plan, value == OstrelState::RUNNING, &allReached, &progress,
                                              time(nullptr));
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
            std::string stamp = "at " + clockNow() + ", watched " + std::to_string(watched) + " s";
            if (value == OstrelState::RUNNING || value == OstrelState::COMPLETING) {
                if (countedFirst < 0) {
                    countedFirst = progress.counted;
                    runTimeKnown = progress.counting;
                }
                long runTime = std::max<long>(progress.counted, countedFirst + watched);
                stamp += std::string(", run time ") + (runTimeKnown ? "" : "at least ") +
                         durationText(runTime);
            }
            stamp = options.json ? "" : stamp + "\n";
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
