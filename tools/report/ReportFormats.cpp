// The writing half of a report: the run's model as a table for a person, one
// JSON document, JUnit XML or LAVA test-case lines.
#include <rapidjson/prettywriter.h>
#include <rapidjson/stringbuffer.h>

#include <cstdio>
#include <unordered_map>
#include <unordered_set>

#include "Fleet.h"
#include "Report.h"

namespace ostrel_report {

namespace {

constexpr const char* kHistoryName = "crash history";
constexpr size_t kLavaNameMax = 100;

// One cell of a one-line row: no control character, line ends included.
std::string oneLine(const std::string& text) {
    return cleanText(text);
}

std::string hours(int64_t seconds) {
    char buf[32];
    snprintf(buf, sizeof(buf), "%.2f h", static_cast<double>(seconds) / 3600.0);
    return buf;
}

std::string amount(const CaseReport& c, int64_t value) {
    return c.kind == Kind::ByTime ? hours(value) : std::to_string(value);
}

// "N pass, N fail, N error, N unknown" of the test cases left out.
std::string leftOutCounts(const RunReport& report) {
    std::string out;
    for (Verdict v : {Verdict::Pass, Verdict::Fail, Verdict::Error, Verdict::Unknown}) {
        out += (out.empty() ? "" : ", ") + std::to_string(report.leftOut[static_cast<int>(v)]) + " " +
               verdictName(v);
    }
    return out;
}

std::string leftOutLine(const RunReport& report) {
    return std::to_string(leftOutCount(report)) + " more selected test case(s) left out of this report (" +
           leftOutCounts(report) + "); the counts cover them";
}

uint64_t linesLeftOut(const RunReport& report) {
    return report.crashLineCount - report.crashLines.size();
}

std::string attr(const char* name, const std::string& value) {
    return std::string(" ") + name + "=\"" + xmlEscape(value, true) + "\"";
}

// 20261121_103000 as 2026-11-21T10:30:00; "" for a stamp of another form.
std::string isoTime(const std::string& stamp) {
    if (stamp.size() != 15 || stamp[8] != '_') return "";
    for (size_t i = 0; i < stamp.size(); i++) {
        if (i != 8 && (stamp[i] < '0' || stamp[i] > '9')) return "";
    }
    return stamp.substr(0, 4) + "-" + stamp.substr(4, 2) + "-" + stamp.substr(6, 2) + "T" +
           stamp.substr(9, 2) + ":" + stamp.substr(11, 2) + ":" + stamp.substr(13, 2);
}

std::string joinLines(const std::vector<std::string>& lines) {
    std::string out;
    for (const auto& line : lines) out += line + "\n";
    return out;
}

// LAVA's test-case names: letters, digits, '.', '-' and '_' only, at most
// kLavaNameMax bytes, unique within the run. Each base name remembers the next
// number to try, so that n names make n tries and a few more, not n * n.
class LavaNames {
  public:
    std::string make(const std::string& name) {
        std::string safe;
        for (char c : name) {
            bool ok = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                      c == '.' || c == '-' || c == '_';
            safe += ok ? c : '_';
            if (safe.size() == kLavaNameMax) break;
        }
        if (safe.empty()) safe = "testcase";
        std::string unique = safe;
        if (taken_.count(unique) != 0) {
            uint64_t& n = next_.emplace(safe, 2).first->second;
            do {
                std::string suffix = "_" + std::to_string(n++);
                unique = safe.substr(0, kLavaNameMax - suffix.size()) + suffix;
            } while (taken_.count(unique) != 0);
        }
        taken_.insert(unique);
        return unique;
    }

  private:
    std::unordered_set<std::string> taken_;
    std::unordered_map<std::string, uint64_t> next_;
};

// One line on how the run went, from its record.
std::string runLine(const RunReport& report) {
    const RunFacts& run = report.run;
    if (!run.present) {
        return "run: no run record beside the archive (an older build): verdicts from the plan's "
               "counters alone\n";
    }
    std::string cause = run.endCause.empty() ? "not ended" :
                        run.endCause == "runAbort" ? "aborted (runAbort)" :
                        run.endCause == "runFinished" ? "finished by a client (runFinished)" :
                        "the executor ended by itself";
    std::string out = "run: started " + oneLine(run.start) + ", " + cause +
                      (run.duration >= 0 ? " after " + std::to_string(run.duration) + " s" : "") +
                      "; executor starts " + std::to_string(run.executorStarts) + ", boots " +
                      std::to_string(run.bootCount);
    if (!run.error.empty()) out += "; error: the executor ended with " + oneLine(run.error);
    return out + "\n";
}

void writeLines(rapidjson::PrettyWriter<rapidjson::StringBuffer>& w,
                const std::vector<std::string>& lines) {
    w.StartArray();
    for (const auto& line : lines) writeClean(w, line);
    w.EndArray();
}

}  // namespace

std::string xmlEscape(const std::string& text, bool attribute) {
    std::string out;
    // Line ends are kept in an element's text; an attribute holds one line.
    for (char c : cleanText(text, !attribute)) {
        switch (c) {
            case '&': out += "&amp;"; break;
            case '<': out += "&lt;"; break;
            case '>': out += "&gt;"; break;
            case '"': out += attribute ? "&quot;" : "\""; break;
            case '\'': out += attribute ? "&apos;" : "'"; break;
            default: out += c;
        }
    }
    return out;
}

std::string reportText(const RunReport& report) {
    std::string out = "Ostrel run " + oneLine(report.stamp) + " (" + oneLine(report.archive) +
                      "): " + verdictName(overallVerdict(report)) + "\n" + runLine(report);
    char row[160];
    snprintf(row, sizeof(row), "%-8s %-7s %9s %9s  %s\n", "VERDICT", "KIND", "REACHED", "TARGET",
             "TEST CASE [COMMAND]");
    out += row;
    for (const auto& c : report.cases) {
        std::string reached = c.counted ? amount(c, c.reached) : "-";
        std::string what = oneLine(c.name) + " [" + oneLine(c.command) + "]";
        if (!c.counted) {
            what += " (" + std::to_string(c.asked) + (c.asked == 1 ? " round" : " rounds") +
                    " asked of the executor)";
        }
        snprintf(row, sizeof(row), "%-8s %-7s %9s %9s  ", verdictName(c.verdict), kindName(c.kind),
                 reached.c_str(), amount(c, c.target).c_str());
        out += row + what + "\n";
    }
    if (leftOutCount(report) > 0) out += "...      " + leftOutLine(report) + "\n";
    snprintf(row, sizeof(row), "%-8s %-7s %9llu %9d  %s\n", verdictName(historyVerdict(report)),
             "lines", static_cast<unsigned long long>(report.crashLineCount), 0, kHistoryName);
    out += row;
    out += "\ncrash history: " + std::to_string(report.crashLineCount) + " line(s)" +
           (report.historySource.empty() ? "" : " from " + oneLine(report.historySource)) + "\n";
    for (const auto& line : report.crashLines) out += "  " + oneLine(line) + "\n";
    if (linesLeftOut(report) > 0) {
        out += "  ... " + std::to_string(linesLeftOut(report)) + " more line(s) left out of this report\n";
    }
    if (!report.logPresent) {
        out += "executor log: none in the archive\n";
    } else {
        out += "executor log: " + std::to_string(report.logSize) + " bytes, last " +
               std::to_string(report.logTail.size()) + " line(s):\n";
        for (const auto& line : report.logTail) out += "  " + oneLine(line) + "\n";
    }
    out += "result: " + std::string(verdictName(overallVerdict(report))) + " (" +
           std::to_string(countOf(report, Verdict::Pass)) + " pass, " +
           std::to_string(countOf(report, Verdict::Fail)) + " fail, " +
           std::to_string(countOf(report, Verdict::Error)) + " error, " +
           std::to_string(countOf(report, Verdict::Unknown)) + " unknown)\n";
    return out;
}

std::string reportJson(const RunReport& report) {
    rapidjson::StringBuffer buffer;
    rapidjson::PrettyWriter<rapidjson::StringBuffer> w(buffer);
    w.SetIndent(' ', 2);
    w.StartObject();
    w.Key("archive"); writeClean(w, report.archive);
    w.Key("stamp"); writeClean(w, report.stamp);
    w.Key("verdict"); w.String(verdictName(overallVerdict(report)));
    w.Key("counts");
    w.StartObject();
    for (Verdict v : {Verdict::Pass, Verdict::Fail, Verdict::Error, Verdict::Unknown}) {
        w.Key(verdictName(v)); w.Uint64(countOf(report, v));
    }
    w.EndObject();
    w.Key("testcases");
    w.StartArray();
    for (const auto& c : report.cases) {
        w.StartObject();
        w.Key("name"); writeClean(w, c.name);
        w.Key("id"); writeClean(w, c.id);
        w.Key("command"); writeClean(w, c.command);
        w.Key("kind"); w.String(kindName(c.kind));
        w.Key("unit"); w.String(unitName(c.kind));
        w.Key("target"); w.Int64(c.target);
        w.Key("reached"); c.counted ? w.Int64(c.reached) : w.Null();
        w.Key("asked"); c.counted ? w.Null() : w.Int64(c.asked);
        w.Key("verdict"); w.String(verdictName(c.verdict));
        w.Key("reason"); writeClean(w, c.reason);
        w.EndObject();
    }
    w.EndArray();
    w.Key("testcases_left_out");
    w.StartObject();
    w.Key("count"); w.Uint64(leftOutCount(report));
    for (Verdict v : {Verdict::Pass, Verdict::Fail, Verdict::Error, Verdict::Unknown}) {
        w.Key(verdictName(v)); w.Uint64(report.leftOut[static_cast<int>(v)]);
    }
    w.EndObject();
    w.Key("crash_history");
    w.StartObject();
    w.Key("source"); writeClean(w, report.historySource);
    w.Key("count"); w.Uint64(report.crashLineCount);
    w.Key("lines"); writeLines(w, report.crashLines);
    w.Key("lines_left_out"); w.Uint64(linesLeftOut(report));
    w.Key("verdict"); w.String(verdictName(historyVerdict(report)));
    w.EndObject();
    w.Key("executor_log");
    w.StartObject();
    w.Key("present"); w.Bool(report.logPresent);
    w.Key("size"); w.Uint64(report.logSize);
    w.Key("tail"); writeLines(w, report.logTail);
    w.EndObject();
    const RunFacts& run = report.run;
    w.Key("run");
    w.StartObject();
    w.Key("record"); w.Bool(run.present);
    w.Key("start"); writeClean(w, run.start);
    w.Key("end"); writeClean(w, run.end);
    w.Key("duration"); run.duration >= 0 ? w.Int64(run.duration) : w.Null();
    w.Key("end_cause"); writeClean(w, run.endCause);
    w.Key("error"); writeClean(w, run.error);
    w.Key("plan_sha256"); writeClean(w, run.planDigest);
    w.Key("configuration"); writeClean(w, run.configuration);
    w.Key("executor_starts"); w.Uint64(run.executorStarts);
    w.Key("executor_ends"); writeLines(w, run.executorEnds);
    w.Key("boot_count"); w.Uint64(run.bootCount);
    w.Key("boots"); writeLines(w, run.boots);
    w.Key("device");
    w.StartObject();
    for (const auto& [key, value] : run.device) {
        writeClean(w, key);  // a key is written as a string
        writeClean(w, value);
    }
    w.EndObject();
    w.EndObject();
    w.EndObject();
    return std::string(buffer.GetString(), buffer.GetSize()) + "\n";
}

// A test case's classname is the same in every run (its kind); the run's stamp is
// in the suite's name and its properties.
std::string junitSuite(const RunReport& report) {
    const RunFacts& run = report.run;
    // The counts are of the elements: test cases left out stand as one, which
    // fails when any of them fails or errs.
    bool leftOutFailed = report.leftOut[static_cast<int>(Verdict::Fail)] +
                         report.leftOut[static_cast<int>(Verdict::Error)] > 0;
    auto shown = [&](Verdict v) {
        uint64_t n = countOf(report, v) - report.leftOut[static_cast<int>(v)];
        return std::to_string(n + (v == Verdict::Fail && leftOutFailed ? 1 : 0));
    };
    size_t tests = report.cases.size() + 1 + (leftOutCount(report) > 0 ? 1 : 0);
    std::string counts = attr("tests", std::to_string(tests)) + attr("failures", shown(Verdict::Fail)) +
                         attr("errors", shown(Verdict::Error)) + attr("skipped", shown(Verdict::Unknown));
    std::string duration = std::to_string(run.duration >= 0 ? run.duration : 0);
    std::string out;
    std::string when = isoTime(report.stamp);
    out += "  <testsuite" + attr("name", "QAV" + report.stamp) + counts + attr("time", duration) +
           (when.empty() ? "" : attr("timestamp", when)) + ">\n    <properties>\n";
    auto property = [&](const std::string& name, const std::string& value) {
        out += "      <property" + attr("name", name) + attr("value", value) + "/>\n";
    };
    property("archive", report.archive);
    property("stamp", report.stamp);
    property("run_record", run.present ? "yes" : "no");
    if (run.present) {
        property("end_cause", run.endCause);
        property("plan_sha256", run.planDigest);
        property("configuration", run.configuration);
        for (const auto& [key, value] : run.device) property("device." + key, value);
    }
    out += "    </properties>\n";
    for (const auto& c : report.cases) {
        int64_t seconds = c.kind == Kind::ByTime ? c.reached : 0;
        out += "    <testcase" + attr("classname", std::string("ostrel.") + kindName(c.kind)) +
               attr("name", c.id) + attr("time", std::to_string(seconds)) + ">\n";
        if (c.verdict == Verdict::Fail) {
            out += "      <failure" + attr("message", c.reason) + attr("type", kindName(c.kind)) +
                   "/>\n";
        } else if (c.verdict == Verdict::Error) {
            out += "      <error" + attr("message", c.reason) + attr("type", run.error) + "/>\n";
        } else if (c.verdict == Verdict::Unknown) {
            out += "      <skipped" + attr("message", c.reason) + "/>\n";
        }
        out += "      <system-out>" + xmlEscape("command: " + c.command + "\n" + c.reason, false) +
               "</system-out>\n    </testcase>\n";
    }
    if (leftOutCount(report) > 0) {
        out += "    <testcase" + attr("classname", "ostrel.left_out") +
               attr("name", std::to_string(leftOutCount(report)) + " more test cases") + attr("time", "0") +
               ">\n";
        if (leftOutFailed) out += "      <failure" + attr("message", leftOutLine(report)) + attr("type", "left_out") + "/>\n";
        out += "      <system-out>" + xmlEscape(leftOutLine(report), false) + "</system-out>\n    </testcase>\n";
    }
    out += "    <testcase" + attr("classname", "ostrel.history") + attr("name", kHistoryName) +
           attr("time", "0") + ">\n";
    if (historyVerdict(report) == Verdict::Fail) {
        out += "      <failure" +
               attr("message", std::to_string(report.crashLineCount) +
                                       " crash-history line(s) collected during the run") +
               attr("type", "crash") + "/>\n";
    } else if (historyVerdict(report) == Verdict::Unknown) {
        out += "      <skipped" + attr("message", "no history copy beside the archive or in it") + "/>\n";
    }
    std::string leftOutLines = linesLeftOut(report) == 0 ? "" :
            "... " + std::to_string(linesLeftOut(report)) + " more line(s) left out of this report\n";
    out += "      <system-out>" + xmlEscape(joinLines(report.crashLines) + leftOutLines, false) +
           "</system-out>\n    </testcase>\n";
    out += "    <system-out>" +
           xmlEscape(runLine(report) + "executor log: " + std::to_string(report.logSize) +
                             " bytes, last lines:\n" + joinLines(report.logTail),
                     false) +
           "</system-out>\n  </testsuite>\n";
    return out;
}

std::string junitHead() {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<testsuites" + attr("name", "ostrel") + ">\n";
}

std::string junitTail() {
    return "</testsuites>\n";
}

std::string junitBadArchive(const BadArchive& bad) {
    return "  <testsuite" + attr("name", bad.archive) + attr("tests", "1") + attr("failures", "0") +
           attr("errors", "1") + ">\n    <testcase" + attr("classname", "ostrel.archive") +
           attr("name", bad.archive) + ">\n      <error" + attr("message", bad.reason) +
           attr("type", "unreadable") + "/>\n    </testcase>\n  </testsuite>\n";
}

std::string reportJunit(const RunReport& report) {
    return junitHead() + junitSuite(report) + junitTail();
}

// One test set per run; the crash history keeps its name (a test case whose name
// cleans to it gets a suffix); a measurement is always what was reached.
std::vector<std::vector<std::string>> lavaCalls(const RunReport& report) {
    LavaNames names;
    std::string historyName = names.make(kHistoryName);
    std::vector<std::vector<std::string>> calls;
    calls.push_back({"lava-test-set", "start", names.make("QAV" + report.stamp)});
    auto call = [&](const std::string& name, Verdict v, int64_t value, const char* units) {
        // LAVA has no "error": an error is a fail.
        std::vector<std::string> words = {"lava-test-case", name, "--result",
                                          v == Verdict::Error ? "fail" : verdictName(v)};
        if (units != nullptr) {
            words.insert(words.end(), {"--measurement", std::to_string(value), "--units", units});
        }
        calls.push_back(std::move(words));
    };
    for (const auto& c : report.cases) {
        call(names.make(c.name), c.verdict, c.reached, c.counted ? unitName(c.kind) : nullptr);
    }
    if (leftOutCount(report) > 0) {
        bool failed = report.leftOut[static_cast<int>(Verdict::Fail)] +
                      report.leftOut[static_cast<int>(Verdict::Error)] > 0;
        call(names.make("left_out"), failed ? Verdict::Fail : Verdict::Pass,
             static_cast<int64_t>(leftOutCount(report)), "testcases");
    }
    if (!report.run.error.empty()) call(names.make("executor " + report.run.error), Verdict::Fail, 0, nullptr);
    call(historyName, historyVerdict(report), static_cast<int64_t>(report.crashLineCount), "lines");
    calls.push_back({"lava-test-set", "stop"});
    return calls;
}

// Every word is a LAVA-safe name, a verdict, a number or a unit: joined by
// blanks, each line is the call it stands for.
std::string reportLava(const RunReport& report) {
    std::string out;
    for (const auto& words : lavaCalls(report)) {
        for (size_t i = 0; i < words.size(); i++) out += (i ? " " : "") + words[i];
        out += "\n";
    }
    return out;
}

}  // namespace ostrel_report
