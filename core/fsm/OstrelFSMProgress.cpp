// Progress accounting: targets from each selected test case's size, time counted
// by ticks, boot tests counted in completed boots, and the reset after a run.
// Every number lives in the plan document; each test case is read once per pass
// and its counters are set through the plan store.
#include "OstrelFSM.h"

namespace vendor::brevane::hardware::ostrel::core {

namespace {

using Testcase = OstrelFSMData::TestcaseRecord;

// Hours to seconds in 32-bit arithmetic: sizes above 596523 hours wrap, as the
// device's own planner does.
int hoursToSeconds(int hours) {
    return static_cast<int>(static_cast<uint32_t>(hours) * 3600u);
}

// Sets test case |i| back to 0 of its target, derived afresh from its size.
void restartCounters(OstrelFSMData& data, int i, const Testcase& tc) {
    if (tc.isRound) {
        data.setTestcaseCurrentRound(i, 0);
        data.setTestcaseTargetRound(i, tc.value);
    } else {
        data.setTestcaseCurrentTime(i, 0);
        data.setTestcaseTargetTime(i, hoursToSeconds(tc.value));
    }
}

// The number of test cases while a run is live (started, not finished), else 0.
int liveTestcases(OstrelFSMData& data) {
    if (!data.getRunStart() || data.getRunFinished()) return 0;
    return data.getTestcasesLength();
}

}  // namespace

bool OstrelFSM::setRunningTestcasesTick() {
    int count = liveTestcases(data);
    for (int i = 0; i < count; i++) {
        Testcase tc = data.getTestcase(i);
        if (tc.isSelect) restartCounters(data, i, tc);
    }
    return true;
}

bool OstrelFSM::updateRunningTestcasesTick(int seconds, bool bootCompleted) {
    int count = liveTestcases(data);
    for (int i = 0; i < count; i++) {
        Testcase tc = data.getTestcase(i);
        if (!tc.isSelect) continue;
        Counting counting = countingOf(tc);
        if (counting == Counting::ByExecutor) continue;
        if (counting == Counting::ByBoots) {
            // A round of a boot test is one completed boot.
            if (!bootCompleted) continue;
            if (tc.currentRound < tc.targetRound) {
                data.setTestcaseCurrentRound(i, tc.currentRound + 1);
            } else {
                data.setTestcaseCurrentRound(i, tc.targetRound);
            }
        } else {
            // May pass the target; the next update pulls it back.
            if (tc.currentTime < tc.targetTime) {
                data.setTestcaseCurrentTime(
                        i, static_cast<int>(static_cast<uint32_t>(tc.currentTime) +
                                            static_cast<uint32_t>(seconds)));
            } else {
                data.setTestcaseCurrentTime(i, tc.targetTime);
            }
        }
    }
    return true;
}

bool OstrelFSM::checkRunningTestcasesTickToTarget() {
    int count = liveTestcases(data);
    for (int i = 0; i < count; i++) {
        Testcase tc = data.getTestcase(i);
        if (tc.isSelect && countingOf(tc) != Counting::ByExecutor && currentOf(tc) < targetOf(tc)) {
            return false;
        }
    }
    return true;
}

bool OstrelFSM::bootTestWaiting() {
    int count = liveTestcases(data);
    for (int i = 0; i < count; i++) {
        Testcase tc = data.getTestcase(i);
        if (tc.isSelect && countingOf(tc) == Counting::ByBoots && tc.currentRound < tc.targetRound) return true;
    }
    return false;
}

int OstrelFSM::bootRoundsCounted() {
    int count = data.getTestcasesLength(), rounds = 0;
    for (int i = 0; i < count; i++) {
        Testcase tc = data.getTestcase(i);
        if (tc.isSelect && countingOf(tc) == Counting::ByBoots) rounds += tc.currentRound;
    }
    return rounds;
}

// Applies only to a run that has finished, and covers every test case.
bool OstrelFSM::resetRunningTestcasesTick() {
    if (!data.getRunStart() || !data.getRunFinished()) return true;
    data.setRunStart(false);
    data.setRunFinished(false);
    int count = data.getTestcasesLength();
    for (int i = 0; i < count; i++) {
        restartCounters(data, i, data.getTestcase(i));
    }
    return true;
}

}  // namespace vendor::brevane::hardware::ostrel::core
