// Many runs, one view: the results of a plan run on many devices, builds and
// configurations, summed up from their single-run reports. A run is read, folded
// into the summary and let go, so memory follows the summary (a row per run, per
// test case and per crash signature), not the archives.
#pragma once

#include <cstdint>
#include <map>
#include <ostream>
#include <set>
#include <string>
#include <vector>

#include "Report.h"

namespace ostrel_report {

// Crash signatures kept apart; lines of any further signature are counted together.
constexpr size_t kMaxSignatures = 10000;
// Crash lines and lines of the executor's log kept of a run for its details on
// the page, each line cut to kShownBytes.
constexpr size_t kRunViewLines = 20;

// What a test case that did not pass shows in its run's details.
struct FleetCaseDetail {
    std::string amount;  // "reached of target unit", or the rounds asked
    std::string reason, command;
};

// One test case of one run. A pass costs its verdict alone: the page shows a
// passing test case by its name, so only the others keep a detail.
struct FleetCaseResult {
    static constexpr uint32_t kNoDetail = UINT32_MAX;
    size_t caseIndex;  // into FleetSummary::cases
    Verdict verdict;
    uint32_t detail = kNoDetail;  // into FleetRun::details
};

struct FleetRun {
    std::string archive, stamp, runId;
    std::string device, build, configuration;  // "" when the record does not tell
    std::string start, endCause, error;
    std::string executorEnd;  // the last executor's end, or what its error was
    int64_t startSeconds = -1, duration = -1;
    Verdict verdict = Verdict::Pass;
    std::string reason;              // why it has that verdict
    Verdict history = Verdict::Pass;  // the crash history's verdict
    std::string historyReason;
    uint64_t counts[kVerdictCount] = {};  // by verdict, the crash history included
    uint64_t crashLines = 0;
    std::vector<FleetCaseResult> cases;
    std::vector<FleetCaseDetail> details;   // of the test cases that did not pass
    std::vector<std::string> crashExamples;  // the first kRunViewLines lines
    bool logPresent = false;
    uint64_t logSize = 0;
    std::vector<std::string> logTail;  // the executor log's last kRunViewLines lines
};

// A test case across runs: matched by its id (name, " #N" for duplicates) and kind.
struct FleetCase {
    std::string id;
    Kind kind;
    uint64_t counts[kVerdictCount] = {};
    std::vector<size_t> failedRuns;  // runs where its verdict failed the run
};

// Devices and configurations named under one signature; lines on further ones
// are counted, so a summary costs signatures + devices, not their product.
constexpr size_t kNamedPerSignature = 10;

struct CrashSignature {
    std::string signature;  // the line with numbers, addresses and hex ids masked
    std::string example;    // the first full line seen
    uint64_t count = 0;
    std::set<std::string> devices, configurations;  // the first kNamedPerSignature of each
    uint64_t linesElsewhere = 0;  // lines on devices or configurations not named
};

// An input that could not be read: an archive, a folder or a path.
struct BadArchive {
    std::string archive, reason;
};

struct FleetSummary {
    std::vector<FleetRun> runs;
    std::vector<FleetCase> cases;
    std::map<std::pair<std::string, int>, size_t> caseIndex;
    std::map<std::string, CrashSignature> signatures;
    uint64_t otherCrashLines = 0;  // lines of signatures beyond kMaxSignatures
    uint64_t crashLinesLeftOut = 0;  // lines not shown by their runs' reports
    std::vector<BadArchive> bad;
    // Archives of a run already counted (the same run id: getResult packed the
    // run again after a kill), each with the archive that counts for it.
    std::vector<BadArchive> duplicates;
    std::map<std::string, std::string> runIds;  // run id -> the archive counted
};

// The result archives that |args| name: files as they are, folders searched
// (recursively, in name order) for QAV*.zip; a folder or path that cannot be
// read goes to |unreadable| with its reason. False with |error| when nothing
// was found and nothing was unreadable.
bool findArchives(const std::vector<std::string>& args, std::vector<std::string>* archives,
                  std::vector<BadArchive>* unreadable, std::string* error);
// |archives| ordered by their runs' start (from the records beside them); runs
// whose start is not known keep their order, after the others.
void orderByStart(std::vector<std::string>* archives);

// Folds one run into |fleet|; a run already counted (its run id seen) is listed
// as a duplicate instead, and false returned.
bool addRun(FleetSummary* fleet, const RunReport& report);
// |line| with its numbers, addresses and hex ids masked ("#").
std::string crashSignature(const std::string& line);
// Signatures by count, most frequent first.
std::vector<const CrashSignature*> signaturesByCount(const FleetSummary& fleet);
// The weightiest verdict of the runs (pass for none).
Verdict fleetVerdict(const FleetSummary& fleet);
size_t failedRuns(const FleetSummary& fleet);
// The summary's headline: the fleet's verdict; "incomplete" when inputs could
// not be read and no run failed ("fail, incomplete" when one did).
std::string fleetHeadline(const FleetSummary& fleet);
// The headline is "incomplete" alone: inputs could not be read, no run failed.
bool incompleteOnly(const FleetSummary& fleet);
// 1 when a run failed, 4 when none did but the summary is incomplete or a run is
// unknown, 0 when every run passed; 2 when no run could be read.
int fleetExitStatus(const FleetSummary& fleet);

// The formats of a summary. JUnit is written run by run as they are read: one
// <testsuite> per run (junitSuite), one per bad archive, in one <testsuites>.
// Each writes to |out| as it goes: the output is never held whole.
void fleetText(const FleetSummary& fleet, std::ostream& out);
void fleetJson(const FleetSummary& fleet, std::ostream& out);
void fleetHtml(const FleetSummary& fleet, std::ostream& out);
std::string junitSuite(const RunReport& report);
std::string junitBadArchive(const BadArchive& bad);
std::string junitHead();
std::string junitTail();

}  // namespace ostrel_report
