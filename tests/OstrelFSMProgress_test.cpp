// Progress accounting on real plan files: targets, ticks, boots, guards and reset.
#include <gtest/gtest.h>

#include "TestSupport.h"

using namespace vendor::brevane::hardware::ostrel::core;
using namespace ostrel_test;

namespace {

Testcase counted(bool isRound, int value, int current, int target, bool select = true) {
    Testcase t = isRound ? rounds("x", value) : hours("x", value);
    (isRound ? t.currentRound : t.currentTime) = current;
    (isRound ? t.targetRound : t.targetTime) = target;
    t.select = select;
    return t;
}

// A machine in RUNNING with the given test cases and run flags.
OstrelFSM& machineWith(const std::vector<Testcase>& plan, bool runStart = true,
                       bool runFinished = false) {
    writePlan(planJson(RUNNING, runStart, runFinished, plan));
    return newMachine();
}

}  // namespace

TEST(OstrelFSMProgress, TimeTargetsAreHoursInWrapping32BitSeconds) {
    OstrelFSM& m = machineWith({counted(false, 2, 99, 99), counted(false, 3, 5, 6, false),
                                counted(false, 596524, 1, 1), counted(true, 4, 9, 9)});
    OstrelFSMData& d = m.planStore();
    EXPECT_TRUE(m.setRunningTestcasesTick());
    EXPECT_EQ(d.getTestcaseTargetTime(0), 7200);
    EXPECT_EQ(d.getTestcaseCurrentTime(0), 0);
    EXPECT_EQ(d.getTestcaseCurrentTime(1), 5);  // not selected: untouched
    EXPECT_EQ(d.getTestcaseTargetTime(1), 6);
    EXPECT_EQ(d.getTestcaseTargetTime(2), -2147480896);  // 596524 h wraps negative
    EXPECT_EQ(d.getTestcaseTargetRound(3), 4);
    EXPECT_EQ(d.getTestcaseCurrentRound(3), 0);
    // A round-based test case that is not a boot test never holds the run back.
    EXPECT_FALSE(m.checkRunningTestcasesTickToTarget());
    for (int i = 0; i < 720; i++) m.updateRunningTestcasesTick(10, false);
    EXPECT_EQ(d.getTestcaseCurrentTime(0), 7200);
    EXPECT_EQ(d.getTestcaseCurrentRound(3), 0);
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

TEST(OstrelFSMProgress, BootTestsCountCompletedBootsOnly) {
    Testcase boot = counted(true, 3, 0, 0);
    boot.isBootTest = true;
    OstrelFSM& m = machineWith({boot, counted(false, 1, 100, 3600)});
    OstrelFSMData& d = m.planStore();
    m.setRunningTestcasesTick();
    EXPECT_EQ(d.getTestcaseTargetRound(0), 3);
    for (int i = 0; i < 5; i++) m.updateRunningTestcasesTick(10, false);
    EXPECT_EQ(d.getTestcaseCurrentRound(0), 0);  // ticks never count rounds
    EXPECT_EQ(d.getTestcaseCurrentTime(1), 50);
    std::vector<int> seen;
    for (int i = 0; i < 5; i++) {
        m.updateRunningTestcasesTick(0, true);
        seen.push_back(d.getTestcaseCurrentRound(0));
    }
    EXPECT_EQ(seen, std::vector<int>({1, 2, 3, 3, 3}));
    EXPECT_EQ(d.getTestcaseCurrentTime(1), 50);  // a boot adds 0 seconds
    EXPECT_FALSE(m.checkRunningTestcasesTickToTarget());
    d.setTestcaseCurrentRound(0, 7);  // above its target: pulled back
    m.updateRunningTestcasesTick(0, true);
    EXPECT_EQ(d.getTestcaseCurrentRound(0), 3);
}

// Counting needs a live run; the reset needs a finished one.
TEST(OstrelFSMProgress, CountingAndResetFollowTheRunFlags) {
    Testcase boot = counted(true, 3, 1, 3);
    boot.isBootTest = true;
    const std::vector<Testcase> plan = {counted(false, 2, 7300, 7200),
                                        counted(false, 1, 50, 60, false), boot};
    for (auto flags : {std::make_pair(false, false), std::make_pair(true, true),
                       std::make_pair(false, true)}) {
        OstrelFSM& m = machineWith(plan, flags.first, flags.second);
        std::string before = readFile(kPlanFile);
        m.setRunningTestcasesTick();
        m.updateRunningTestcasesTick(10, true);
        EXPECT_TRUE(m.checkRunningTestcasesTickToTarget());
        EXPECT_TRUE(m.sendEvent(TICK, nullptr, nullptr, 10, 0));
        if (!flags.second) EXPECT_TRUE(m.resetRunningTestcasesTick());
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
    OstrelFSM& empty = machineWith({}, true, true);
    empty.resetRunningTestcasesTick();
    EXPECT_FALSE(empty.planStore().getRunStart() || empty.planStore().getRunFinished());
}
