// Progress accounting: targets from each selected test case's size, time counted
// by ticks, boot tests counted in completed boots, and the reset after a run.
// Every number lives in the plan document and is written through at once.
#include "OstrelFSM.h"

namespace vendor::brevane::hardware::ostrel::core {

namespace {

// Hours to seconds in 32-bit arithmetic: sizes above 596523 hours wrap, as the
// device's own planner does.
int hoursToSeconds(int hours) {
    return static_cast<int>(static_cast<uint32_t>(hours) * 3600u);
}

// Sets test case |i| back to 0 of its target, derived afresh from its size.
void restartCounters(OstrelFSMData& data, int i) {
    if (data.getTestcaseIsRound(i)) {
        data.setTestcaseCurrentRound(i, 0);
        data.setTestcaseTargetRound(i, data.getTestcaseValue(i));
    } else {
        data.setTestcaseCurrentTime(i, 0);
        data.setTestcaseTargetTime(i, hoursToSeconds(data.getTestcaseValue(i)));
    }
}

}  // namespace

bool OstrelFSM::setRunningTestcasesTick() {
    if (!data.getRunStart() || data.getRunFinished() || data.getTestcasesLength() < 1) {
        return true;
    }
    for (int i = 0; i < data.getTestcasesLength(); i++) {
        if (!data.getTestcaseIsSelect(i)) continue;
        restartCounters(data, i);
    }
    return true;
}

bool OstrelFSM::updateRunningTestcasesTick(int seconds, bool bootCompleted) {
    if (!data.getRunStart() || data.getRunFinished() || data.getTestcasesLength() < 1) {
        return true;
    }
    for (int i = 0; i < data.getTestcasesLength(); i++) {
        if (!data.getTestcaseIsSelect(i)) continue;
        if (data.getTestcaseIsRound(i)) {
            // A round of a boot test is one completed boot; other round-based
            // test cases are counted by the executor alone.
            if (!data.getTestcaseIsBootTest(i) || !bootCompleted) continue;
            if (data.getTestcaseCurrentRound(i) < data.getTestcaseTargetRound(i)) {
                data.setTestcaseCurrentRound(i, data.getTestcaseCurrentRound(i) + 1);
            } else {
                data.setTestcaseCurrentRound(i, data.getTestcaseTargetRound(i));
            }
        } else {
            // May pass the target; the next update pulls it back.
            if (data.getTestcaseCurrentTime(i) < data.getTestcaseTargetTime(i)) {
                data.setTestcaseCurrentTime(
                        i, static_cast<int>(static_cast<uint32_t>(data.getTestcaseCurrentTime(i)) +
                                            static_cast<uint32_t>(seconds)));
            } else {
                data.setTestcaseCurrentTime(i, data.getTestcaseTargetTime(i));
            }
        }
    }
    return true;
}

bool OstrelFSM::checkRunningTestcasesTickToTarget() {
    if (!data.getRunStart() || data.getRunFinished() || data.getTestcasesLength() < 1) {
        return true;
    }
    for (int i = 0; i < data.getTestcasesLength(); i++) {
        if (!data.getTestcaseIsSelect(i)) continue;
        if (data.getTestcaseIsRound(i)) {
            if (!data.getTestcaseIsBootTest(i)) continue;
            if (data.getTestcaseCurrentRound(i) < data.getTestcaseTargetRound(i)) return false;
        } else if (data.getTestcaseCurrentTime(i) < data.getTestcaseTargetTime(i)) {
            return false;
        }
    }
    return true;
}

// Applies only to a run that has finished, and covers every test case.
bool OstrelFSM::resetRunningTestcasesTick() {
    if (!data.getRunStart() || !data.getRunFinished()) return true;
    data.setRunStart(false);
    data.setRunFinished(false);
    if (data.getTestcasesLength() < 1) return true;
    for (int i = 0; i < data.getTestcasesLength(); i++) {
        restartCounters(data, i);
    }
    return true;
}

}  // namespace vendor::brevane::hardware::ostrel::core
