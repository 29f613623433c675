// A report as JUnit XML, written through tinyxml2's printer: every name, value
// and text goes in as an attribute or text node, escaped by the library (after
// cleanText), never spliced into markup. A summary writes one <testsuite> per
// run as it reads them, so each suite is printed on its own at depth 1.
#include <tinyxml2.h>

#include <string>

#include "Fleet.h"
#include "Report.h"

namespace ostrel_report {

namespace {

constexpr const char* kHistoryName = "crash history";

// tinyxml2's printer, indenting by two blanks as the rest of the lab's files do.
class Printer : public tinyxml2::XMLPrinter {
  public:
    explicit Printer(int depth) : XMLPrinter(nullptr, false, depth) {}
    void attr(const char* name, const std::string& value) { PushAttribute(name, cleanText(value).c_str()); }
    void text(const std::string& value) { PushText(cleanText(value, true).c_str()); }
    // An element with text alone, on one line: <name>text</name>.
    void textElement(const char* name, const std::string& value) {
        OpenElement(name);
        text(value);
        CloseElement();
    }

  protected:
    void PrintSpace(int depth) override {
        for (int i = 0; i < depth; i++) Write("  ");
    }
};

// What |printer| wrote, ending in a line end (it ends none below depth 0).
std::string print(const Printer& printer) {
    std::string out(printer.CStr(), printer.CStrSize() > 0 ? printer.CStrSize() - 1 : 0);
    return out.empty() || out.back() == '\n' ? out : out + "\n";
}

// JUnit's timestamp (its schema allows no zone): the run's start in UTC without
// its "Z"; without a record, the stamp 20261121_103000 as 2026-11-21T10:30:00.
std::string junitTimestamp(const RunReport& report) {
    const std::string& start = report.run.start;
    if (start.size() == 20 && start.back() == 'Z') return start.substr(0, 19);
    const std::string& stamp = report.stamp;
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

// A JUnit classname part: letters, digits, '-' and '_' ('.' separates parts).
std::string classPart(const std::string& text) {
    std::string out;
    for (char c : cleanText(text)) {
        bool ok = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-';
        out += ok ? c : '_';
    }
    return out;
}

// One <testcase>: its verdict as JUnit's element (none for a pass), with the
// reason as the message and |type| as the type. Only a time-based test case has
// a time: the seconds the planner counted for it. One executor runs every
// selected test case, so no other test case has a duration of its own.
struct JunitCase {
    std::string classname, name;
    int64_t seconds;  // -1: none
    Verdict verdict;
    std::string reason, type, systemOut;
};

void printCase(Printer& p, const JunitCase& c) {
    p.OpenElement("testcase");
    p.attr("classname", c.classname);
    p.attr("name", c.name);
    if (c.seconds >= 0) p.attr("time", std::to_string(c.seconds));
    std::string element = junitElement(c.verdict);
    if (!element.empty()) {
        p.OpenElement(element.c_str());
        p.attr("message", c.reason);
        if (element != "skipped") p.attr("type", c.type);
        p.CloseElement();
    }
    p.textElement("system-out", c.systemOut);
    p.CloseElement();
}

// The executor's starts with the time each ran: "1: exit 0 after 1800 s".
void printExecutorProperties(Printer& p, const RunFacts& run) {
    for (size_t i = 0; i < run.executorEnds.size() && i < kExecutorsShown; i++) {
        int64_t seconds = i < run.executorSeconds.size() ? run.executorSeconds[i] : -1;
        p.OpenElement("property");
        p.attr("name", "executor." + std::to_string(i + 1));
        p.attr("value", (run.executorEnds[i].empty() ? "no end seen" : run.executorEnds[i]) +
                                (seconds >= 0 ? " after " + std::to_string(seconds) + " s" : ""));
        p.CloseElement();
    }
}

}  // namespace

// A test case's classname is "ostrel.<device>.<kind>": the same for the same
// test case of a device in every run; the run's stamp is in the suite's name
// and its properties.
std::string junitSuite(const RunReport& report) {
    const RunFacts& run = report.run;
    std::string device = deviceOf(report);
    std::string prefix = "ostrel." + (device.empty() ? "" : classPart(device) + ".");
    std::vector<JunitCase> cases;
    for (const RunFinding& f : report.findings) {
        cases.push_back({prefix + "run", f.name, -1, f.verdict, f.reason, f.name, f.reason});
    }
    for (const auto& c : report.cases) {
        std::string type = c.verdict == Verdict::Aborted ? "aborted" :
                           c.verdict == Verdict::Error && !run.error.empty() ? run.error : kindName(c.kind);
        cases.push_back({prefix + kindName(c.kind), c.id, c.kind == Kind::ByTime ? c.reached : -1, c.verdict,
                         c.reason, type, "command: " + c.command + "\n" + c.reason});
    }
    if (leftOutCount(report) > 0) {
        cases.push_back({prefix + "left_out", std::to_string(leftOutCount(report)) + " more test cases", -1,
                         leftOutVerdict(report), leftOutLine(report), "left_out", leftOutLine(report)});
    }
    std::string leftOutLines = linesLeftOut(report) == 0 ? "" :
            "... " + std::to_string(linesLeftOut(report)) + " more line(s) left out of this report\n";
    cases.push_back({prefix + "history", kHistoryName, -1, historyVerdict(report), historyReason(report), "crash",
                     joinLines(report.crashLines) + leftOutLines});
    auto count = [&](const char* element) {
        uint64_t n = 0;
        for (const JunitCase& c : cases) n += std::string(junitElement(c.verdict)) == element;
        return std::to_string(n);
    };

    Printer p(1);
    p.OpenElement("testsuite");
    p.attr("name", resultName(report.stamp));
    p.attr("tests", std::to_string(cases.size()));
    p.attr("failures", count("failure"));
    p.attr("errors", count("error"));
    p.attr("skipped", count("skipped"));
    p.attr("time", std::to_string(std::max<int64_t>(run.duration, 0)));
    if (std::string when = junitTimestamp(report); !when.empty()) p.attr("timestamp", when);
    p.OpenElement("properties");
    auto property = [&](const std::string& name, const std::string& value) {
        p.OpenElement("property");
        p.attr("name", name);
        p.attr("value", value);
        p.CloseElement();
    };
    property("archive", report.archive);
    property("stamp", report.stamp);
    property("verdict", verdictName(runVerdict(report)));
    property("run_record", run.present ? "yes" : "no");
    if (!device.empty()) property("device", device);
    if (run.present) {
        property("run_id", run.runId);
        property("start", run.start);
        property("end_cause", run.endCause);
        property("plan_sha256", run.planDigest);
        property("configuration", configurationText(run));
        printExecutorProperties(p, run);
        for (const auto& [key, value] : run.device) property("device." + key, value);
    }
    p.CloseElement();
    for (const JunitCase& c : cases) printCase(p, c);
    p.textElement("system-out", runLine(report) + "executor log: " + std::to_string(report.logSize) +
                                        " bytes, last lines:\n" + joinLines(report.logTail));
    p.CloseElement();
    return print(p);
}

// The document's head and tail around the suites: fixed text, nothing from input.
std::string junitHead() {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<testsuites name=\"ostrel\">\n";
}

std::string junitTail() {
    return "</testsuites>\n";
}

std::string junitBadArchive(const BadArchive& bad) {
    Printer p(1);
    p.OpenElement("testsuite");
    p.attr("name", bad.archive);
    p.attr("tests", "1");
    p.attr("failures", "0");
    p.attr("errors", "1");
    p.OpenElement("testcase");
    p.attr("classname", "ostrel.archive");
    p.attr("name", bad.archive);
    p.OpenElement("error");
    p.attr("message", bad.reason);
    p.attr("type", "unreadable");
    p.CloseElement();
    p.CloseElement();
    p.CloseElement();
    return print(p);
}

std::string reportJunit(const RunReport& report) {
    return junitHead() + junitSuite(report) + junitTail();
}

}  // namespace ostrel_report
