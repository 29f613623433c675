// ostrelctl report, the writing half: the run's model as a table for a person,
// one JSON document, JUnit XML or LAVA test-case lines; and the command itself.
#include <rapidjson/prettywriter.h>
#include <rapidjson/stringbuffer.h>

#include <cstdio>
#include <iostream>
#include <set>

#include "Report.h"

namespace ostrelctl {

namespace {

constexpr const char* kUsageText = "usage: ostrelctl report [--format text|json|junit|lava] ARCHIVE";
constexpr const char* kHistoryName = "crash history";
constexpr size_t kLavaNameMax = 100;

// Tabs and line ends inside one cell of a one-line row become blanks.
std::string oneLine(const std::string& text) {
    std::string out = cleanText(text);
    for (char& c : out) {
        if (c == '\t' || c == '\r' || c == '\n') c = ' ';
    }
    return out;
}

std::string hours(int64_t seconds) {
    char buf[32];
    snprintf(buf, sizeof(buf), "%.2f h", static_cast<double>(seconds) / 3600.0);
    return buf;
}

std::string amount(const CaseReport& c, int64_t value) {
    return c.kind == Kind::Hours ? hours(value) : std::to_string(value);
}

int countOf(const RunReport& report, Verdict verdict) {
    int n = historyVerdict(report) == verdict ? 1 : 0;
    for (const auto& c : report.cases) n += c.verdict == verdict ? 1 : 0;
    return n;
}

std::string xmlEscape(const std::string& text, bool attribute) {
    std::string out;
    for (char c : cleanText(text)) {
        switch (c) {
            case '&': out += "&amp;"; break;
            case '<': out += "&lt;"; break;
            case '>': out += "&gt;"; break;
            case '"': out += attribute ? "&quot;" : "\""; break;
            case '\'': out += attribute ? "&apos;" : "'"; break;
            // Attribute values would turn these into blanks when read.
            case '\n': out += attribute ? "&#10;" : "\n"; break;
            case '\r': out += "&#13;"; break;
            case '\t': out += attribute ? "&#9;" : "\t"; break;
            default: out += c;
        }
    }
    return out;
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

// Letters, digits, '.', '-' and '_' only, at most kLavaNameMax bytes, unique.
std::string lavaName(const std::string& name, std::set<std::string>* taken) {
    std::string safe;
    for (char c : name) {
        bool ok = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                  c == '.' || c == '-' || c == '_';
        safe += ok ? c : '_';
    }
    if (safe.empty()) safe = "testcase";
    safe.resize(std::min(safe.size(), kLavaNameMax - 4));
    std::string unique = safe;
    for (int n = 2; taken->count(unique) != 0; n++) unique = safe + "_" + std::to_string(n);
    taken->insert(unique);
    return unique;
}

void writeString(rapidjson::PrettyWriter<rapidjson::StringBuffer>& w, const std::string& text) {
    std::string clean = cleanText(text);
    w.String(clean.data(), static_cast<rapidjson::SizeType>(clean.size()));
}

void writeLines(rapidjson::PrettyWriter<rapidjson::StringBuffer>& w,
                const std::vector<std::string>& lines) {
    w.StartArray();
    for (const auto& line : lines) writeString(w, line);
    w.EndArray();
}

}  // namespace

std::string reportText(const RunReport& report) {
    std::string out = "Ostrel run " + oneLine(report.stamp) + " (" + oneLine(report.archive) +
                      "): " + verdictName(overallVerdict(report)) + "\n";
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
    snprintf(row, sizeof(row), "%-8s %-7s %9zu %9d  %s\n", verdictName(historyVerdict(report)),
             "lines", report.crashLines.size(), 0, kHistoryName);
    out += row;
    out += "\ncrash history: " + std::to_string(report.crashLines.size()) + " line(s)" +
           (report.historySource.empty() ? "" : " from " + oneLine(report.historySource)) + "\n";
    for (const auto& line : report.crashLines) out += "  " + oneLine(line) + "\n";
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
           std::to_string(countOf(report, Verdict::Unknown)) + " unknown)\n";
    return out;
}

std::string reportJson(const RunReport& report) {
    rapidjson::StringBuffer buffer;
    rapidjson::PrettyWriter<rapidjson::StringBuffer> w(buffer);
    w.SetIndent(' ', 2);
    w.StartObject();
    w.Key("archive"); writeString(w, report.archive);
    w.Key("stamp"); writeString(w, report.stamp);
    w.Key("verdict"); w.String(verdictName(overallVerdict(report)));
    w.Key("counts");
    w.StartObject();
    for (Verdict v : {Verdict::Pass, Verdict::Fail, Verdict::Unknown}) {
        w.Key(verdictName(v)); w.Int(countOf(report, v));
    }
    w.EndObject();
    w.Key("testcases");
    w.StartArray();
    for (const auto& c : report.cases) {
        w.StartObject();
        w.Key("name"); writeString(w, c.name);
        w.Key("command"); writeString(w, c.command);
        w.Key("kind"); w.String(kindName(c.kind));
        w.Key("unit"); w.String(unitName(c.kind));
        w.Key("target"); w.Int64(c.target);
        w.Key("reached"); c.counted ? w.Int64(c.reached) : w.Null();
        w.Key("asked"); c.counted ? w.Null() : w.Int64(c.asked);
        w.Key("verdict"); w.String(verdictName(c.verdict));
        w.Key("reason"); writeString(w, c.reason);
        w.EndObject();
    }
    w.EndArray();
    w.Key("crash_history");
    w.StartObject();
    w.Key("source"); writeString(w, report.historySource);
    w.Key("count"); w.Uint64(report.crashLines.size());
    w.Key("lines"); writeLines(w, report.crashLines);
    w.Key("verdict"); w.String(verdictName(historyVerdict(report)));
    w.EndObject();
    w.Key("executor_log");
    w.StartObject();
    w.Key("present"); w.Bool(report.logPresent);
    w.Key("size"); w.Uint64(report.logSize);
    w.Key("tail"); writeLines(w, report.logTail);
    w.EndObject();
    w.EndObject();
    return std::string(buffer.GetString(), buffer.GetSize()) + "\n";
}

std::string reportJunit(const RunReport& report) {
    std::string classname = "ostrel.QAV" + report.stamp;
    int tests = static_cast<int>(report.cases.size()) + 1;
    std::string counts = attr("tests", std::to_string(tests)) +
                         attr("failures", std::to_string(countOf(report, Verdict::Fail))) +
                         attr("errors", "0") +
                         attr("skipped", std::to_string(countOf(report, Verdict::Unknown)));
    std::string out = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<testsuites" +
                      attr("name", "ostrel") + counts + ">\n";
    std::string when = isoTime(report.stamp);
    out += "  <testsuite" + attr("name", "QAV" + report.stamp) + counts +
           (when.empty() ? "" : attr("timestamp", when)) + ">\n";
    out += "    <properties>\n      <property" + attr("name", "archive") +
           attr("value", report.archive) + "/>\n    </properties>\n";
    for (const auto& c : report.cases) {
        out += "    <testcase" + attr("classname", classname) + attr("name", c.name) + ">\n";
        if (c.verdict == Verdict::Fail) {
            out += "      <failure" + attr("message", c.reason) + attr("type", kindName(c.kind)) +
                   "/>\n";
        } else if (c.verdict == Verdict::Unknown) {
            out += "      <skipped" + attr("message", c.reason) + "/>\n";
        }
        out += "      <system-out>" + xmlEscape("command: " + c.command + "\n" + c.reason, false) +
               "</system-out>\n    </testcase>\n";
    }
    out += "    <testcase" + attr("classname", classname) + attr("name", kHistoryName) + ">\n";
    if (historyVerdict(report) == Verdict::Fail) {
        out += "      <failure" +
               attr("message", std::to_string(report.crashLines.size()) +
                                       " crash-history line(s) collected during the run") +
               attr("type", "crash") + "/>\n";
    }
    out += "      <system-out>" + xmlEscape(joinLines(report.crashLines), false) +
           "</system-out>\n    </testcase>\n";
    out += "    <system-out>" +
           xmlEscape("executor log: " + std::to_string(report.logSize) + " bytes, last lines:\n" +
                             joinLines(report.logTail),
                     false) +
           "</system-out>\n  </testsuite>\n</testsuites>\n";
    return out;
}

std::string reportLava(const RunReport& report) {
    std::set<std::string> taken;
    std::string out;
    auto line = [&](const std::string& name, Verdict v, int64_t measurement, const char* units) {
        out += "lava-test-case " + lavaName(name, &taken) + " --result " + verdictName(v) +
               " --measurement " + std::to_string(measurement) + " --units " + units + "\n";
    };
    for (const auto& c : report.cases) {
        if (c.counted) {
            line(c.name, c.verdict, c.reached, unitName(c.kind));
        } else {
            line(c.name, c.verdict, c.asked, "rounds");
        }
    }
    line(kHistoryName, historyVerdict(report), static_cast<int64_t>(report.crashLines.size()),
         "lines");
    return out;
}

int runReport(const std::vector<std::string>& args, bool jsonDefault) {
    std::string format = jsonDefault ? "json" : "text";
    std::vector<std::string> files;
    for (size_t i = 1; i < args.size(); i++) {
        const std::string& arg = args[i];
        if (arg == "--format" && i + 1 < args.size()) {
            format = args[++i];
        } else if (arg.compare(0, 9, "--format=") == 0) {
            format = arg.substr(9);
        } else if (arg.size() > 1 && arg[0] == '-') {
            std::cerr << "ostrelctl: report: unknown option " << arg << "\n" << kUsageText << "\n";
            return kReportUnreadable;
        } else {
            files.push_back(arg);
        }
    }
    if (format != "text" && format != "json" && format != "junit" && format != "lava") {
        std::cerr << "ostrelctl: report: unknown format \"" << format << "\"\n" << kUsageText << "\n";
        return kReportUnreadable;
    }
    if (files.size() != 1) {
        std::cerr << "ostrelctl: report takes one ARCHIVE\n" << kUsageText << "\n";
        return kReportUnreadable;
    }
    RunReport report;
    std::string error;
    if (!readRunReport(files[0], &report, &error)) {
        std::cerr << "ostrelctl: " << files[0] << ": " << error << "\n";
        return kReportUnreadable;
    }
    if (format == "json") {
        std::cout << reportJson(report);
    } else if (format == "junit") {
        std::cout << reportJunit(report);
    } else if (format == "lava") {
        std::cout << reportLava(report);
    } else {
        std::cout << reportText(report);
    }
    std::cout.flush();
    return overallVerdict(report) == Verdict::Fail ? kReportFail : kReportPass;
}

}  // namespace ostrelctl
