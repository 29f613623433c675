// The report library: a result archive (QAV<stamp>.zip, the crash-history copy
// and the run record beside it) read offline, as untrusted input, into a model
// of verdicts, and that model written as text, JSON, JUnit XML or LAVA lines.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

#include <rapidjson/document.h>

#include "PlanSchema.h"
#include "RunRecordSchema.h"
#include "Verdicts.h"

namespace ostrel_report {

namespace core = ::vendor::brevane::hardware::ostrel::core;
using core::runrecord::kCauseExecutor;
using core::runrecord::kCauseRunAbort;
using core::runrecord::kCauseRunFinished;

// How the planner counts a test case, from the plan's schema in the core: rounds
// (by the executor alone), hours (counted in seconds) or boots.
using Kind = core::Counting;

// What a report holds in full, whatever the archive declares: the first test
// cases and crash-history lines, each text cut to kShownBytes. The rest is
// counted (verdicts, lines), so counts, verdicts and the exit status cover all.
constexpr size_t kShownCases = 1000;
constexpr size_t kShownLines = 1000;
constexpr size_t kShownBytes = 1024;
// The executor starts a report lists one by one (each with its end and time).
constexpr size_t kExecutorsShown = 10;

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
    int64_t value = 0;     // the size as the plan gives it (rounds, hours or boots)
    int64_t target = 0;
    int64_t reached = 0;   // meaningful when counted
    int64_t asked = 0;     // rounds handed to the executor when not counted
    Verdict verdict = Verdict::Unknown;
    std::string reason;
};

// What the run record beside the archive (QAV<stamp>.run.json) tells of the run.
struct RunFacts {
    std::string recordPath;  // the record looked for beside the archive
    bool present = false;
    std::string runId;
    std::string start, end, endCause;  // times in UTC; cause "executor", "runFinished", "runAbort"
    int64_t startSeconds = -1;         // the start since the epoch, -1 when unknown
    int64_t duration = -1;             // seconds from start to end, -1 when unknown
    std::string planDigest;
    std::string configuration;  // the tool's words as applied last and its exit status, "" for none
    // What the client's list selected, by the names get-config lists ("cpu_boost,
    // low_power_modes/cpuidle_wfi"); "cleared", "nothing selected", or "" when
    // the record holds no list.
    std::string configurationNames;
    // The client's list of that configuration as JSON text; "null" when it was a
    // clearing, "" when the record holds none.
    std::string configurationList;
    std::vector<std::pair<std::string, std::string>> device;
    // The first kShownLines of each list; the counts cover all.
    std::vector<std::string> executorEnds;  // per start: "exit 0", "SIGSEGV", or "" (no end seen)
    std::vector<int64_t> executorSeconds;   // per start: from its start to its end, -1 when unknown
    std::vector<std::string> boots;         // the time of each boot counted
    uint64_t executorStarts = 0, bootCount = 0;
    std::string lastEnd;                    // the last executor's end
    // The first end in error ("SIGSYS", "exit 3"; "" for none) and what it was
    // ("was killed by SIGSYS (signal 31), a signal the service did not send").
    std::string error, errorText;
    // Boots counted while no boot test waited for one: the device restarted.
    uint64_t unplannedBoots = 0;
    std::string firstUnplannedBoot;
    // Steps of the record that the plan did not confirm after a restart ("start",
    // "boot", "end"): kept, never taken for done.
    std::vector<std::string> unconfirmed;
};

struct RunReport {
    std::string archive;
    std::string stamp;
    std::string deviceLabel;  // the lab's name for the device, "" when none was given
    RunFacts run;
    std::vector<RunFinding> findings;  // about the run as a whole
    std::vector<CaseReport> cases;  // the first kShownCases selected test cases
    uint64_t leftOut[kVerdictCount] = {};  // the selected test cases after them, by verdict
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
// One test case of a plan judged as the report judges it, with |run|.
CaseReport judgeTestcase(const rapidjson::Value& tc, int64_t index, const RunFacts& run);

using core::kindName;
using core::unitName;

// The first of the record's device members |keys| that is set, "" for none.
std::string deviceMember(const RunFacts& run, std::initializer_list<const char*> keys);
// The device a run was made on: the lab's label, else the record's host name,
// model or device id; "" when nothing tells.
std::string deviceOf(const RunReport& report);

// The configuration as a person reads it: the names selected, then the tool's
// words ("cpu_boost [sillet set 3 a1 (exit 0)]"); the words alone without a list.
std::string configurationText(const RunFacts& run);
// The run in one line, from its record ("run: started ..., after 3600 s; ...").
std::string runLine(const RunReport& report);
// The line that stands for the test cases after kShownCases, and the crash
// lines a report leaves out.
std::string leftOutLine(const RunReport& report);
uint64_t linesLeftOut(const RunReport& report);

// A result's name: "QAV<stamp>".
std::string resultName(const std::string& stamp);
// The file beside |archive| with |suffix| (a suffix of the result layout) in
// place of ".zip": QAV<stamp>.run.json beside QAV<stamp>.zip.
std::string besideArchive(const std::string& archive, const char* suffix);

// The four output formats.
std::string reportText(const RunReport& report);
std::string reportJson(const RunReport& report);
std::string reportJunit(const RunReport& report);
std::string reportLava(const RunReport& report);
// The LAVA lines as the words of each call (lava-test-set, lava-test-case), to
// be run as commands with these arguments, never through a shell.
std::vector<std::vector<std::string>> lavaCalls(const RunReport& report);

// |text| as valid UTF-8 without control characters: every C0 and C1 control,
// DEL, a broken sequence, U+FFFE/U+FFFF, the line and paragraph separators and
// the bidirectional controls become U+FFFD; '\n' is kept only when
// |keepLineEnds|. What is left is safe for a terminal, JSON and XML 1.0. Every
// text any command of ostrelctl prints from outside goes through it.
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
// The same for a text of |total| bytes of which |head| holds the first ones
// (at least kShownBytes + 1 when it is longer).
std::string cutText(const std::string& head, size_t total);

}  // namespace ostrel_report
