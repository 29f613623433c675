// The verdict model: every rule that turns a run's counters and record into
// verdicts, and every mapping of a verdict into a format, in one place.
#include "Verdicts.h"

#include "Report.h"

namespace ostrel_report {

namespace {

// Error weighs most, pass least.
int weight(Verdict v) {
    switch (v) {
        case Verdict::Pass: return 0;
        case Verdict::Unknown: return 1;
        case Verdict::Aborted: return 2;
        case Verdict::Fail: return 3;
        case Verdict::Error: return 4;
    }
    return 4;
}

// Why a size can never be reached, "" when it can.
std::string unreachable(const CaseReport& c) {
    if (c.value == 0) return "no target: a size of 0 is never reached";
    if (c.value < 0) return "no target: a size of " + std::to_string(c.value) + " is never reached";
    if (c.kind == Kind::ByTime && c.value > core::kMaxHours) {
        return "no target: " + std::to_string(c.value) + " hours is more than the counter holds (" +
               std::to_string(core::kMaxHours) + " hours); the target wraps to " + std::to_string(c.target) + " s";
    }
    return "";
}

std::string progress(const CaseReport& c) {
    return std::to_string(c.reached) + " of " + std::to_string(c.target) + " " + unitName(c.kind);
}

// "1 round", "3 rounds".
std::string rounds(int64_t n) {
    return std::to_string(n) + (n == 1 ? " round" : " rounds");
}

}  // namespace

std::string amountText(const CaseReport& c) {
    return c.counted ? progress(c) : rounds(c.asked) + " asked";
}

const char* verdictName(Verdict verdict) {
    switch (verdict) {
        case Verdict::Pass: return "pass";
        case Verdict::Fail: return "fail";
        case Verdict::Unknown: return "unknown";
        case Verdict::Error: return "error";
        case Verdict::Aborted: return "aborted";
    }
    return "unknown";
}

const char* verdictLetter(Verdict verdict) {
    switch (verdict) {
        case Verdict::Pass: return "P";
        case Verdict::Fail: return "F";
        case Verdict::Error: return "E";
        case Verdict::Aborted: return "A";
        case Verdict::Unknown: return "?";
    }
    return "?";
}

bool failsRun(Verdict verdict) {
    return verdict == Verdict::Fail || verdict == Verdict::Error || verdict == Verdict::Aborted;
}

Verdict worse(Verdict a, Verdict b) {
    return weight(b) > weight(a) ? b : a;
}

const char* junitElement(Verdict verdict) {
    switch (verdict) {
        case Verdict::Pass: return "";
        case Verdict::Fail: return "failure";
        case Verdict::Error: return "error";
        case Verdict::Aborted: return "failure";
        case Verdict::Unknown: return "skipped";
    }
    return "skipped";
}

const char* lavaResult(Verdict verdict) {
    switch (verdict) {
        case Verdict::Pass: return "pass";
        case Verdict::Fail: return "fail";
        case Verdict::Error: return "fail";
        case Verdict::Aborted: return "fail";
        case Verdict::Unknown: return "unknown";
    }
    return "unknown";
}

int exitStatusOf(Verdict verdict) {
    if (failsRun(verdict)) return kExitFailed;
    return verdict == Verdict::Pass ? kExitPass : kExitNotProven;
}

bool retried(Verdict verdict, bool failedOnly) {
    if (failedOnly) return verdict == Verdict::Fail || verdict == Verdict::Error;
    return verdict != Verdict::Pass;
}

void judgeCase(const RunFacts& run, CaseReport* c) {
    auto judge = [c](Verdict v, const std::string& reason) {
        c->verdict = v;
        c->reason = reason;
    };
    std::string cannot = unreachable(*c);
    if (!cannot.empty()) return judge(Verdict::Error, cannot);
    if (c->counted && c->reached >= c->target) return judge(Verdict::Pass, "reached " + progress(*c));
    std::string where = c->counted ? "stopped at " + progress(*c)
                                   : rounds(c->asked) + " asked of the executor";
    if (!run.present) {
        if (c->counted) return judge(Verdict::Fail, where);
        return judge(Verdict::Unknown, "rounds are run out by the executor and not counted, and there is no run "
                                       "record (" + run.recordPath + ") to tell how the executor ended; " + where);
    }
    if (!run.error.empty()) {
        return judge(Verdict::Error, "the executor " + run.errorText +
                                             " before this test case was done; one executor runs every selected "
                                             "test case, so which one was running cannot be told; " + where);
    }
    if (run.unplannedBoots > 0) {
        return judge(Verdict::Fail, "the device restarted at " + run.firstUnplannedBoot +
                                            " with no boot test waiting for a boot (an unplanned reboot) before "
                                            "this test case was done; " + where);
    }
    if (run.endCause == kCauseRunAbort) {
        return judge(Verdict::Aborted, "the run was aborted (runAbort) before this test case was done; " + where);
    }
    bool byItself = run.endCause == kCauseExecutor;
    if (!c->counted && byItself && run.lastEnd == "exit 0") {
        return judge(Verdict::Pass, rounds(c->asked) + " asked; the executor ran them and exited 0");
    }
    if (c->counted) return judge(Verdict::Fail, where);
    if (run.endCause == kCauseRunFinished) {
        return judge(Verdict::Unknown, "the run was finished by a client (runFinished) before the executor said "
                                       "how its rounds went; " + where);
    }
    return judge(Verdict::Unknown, std::string(run.endCause.empty() ? "the run has no end in its record"
                                                                    : "no end of the executor was seen") +
                                           "; rounds are not counted; " + where);
}

std::vector<RunFinding> runFindings(const RunFacts& run, bool anySelected) {
    std::vector<RunFinding> findings;
    if (!anySelected) {
        findings.push_back({Verdict::Error, "nothing_selected",
                            "nothing was selected: the plan that ran has no selected test case"});
    }
    if (!run.error.empty()) {
        findings.push_back({Verdict::Error, "executor " + run.error, "the executor " + run.errorText});
    }
    if (run.unplannedBoots > 0) {
        findings.push_back({Verdict::Fail, "unplanned_reboot",
                            std::to_string(run.unplannedBoots) + " unplanned reboot(s), the first at " +
                                    run.firstUnplannedBoot + ": the device restarted with no boot test waiting "
                                    "for a boot"});
    }
    return findings;
}

Verdict historyVerdict(const RunReport& report) {
    if (report.historySource.empty()) return Verdict::Unknown;
    return report.crashLineCount == 0 ? Verdict::Pass : Verdict::Fail;
}

std::string historyReason(const RunReport& report) {
    if (report.historySource.empty()) return "no history copy beside the archive or in it";
    return std::to_string(report.crashLineCount) + " crash-history line(s) collected during the run";
}

uint64_t leftOutCount(const RunReport& report) {
    uint64_t n = 0;
    for (uint64_t count : report.leftOut) n += count;
    return n;
}

Verdict leftOutVerdict(const RunReport& report) {
    Verdict v = Verdict::Pass;
    for (Verdict each : kVerdictOrder) {
        if (report.leftOut[static_cast<int>(each)] > 0) v = worse(v, each);
    }
    return v;
}

uint64_t countOf(const RunReport& report, Verdict verdict) {
    uint64_t n = historyVerdict(report) == verdict ? 1 : 0;
    for (const RunFinding& f : report.findings) n += f.verdict == verdict ? 1 : 0;
    for (const auto& c : report.cases) n += c.verdict == verdict ? 1 : 0;
    return n + report.leftOut[static_cast<int>(verdict)];
}

Verdict runVerdict(const RunReport& report) {
    Verdict v = historyVerdict(report);
    for (Verdict each : kVerdictOrder) {
        if (countOf(report, each) > 0) v = worse(v, each);
    }
    return v;
}

std::string runReason(const RunReport& report) {
    Verdict v = runVerdict(report);
    if (v == Verdict::Pass) return "every test case passed and no crash-history line was collected";
    for (const RunFinding& f : report.findings) {
        if (f.verdict == v) return f.reason;
    }
    for (const CaseReport& c : report.cases) {
        if (c.verdict == v) return c.id + ": " + c.reason;
    }
    if (historyVerdict(report) == v) return "crash history: " + historyReason(report);
    return std::to_string(report.leftOut[static_cast<int>(v)]) + " test case(s) left out of this report are " +
           verdictName(v);
}

}  // namespace ostrel_report
