// Progress accounting on real plan files: targets, ticks, boots, guards and reset.

#include "TestSupport.h"

namespace {

Testcase counted(bool isRound, int value, int current, int target, bool select = true, bool boot = false) {
    Testcase t = isRound ? rounds("x", value) : hours("x", value);
    (isRound ? t.currentRound : t.currentTime) = current;
    (isRound ? t.targetRound : t.targetTime) = target;
    t.select = select;
    t.isBootTest = boot;
    return t;
}

OstrelFSM& machineWith(const std::vector<Testcase>& plan, bool runStart = true,
                       bool runFinished = false) {
    writeFile(kPlanFile, planJson(RUNNING, runStart, runFinished, plan));
    return newMachine();
}

}  // namespace

TEST(OstrelFSMProgress, TimeTargetsAreHoursInWrapping32BitSeconds) {
    Testcase boot = counted(true, 3, 5, 0, true, true);
    OstrelFSM& m = machineWith({counted(false, 2, 99, 99), counted(false, 3, 5, 6, false),
                                counted(false, 596524, 1, 1), counted(true, 4, 9, 9), boot});
    OstrelFSMData& d = m.planStore();
    EXPECT_TRUE(m.setRunningTestcasesTick());
    EXPECT_EQ(d.getTestcaseTargetTime(0), 7200);
    EXPECT_EQ(d.getTestcaseCurrentTime(0), 0);
    EXPECT_EQ(d.getTestcaseCurrentTime(1), 5);  // not selected: untouched
    EXPECT_EQ(d.getTestcaseTargetTime(1), 6);
    EXPECT_EQ(d.getTestcaseTargetTime(2), -2147480896);  // 596524 h wraps negative
    EXPECT_EQ(d.getTestcaseTargetRound(3), 4);
    EXPECT_EQ(d.getTestcaseCurrentRound(3), 0);
    for (int i = 0; i < 720; i++) m.updateRunningTestcasesTick(10, false);
    EXPECT_EQ(d.getTestcaseCurrentTime(0), 7200);
    // Ticks count no rounds; only the boot test, short of its target, holds the run
    // back (a round-based test case that is not a boot test never does).
    EXPECT_EQ(d.getTestcaseCurrentRound(3) + d.getTestcaseCurrentRound(4), 0);
    EXPECT_FALSE(m.checkRunningTestcasesTickToTarget());
    // Each completed boot counts one, up to the target, and adds no time.
    for (int i = 0; i < 4; i++) m.updateRunningTestcasesTick(0, true);
    EXPECT_EQ(d.getTestcaseCurrentRound(4), 3);
    d.setTestcaseCurrentRound(4, 7);  // above its target: pulled back
    m.updateRunningTestcasesTick(0, true);
    EXPECT_EQ(d.getTestcaseCurrentRound(4), 3);
    EXPECT_EQ(d.getTestcaseCurrentTime(0), 7200);
    EXPECT_TRUE(m.checkRunningTestcasesTickToTarget());
    EXPECT_TRUE(contains(readFile(kPlanFile), "\"testcase_current_time\":7200"));
}

TEST(OstrelFSMProgress, OvershootIsPulledBackOnlyByALaterUpdate) {
    OstrelFSM& m = machineWith(
            {counted(false, 2, 7195, 7200), counted(false, 0, 0, 0), counted(false, 1, 0, 3600)});
    OstrelFSMData& d = m.planStore();
    // TICK reaches the update while the last test case is short of its target.
    EXPECT_TRUE(m.sendEvent(TICK, nullptr, nullptr, 10, 0));
    EXPECT_EQ(d.getTestcaseCurrentTime(0), 7205);
    EXPECT_EQ(d.getTestcaseCurrentTime(1), 0);  // target 0: rewritten as 0
    EXPECT_TRUE(m.sendEvent(TICK, nullptr, nullptr, 10, 0));
    EXPECT_EQ(d.getTestcaseCurrentTime(0), 7200);
    EXPECT_EQ(d.getTestcaseCurrentTime(2), 20);

    // Once every counted target is reached, TICK makes no update: the overshoot stays
    // until a boot completion's update (0 seconds) pulls it back.
    OstrelFSM& alone = machineWith({counted(false, 2, 7195, 7200)});
    EXPECT_TRUE(alone.sendEvent(TICK, nullptr, nullptr, 10, 0));
    EXPECT_TRUE(alone.sendEvent(TICK, nullptr, nullptr, 10, 0));
    EXPECT_EQ(alone.planStore().getTestcaseCurrentTime(0), 7205);
    alone.updateRunningTestcasesTick(0, true);
    EXPECT_EQ(alone.planStore().getTestcaseCurrentTime(0), 7200);
}

// Counting needs a live run, and changes nothing otherwise; the reset needs a
// finished one, and gives every counter back its start.
TEST(OstrelFSMProgress, CountingAndResetFollowTheRunFlags) {
    Testcase boot = counted(true, 3, 1, 3, true, true);
    const std::vector<Testcase> plan = {counted(false, 2, 7300, 7200),
                                        counted(false, 1, 50, 60, false), boot};
    for (auto [runStart, runFinished] : {std::pair(false, false), {true, true}, {false, true}}) {
        OstrelFSM& m = machineWith(plan, runStart, runFinished);
        std::string before = readFile(kPlanFile);
        m.setRunningTestcasesTick();
        m.updateRunningTestcasesTick(10, true);
        EXPECT_TRUE(m.sendEvent(TICK, nullptr, nullptr, 10, 0));
        if (!runFinished) EXPECT_TRUE(m.resetRunningTestcasesTick());
        EXPECT_EQ(readFile(kPlanFile), before);
    }
    EXPECT_TRUE(machineWith({}).checkRunningTestcasesTickToTarget());
    OstrelFSM& live = machineWith(plan, true, false);
    std::string before = readFile(kPlanFile);
    EXPECT_TRUE(live.resetRunningTestcasesTick());
    EXPECT_EQ(readFile(kPlanFile), before);

    OstrelFSM& done = machineWith(plan, true, true);
    EXPECT_TRUE(done.resetRunningTestcasesTick());
    OstrelFSMData& d = done.planStore();
    EXPECT_FALSE(d.getRunStart() || d.getRunFinished());
    std::vector<int> after = {d.getTestcaseCurrentTime(0), d.getTestcaseTargetTime(0),
                              d.getTestcaseCurrentTime(1), d.getTestcaseTargetTime(1),
                              d.getTestcaseCurrentRound(2), d.getTestcaseTargetRound(2)};
    EXPECT_EQ(after, std::vector<int>({0, 7200, 0, 3600, 0, 3}));
}
