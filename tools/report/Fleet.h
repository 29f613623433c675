// Many runs, one view: the results of a plan run on many devices, builds and
// configurations, summed up from their single-run reports. A run is read, folded
// into the summary and let go, so memory follows the summary (a row per run, per
// test case and per crash signature), not the archives.
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "Report.h"

namespace ostrel_report {

// Crash signatures kept apart; lines of any further signature are counted together.
constexpr size_t kMaxSignatures = 10000;
// Crash lines of a run kept for its own view in the page.
constexpr size_t kRunViewLines = 20;

// One test case of one run, as its own view shows it.
struct FleetCaseResult {
    size_t caseIndex;  // into FleetSummary::cases
    Verdict verdict;
    std::string amount;  // "reached of target unit", or the rounds asked
    std::string reason;
};

struct FleetRun {
    std::string archive, stamp;
    std::string device, build, configuration;  // "" when the record does not tell
    std::string start, endCause, error;
    int64_t startSeconds = -1, duration = -1;
    Verdict verdict = Verdict::Pass;
    uint64_t counts[4] = {};  // by verdict, the crash history included
    uint64_t crashLines = 0;
    std::vector<FleetCaseResult> cases;
    std::vector<std::string> crashExamples;  // the first kRunViewLines lines
};

// A test case across runs: matched by its id (name, " #N" for duplicates) and kind.
struct FleetCase {
    std::string id;
    Kind kind;
    uint64_t counts[4] = {};
    std::vector<size_t> failedRuns;  // runs where it failed or erred
};

struct CrashSignature {
    std::string signature;  // the line with numbers, addresses and hex ids masked
    std::string example;    // the first full line seen
    uint64_t count = 0;
    std::set<std::string> devices, configurations;
};

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
};

// The result archives that |args| name: files as they are, folders searched
// (recursively, in name order) for QAV*.zip. False with |error| for a name that
// is neither.
bool findArchives(const std::vector<std::string>& args, std::vector<std::string>* archives,
                  std::string* error);

// Folds one run into |fleet|.
void addRun(FleetSummary* fleet, const RunReport& report);
// |line| with its numbers, addresses and hex ids masked ("#").
std::string crashSignature(const std::string& line);
// Signatures by count, most frequent first.
std::vector<const CrashSignature*> signaturesByCount(const FleetSummary& fleet);
// Pass when no run fails (any fail or error fails it).
Verdict fleetVerdict(const FleetSummary& fleet);

// The formats of a summary. JUnit is written run by run as they are read: one
// <testsuite> per run (junitSuite), one per bad archive, in one <testsuites>.
std::string fleetText(const FleetSummary& fleet);
std::string fleetJson(const FleetSummary& fleet);
std::string fleetHtml(const FleetSummary& fleet);
std::string junitSuite(const RunReport& report);
std::string junitBadArchive(const BadArchive& bad);
std::string junitHead();
std::string junitTail();

}  // namespace ostrel_report
