// The one verdict model of a report: what each test case, the crash history and
// the run as a whole get, why, which verdicts fail a run, and how each verdict
// is written in every format (JUnit, LAVA, the exit status). Every output and
// retry read verdicts from here; none judges again.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace ostrel_report {

// The values index the count arrays (RunReport::leftOut, the summary's counts).
enum class Verdict { Pass, Fail, Unknown, Error, Aborted };
constexpr int kVerdictCount = 5;
// The order verdicts are listed in, in counts and tables.
constexpr Verdict kVerdictOrder[kVerdictCount] = {Verdict::Pass, Verdict::Fail, Verdict::Error,
                                                  Verdict::Aborted, Verdict::Unknown};

const char* verdictName(Verdict verdict);
// One letter for a cell of the page's matrix: P, F, E, A, ?.
const char* verdictLetter(Verdict verdict);
// Fail, error and aborted fail a run; unknown leaves it unproven (never a pass).
bool failsRun(Verdict verdict);
// The verdict that weighs more: error, fail, aborted, unknown, pass.
Verdict worse(Verdict a, Verdict b);

// How a verdict is written: JUnit's element inside <testcase> ("" for none),
// LAVA's result (pass, fail, skip, unknown), and the exit status of a run or a
// summary whose verdict it is (0 pass, 1 failed, 4 not proven).
const char* junitElement(Verdict verdict);
const char* lavaResult(Verdict verdict);
constexpr int kExitPass = 0, kExitFailed = 1, kExitNotProven = 4;
int exitStatusOf(Verdict verdict);

// Something about the whole run that decides its verdict, beside its test
// cases: nothing selected, an executor that ended in error, an unplanned reboot.
// |name| is its test-case name in JUnit and LAVA.
struct RunFinding {
    Verdict verdict;
    std::string name;
    std::string reason;
};

struct CaseReport;
struct RunFacts;
struct RunReport;

// Judges |c| (its counters and size filled in) with what the run tells: the
// table of the README's "Results in a lab", in one place.
void judgeCase(const RunFacts& run, CaseReport* c);
// How far a test case got: "1800 of 7200 seconds", or "3 rounds asked" of the executor.
std::string amountText(const CaseReport& c);
// What the run as a whole shows; |anySelected|: the plan selected a test case.
std::vector<RunFinding> runFindings(const RunFacts& run, bool anySelected);
// The crash history: fail with any line, unknown when no copy was found.
Verdict historyVerdict(const RunReport& report);
std::string historyReason(const RunReport& report);
// The run's verdict: the weightiest of its findings, test cases and history.
Verdict runVerdict(const RunReport& report);
// Why: the reason of the first finding or test case with the run's verdict.
std::string runReason(const RunReport& report);
// Verdicts of that kind: the run's findings', the crash history's and every
// selected test case's, those left out included.
uint64_t countOf(const RunReport& report, Verdict verdict);
uint64_t leftOutCount(const RunReport& report);
// The test cases left out of a report stand as one: the weightiest of their verdicts.
Verdict leftOutVerdict(const RunReport& report);
// Retry takes what did not pass; with |failedOnly| just what failed or erred.
bool retried(Verdict verdict, bool failedOnly);

}  // namespace ostrel_report
