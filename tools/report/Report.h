// The report library: a result archive (QAV<stamp>.zip, the crash-history copy
// and the run record beside it) read offline, as untrusted input, into a model
// of verdicts, and that model written as text, JSON, JUnit XML or LAVA lines.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <rapidjson/document.h>

#include "PlanSchema.h"

namespace ostrel_report {

// How the planner counts a test case, from the plan's schema in the core: rounds
// (by the executor alone), hours (counted in seconds) or boots.
using Kind = ::vendor::brevane::hardware::ostrel::core::Counting;
// Error: the test case fell short because the executor ended in error (a signal
// or a non-zero status of its own). The values index RunReport::leftOut.
enum class Verdict { Pass, Fail, Unknown, Error };

// What a report holds in full, whatever the archive declares: the first test
// cases and crash-history lines, each text cut to kShownBytes. The rest is
// counted (verdicts, lines), so counts, verdicts and the exit status cover all.
constexpr size_t kShownCases = 1000;
constexpr size_t kShownLines = 1000;
constexpr size_t kShownBytes = 1024;

// One selected test case of the archived plan. Counts are in |unit|: rounds,
// boots, or seconds for a time-based test case.
struct CaseReport {
    std::string name;
    // Its identity across runs: the name, and " #N" for the N-th test case of the
    // same name and kind in plan order.
    std::string id;
    std::string command;
    Kind kind = Kind::ByExecutor;
    bool counted = false;  // the planner counts it (time, boots)
    int64_t target = 0;
    int64_t reached = 0;   // meaningful when counted
    int64_t asked = 0;     // rounds handed to the executor when not counted
    Verdict verdict = Verdict::Unknown;
    std::string reason;
};

// What the run record beside the archive (QAV<stamp>.run.json) tells of the run.
struct RunFacts {
    bool present = false;
    std::string start, end, endCause;  // times in UTC; cause "executor", "runFinished", "runAbort"
    int64_t startSeconds = -1;         // the start since the epoch, -1 when unknown
    int64_t duration = -1;             // seconds from start to end, -1 when unknown
    std::string planDigest;
    std::string configuration;  // the tool's words as applied last and its exit status, "" for none
    // The client's list of that configuration as JSON text; "null" when it was a
    // clearing, "" when the record holds none.
    std::string configurationList;
    std::vector<std::pair<std::string, std::string>> device;
    // The first kShownLines of each list; the counts cover all.
    std::vector<std::string> executorEnds;  // per start: "exit 0", "SIGSEGV", or "" (no end seen)
    std::vector<std::string> boots;         // the time of each boot counted
    uint64_t executorStarts = 0, bootCount = 0;
    std::string lastEnd;                    // the last executor's end
    std::string error;                      // the first end in error, "" for none
};

struct RunReport {
    std::string archive;
    std::string stamp;
    RunFacts run;
    std::vector<CaseReport> cases;  // the first kShownCases selected test cases
    uint64_t leftOut[4] = {};       // the selected test cases after them, by verdict
    std::string historySource;  // the file or entry the crash lines came from, "" if none
    std::vector<std::string> crashLines;  // the first kShownLines lines
    uint64_t crashLineCount = 0;          // every line
    bool logPresent = false;
    uint64_t logSize = 0;
    std::vector<std::string> logTail;
};

// Fills |report| from |archivePath| (and the run record beside it, when there is
// one). On failure returns false with |error| set to what is wrong (without the
// "ostrelctl: FILE: " prefix); nothing is written.
bool readRunReport(const std::string& archivePath, RunReport* report, std::string* error);
// Reads <stem>.run.json beside |archivePath| into |run|; false with |error| for a
// record that cannot be read. No record: |run| stays as it is (not present).
bool readRunRecord(const std::string& archivePath, RunFacts* run, std::string* error);
// Reads the plan's text (entry |entry| of the archive) into |report->cases|,
// judged with |report->run|; false with |error| when it is no JSON object.
bool readPlanText(const std::string& text, const char* entry, RunReport* report, std::string* error);
// The archived plan's text (qav/data/ostreldata.txt of |archivePath|).
bool readArchivedPlan(const std::string& archivePath, std::string* text, std::string* error);
// One test case of a plan judged as the report judges it (|run| may be absent).
CaseReport judgeTestcase(const rapidjson::Value& tc, int64_t index, const RunFacts& run);
// Judges |c| again with what the record tells (an executor that ended in error,
// a run aborted, rounds run out by an executor that exited 0).
void judgeWithRecord(const RunFacts& run, CaseReport* c);

// The crash history as a verdict of its own: fail when any line was collected.
Verdict historyVerdict(const RunReport& report);
// Fail when any verdict fails, else pass ("unknown" alone does not fail a run).
Verdict overallVerdict(const RunReport& report);
// Verdicts of that kind: the crash history's and every selected test case's,
// those left out included.
uint64_t countOf(const RunReport& report, Verdict verdict);
uint64_t leftOutCount(const RunReport& report);

using ::vendor::brevane::hardware::ostrel::core::kindName;
using ::vendor::brevane::hardware::ostrel::core::unitName;
const char* verdictName(Verdict verdict);

// The four output formats.
std::string reportText(const RunReport& report);
std::string reportJson(const RunReport& report);
std::string reportJunit(const RunReport& report);
std::string reportLava(const RunReport& report);
// The LAVA lines as the words of each call (lava-test-set, lava-test-case), to
// be run as commands with these arguments, never through a shell.
std::vector<std::vector<std::string>> lavaCalls(const RunReport& report);

// |text| as valid UTF-8 without control characters: every C0 and C1 control,
// DEL, a broken sequence and U+FFFE/U+FFFF become U+FFFD; '\n' is kept only when
// |keepLineEnds|. What is left is safe for a terminal, JSON and XML 1.0.
std::string cleanText(const std::string& text, bool keepLineEnds = false);
// Escapes |text| for HTML and XML text and attributes (after cleaning it).
std::string xmlEscape(const std::string& text, bool attribute);
// Writes |text|, cleaned, as a JSON string.
template <typename Writer>
void writeClean(Writer& w, const std::string& text) {
    std::string clean = cleanText(text);
    w.String(clean.data(), static_cast<rapidjson::SizeType>(clean.size()));
}
// |text| cut to at most kShownBytes on a character boundary, with how many bytes
// were left out.
std::string shownText(const std::string& text);

}  // namespace ostrel_report
