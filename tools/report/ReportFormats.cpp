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
constexpr size_t kNameColumn = 40;

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

// "N pass, N fail, N error, N aborted, N unknown" of the test cases left out.
std::string leftOutCounts(const RunReport& report) {
    std::string out;
    for (Verdict v : kVerdictOrder) {
        out += (out.empty() ? "" : ", ") + std::to_string(report.leftOut[static_cast<int>(v)]) + " " +
               verdictName(v);
    }
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
        // LAVA makes a folder of each name: never "", "." or "..".
        if (safe.find_first_not_of('.') == std::string::npos) safe = "testcase" + safe;
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

void writeLines(rapidjson::PrettyWriter<rapidjson::StringBuffer>& w,
                const std::vector<std::string>& lines) {
    w.StartArray();
    for (const auto& line : lines) writeClean(w, line);
    w.EndArray();
}

// The characters |text| takes on a terminal (one per character: its UTF-8 lead bytes).
size_t columns(const std::string& text) {
    size_t n = 0;
    for (unsigned char c : text) n += (c & 0xC0) != 0x80;
    return n;
}

// "executor: 2 start(s): 1) exit 0 after 1800 s, 2) SIGKILL after 20 s": each
// start's end and how long it ran. One executor runs every selected test case,
// so these are the only durations below the run's.
std::string executorLine(const RunFacts& run) {
    std::string out = "executor: " + std::to_string(run.executorStarts) + " start(s):";
    for (size_t i = 0; i < run.executorEnds.size() && i < kExecutorsShown; i++) {
        int64_t seconds = i < run.executorSeconds.size() ? run.executorSeconds[i] : -1;
        out += std::string(i ? ", " : " ") + std::to_string(i + 1) + ") " +
               (run.executorEnds[i].empty() ? "no end seen" : oneLine(run.executorEnds[i])) +
               (seconds >= 0 ? " after " + std::to_string(seconds) + " s" : "");
    }
    if (run.executorStarts > kExecutorsShown) out += ", ...";
    return out + "\n";
}

}  // namespace

std::string leftOutLine(const RunReport& report) {
    return std::to_string(leftOutCount(report)) + " more selected test case(s) left out of this report (" +
           leftOutCounts(report) + "); the counts cover them";
}

uint64_t linesLeftOut(const RunReport& report) {
    return report.crashLineCount - report.crashLines.size();
}

// One line on how the run went, from its record.
std::string runLine(const RunReport& report) {
    const RunFacts& run = report.run;
    if (!run.present) {
        return "run: no run record " + oneLine(run.recordPath) +
               " beside the archive (an older build, or it was not copied): verdicts from the plan's "
               "counters alone\n";
    }
    std::string cause = run.endCause.empty() ? "not ended" :
                        run.endCause == kCauseRunAbort ? "aborted (runAbort)" :
                        run.endCause == kCauseRunFinished ? "finished by a client (runFinished)" :
                        "the executor ended by itself";
    std::string out = "run: started " + oneLine(run.start) + ", " + cause +
                      (run.duration >= 0 ? " after " + std::to_string(run.duration) + " s" : "") +
                      "; executor starts " + std::to_string(run.executorStarts) + ", boots " +
                      std::to_string(run.bootCount);
    if (run.unplannedBoots > 0) out += " (" + std::to_string(run.unplannedBoots) + " unplanned)";
    if (!run.unconfirmed.empty()) {
        std::string steps;
        for (const std::string& step : run.unconfirmed) steps += (steps.empty() ? "" : ", ") + oneLine(step);
        out += "; not confirmed by the plan after a restart, so not taken for done: " + steps;
    }
    return out + "\n";
}

std::string reportText(const RunReport& report) {
    std::string out = "Ostrel run " + oneLine(report.stamp) + " (" + oneLine(report.archive) + ")\n" +
                      runLine(report);
    for (const RunFinding& f : report.findings) out += "run " + std::string(verdictName(f.verdict)) + ": " + oneLine(f.reason) + "\n";
    if (!report.run.configurationNames.empty() || !report.run.configuration.empty()) {
        out += "configuration: " + oneLine(configurationText(report.run)) + "\n";
    }
    if (!report.run.executorEnds.empty()) out += executorLine(report.run);
    // A row per test case, the crash history last; the reason in the last column,
    // after the test cases padded to the widest (up to kNameColumn characters).
    struct Row {
        Verdict verdict;
        const char* kind;
        std::string reached, target, what, reason;
    };
    std::vector<Row> rows;
    for (const auto& c : report.cases) {
        rows.push_back({c.verdict, kindName(c.kind), c.counted ? amount(c, c.reached) : "-", amount(c, c.target),
                        oneLine(c.name) + " [" + oneLine(c.command) + "]", oneLine(c.reason)});
    }
    rows.push_back({historyVerdict(report), "lines", std::to_string(report.crashLineCount), "0", kHistoryName,
                    oneLine(historyReason(report))});
    size_t width = std::string("TEST CASE [COMMAND]").size();
    for (const Row& r : rows) width = std::max(width, std::min(kNameColumn, columns(r.what)));
    auto line = [&](const char* verdict, const char* kind, const std::string& reached, const std::string& target,
                    const std::string& what, const std::string& reason) {
        char head[64];
        snprintf(head, sizeof(head), "%-8s %-7s %9s %9s  ", verdict, kind, reached.c_str(), target.c_str());
        size_t pad = width > columns(what) ? width - columns(what) : 0;
        return head + what + std::string(pad, ' ') + "  " + reason + "\n";
    };
    out += line("VERDICT", "KIND", "REACHED", "TARGET", "TEST CASE [COMMAND]", "REASON");
    for (size_t i = 0; i + 1 < rows.size(); i++) {
        const Row& r = rows[i];
        out += line(verdictName(r.verdict), r.kind, r.reached, r.target, r.what, r.reason);
    }
    if (leftOutCount(report) > 0) out += "...      " + leftOutLine(report) + "\n";
    const Row& history = rows.back();
    out += line(verdictName(history.verdict), history.kind, history.reached, history.target, history.what,
                history.reason);
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
    // The verdict comes last, after everything that explains it.
    Verdict verdict = runVerdict(report);
    if (verdict != Verdict::Pass) out += "why: " + oneLine(runReason(report)) + "\n";
    std::string counts;
    for (Verdict v : kVerdictOrder) {
        counts += (counts.empty() ? "" : ", ") + std::to_string(countOf(report, v)) + " " + verdictName(v);
    }
    return out + "result: " + verdictName(verdict) + " (" + counts + ")\n";
}

std::string reportJson(const RunReport& report) {
    rapidjson::StringBuffer buffer;
    rapidjson::PrettyWriter<rapidjson::StringBuffer> w(buffer);
    w.SetIndent(' ', 2);
    w.StartObject();
    w.Key("archive"); writeClean(w, report.archive);
    w.Key("stamp"); writeClean(w, report.stamp);
    w.Key("verdict"); w.String(verdictName(runVerdict(report)));
    w.Key("reason"); writeClean(w, runReason(report));
    w.Key("device"); writeClean(w, deviceOf(report));
    w.Key("counts");
    w.StartObject();
    for (Verdict v : kVerdictOrder) {
        w.Key(verdictName(v)); w.Uint64(countOf(report, v));
    }
    w.EndObject();
    w.Key("findings");
    w.StartArray();
    for (const RunFinding& f : report.findings) {
        w.StartObject();
        w.Key("verdict"); w.String(verdictName(f.verdict));
        w.Key("name"); writeClean(w, f.name);
        w.Key("reason"); writeClean(w, f.reason);
        w.EndObject();
    }
    w.EndArray();
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
    for (Verdict v : kVerdictOrder) {
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
    w.Key("reason"); writeClean(w, historyReason(report));
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
    w.Key("record_path"); writeClean(w, run.recordPath);
    w.Key("run_id"); writeClean(w, run.runId);
    w.Key("start"); writeClean(w, run.start);
    w.Key("end"); writeClean(w, run.end);
    w.Key("duration"); run.duration >= 0 ? w.Int64(run.duration) : w.Null();
    w.Key("end_cause"); writeClean(w, run.endCause);
    w.Key("error"); writeClean(w, run.error);
    w.Key("plan_sha256"); writeClean(w, run.planDigest);
    w.Key("configuration"); writeClean(w, run.configuration);
    w.Key("configuration_names"); writeClean(w, run.configurationNames);
    w.Key("executor_starts"); w.Uint64(run.executorStarts);
    w.Key("executor_ends"); writeLines(w, run.executorEnds);
    w.Key("executor_seconds");
    w.StartArray();
    for (int64_t seconds : run.executorSeconds) seconds >= 0 ? w.Int64(seconds) : w.Null();
    w.EndArray();
    w.Key("boot_count"); w.Uint64(run.bootCount);
    w.Key("unplanned_boots"); w.Uint64(run.unplannedBoots);
    w.Key("unconfirmed"); writeLines(w, run.unconfirmed);
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

// One test set per run; the crash history keeps its name (a test case whose name
// cleans to it gets a suffix); a measurement is what was reached, and for the
// "run" test case the run's duration.
std::vector<std::vector<std::string>> lavaCalls(const RunReport& report) {
    LavaNames names;
    // The report's own names first: a test case named like one gets a suffix.
    std::string historyName = names.make(kHistoryName);
    std::string leftOutName = names.make("left_out");
    std::string runName = names.make("run");
    std::vector<std::string> findingNames;
    for (const RunFinding& f : report.findings) findingNames.push_back(names.make(f.name));
    std::vector<std::vector<std::string>> calls;
    calls.push_back({"lava-test-set", "start", names.make(resultName(report.stamp))});
    auto call = [&](const std::string& name, Verdict v, int64_t value, const char* units) {
        std::vector<std::string> words = {"lava-test-case", name, "--result", lavaResult(v)};
        if (units != nullptr) {
            words.insert(words.end(), {"--measurement", std::to_string(value), "--units", units});
        }
        calls.push_back(std::move(words));
    };
    for (const auto& c : report.cases) {
        call(names.make(c.name), c.verdict, c.reached, c.counted ? unitName(c.kind) : nullptr);
    }
    if (leftOutCount(report) > 0) {
        call(leftOutName, leftOutVerdict(report), static_cast<int64_t>(leftOutCount(report)), "testcases");
    }
    for (size_t i = 0; i < report.findings.size(); i++) call(findingNames[i], report.findings[i].verdict, 0, nullptr);
    call(historyName, historyVerdict(report), static_cast<int64_t>(report.crashLineCount), "lines");
    // The run as a whole: its verdict, and its duration when the record tells it.
    call(runName, runVerdict(report), report.run.duration, report.run.duration >= 0 ? "seconds" : nullptr);
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
