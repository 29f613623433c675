// Progress accounting on real plan files: targets, ticks, boots, guards and reset.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "OstrelFSM.h"
#include "TestSupport.h"

using namespace vendor::brevane::hardware::ostrel::core;
using ostrel_test::readFile;

namespace {

std::string testcase(const char* name, bool select, bool isRound, int value, int cur, int target,
                     const char* boot = nullptr) {
    std::string counters = isRound ? ",\"testcase_current_time\":0,\"testcase_target_time\":0,"
                                     "\"testcase_current_round\":" +
                                             std::to_string(cur) +
                                             ",\"testcase_target_round\":" + std::to_string(target)
                                   : ",\"testcase_current_time\":" + std::to_string(cur) +
                                             ",\"testcase_target_time\":" +
                                             std::to_string(target) +
                                             ",\"testcase_current_round\":0,"
                                             "\"testcase_target_round\":0";
    return std::string("{\"name\":\"") + name + "\",\"select\":" + (select ? "true" : "false") +
           ",\"command\":\"x\",\"testcase_value\":" + std::to_string(value) +
           ",\"isRound\":" + (isRound ? "true" : "false") +
           (boot ? std::string(",\"isBootTest\":") + boot : "") + counters + "}";
}

// A machine in RUNNING with the given test cases and flags.
OstrelFSM* machineWith(const std::string& cases, bool runStart = true, bool runFinished = false) {
    auto* fsm = new OstrelFSM(nullptr);
    std::string plan = std::string("{\"not_set\":false,\"current_state\":2,\"run_start\":") +
                       (runStart ? "true" : "false") +
                       ",\"run_finished\":" + (runFinished ? "true" : "false") +
                       ",\"testcases\":[" + cases + "]}";
    EXPECT_TRUE(fsm->planStore().putJSON(plan.c_str()));
    fsm->planStore().writeFSMData();
    return fsm;
}

}  // namespace

TEST(OstrelFSMProgress, TimeTargetsAreHoursInWrapping32BitSeconds) {
    std::unique_ptr<OstrelFSM> fsm(machineWith(
            testcase("a", true, false, 2, 99, 99) + "," + testcase("b", false, false, 3, 5, 6) +
            "," + testcase("wrap", true, false, 596524, 1, 1) + "," +
            testcase("rounds", true, true, 4, 9, 9)));
    OstrelFSMData& d = fsm->planStore();
    EXPECT_TRUE(fsm->setRunningTestcasesTick());
    EXPECT_EQ(d.getTestcaseTargetTime(0), 7200);
    EXPECT_EQ(d.getTestcaseCurrentTime(0), 0);
    EXPECT_EQ(d.getTestcaseCurrentTime(1), 5);  // not selected: untouched
    EXPECT_EQ(d.getTestcaseTargetTime(1), 6);
    EXPECT_EQ(d.getTestcaseTargetTime(2), -2147480896);  // 596524 h wraps negative
    EXPECT_EQ(d.getTestcaseTargetRound(3), 4);
    EXPECT_EQ(d.getTestcaseCurrentRound(3), 0);
    // A round-based test case that is not a boot test never holds the run back.
    EXPECT_FALSE(fsm->checkRunningTestcasesTickToTarget());
    for (int i = 0; i < 720; i++) fsm->updateRunningTestcasesTick(10, false);
    EXPECT_EQ(d.getTestcaseCurrentTime(0), 7200);
    EXPECT_EQ(d.getTestcaseCurrentRound(3), 0);
    EXPECT_TRUE(fsm->checkRunningTestcasesTickToTarget());
    EXPECT_NE(readFile(kPlanFile).find("\"testcase_current_time\":7200"), std::string::npos);
}

TEST(OstrelFSMProgress, OvershootIsPulledBackOnlyByALaterUpdate) {
    std::unique_ptr<OstrelFSM> fsm(machineWith(testcase("a", true, false, 2, 7195, 7200) + "," +
                                               testcase("zero", true, false, 0, 0, 0) + "," +
                                               testcase("long", true, false, 1, 0, 3600)));
    OstrelFSMData& d = fsm->planStore();
    // TICK reaches the update while "long" is short of its target.
    EXPECT_TRUE(fsm->sendEvent(TICK, nullptr, nullptr, 10, 0));
    EXPECT_EQ(d.getTestcaseCurrentTime(0), 7205);
    EXPECT_EQ(d.getTestcaseCurrentTime(1), 0);  // target 0: rewritten as 0
    EXPECT_TRUE(fsm->sendEvent(TICK, nullptr, nullptr, 10, 0));
    EXPECT_EQ(d.getTestcaseCurrentTime(0), 7200);
    EXPECT_EQ(d.getTestcaseCurrentTime(2), 20);

    // Once every counted target is reached, TICK makes no update: the overshoot stays.
    std::unique_ptr<OstrelFSM> alone(machineWith(testcase("a", true, false, 2, 7195, 7200)));
    EXPECT_TRUE(alone->sendEvent(TICK, nullptr, nullptr, 10, 0));
    EXPECT_TRUE(alone->sendEvent(TICK, nullptr, nullptr, 10, 0));
    EXPECT_EQ(alone->planStore().getTestcaseCurrentTime(0), 7205);
    // A boot completion's update (0 seconds) pulls it back.
    alone->updateRunningTestcasesTick(0, true);
    EXPECT_EQ(alone->planStore().getTestcaseCurrentTime(0), 7200);
}

TEST(OstrelFSMProgress, BootTestsCountCompletedBootsOnly) {
    std::unique_ptr<OstrelFSM> fsm(machineWith(testcase("boot", true, true, 3, 0, 0, "true") + "," +
                                               testcase("time", true, false, 1, 100, 3600)));
    OstrelFSMData& d = fsm->planStore();
    fsm->setRunningTestcasesTick();
    EXPECT_EQ(d.getTestcaseTargetRound(0), 3);
    for (int i = 0; i < 5; i++) fsm->updateRunningTestcasesTick(10, false);
    EXPECT_EQ(d.getTestcaseCurrentRound(0), 0);  // ticks never count rounds
    EXPECT_EQ(d.getTestcaseCurrentTime(1), 50);
    int seen[5];
    for (int i = 0; i < 5; i++) {
        fsm->updateRunningTestcasesTick(0, true);
        seen[i] = d.getTestcaseCurrentRound(0);
    }
    EXPECT_EQ(std::vector<int>(seen, seen + 5), std::vector<int>({1, 2, 3, 3, 3}));
    EXPECT_EQ(d.getTestcaseCurrentTime(1), 50);  // a boot adds 0 seconds
    EXPECT_FALSE(fsm->checkRunningTestcasesTickToTarget());  // "time" is still short

    // A round above its target is pulled back to it.
    d.setTestcaseCurrentRound(0, 7);
    fsm->updateRunningTestcasesTick(0, true);
    EXPECT_EQ(d.getTestcaseCurrentRound(0), 3);
}

TEST(OstrelFSMProgress, NothingIsCountedOutsideALiveRun) {
    const std::string cases = testcase("a", true, false, 2, 10, 20) + "," +
                              testcase("boot", true, true, 3, 1, 3, "true");
    for (auto flags : {std::make_pair(false, false), std::make_pair(true, true),
                       std::make_pair(false, true)}) {
        std::unique_ptr<OstrelFSM> fsm(machineWith(cases, flags.first, flags.second));
        std::string before = readFile(kPlanFile);
        fsm->setRunningTestcasesTick();
        fsm->updateRunningTestcasesTick(10, true);
        EXPECT_TRUE(fsm->checkRunningTestcasesTickToTarget());
        EXPECT_TRUE(fsm->sendEvent(TICK, nullptr, nullptr, 10, 0));
        EXPECT_EQ(readFile(kPlanFile), before);
    }
    std::unique_ptr<OstrelFSM> empty(machineWith(""));
    EXPECT_TRUE(empty->checkRunningTestcasesTickToTarget());
}

TEST(OstrelFSMProgress, ResetAppliesOnlyToAFinishedRunAndCoversEveryTestcase) {
    const std::string cases = testcase("sel", true, false, 2, 7300, 7200) + "," +
                              testcase("unsel", false, false, 1, 50, 60) + "," +
                              testcase("rounds", false, true, 4, 2, 9);
    // The guard is the opposite of the others: a live run is not reset.
    std::unique_ptr<OstrelFSM> live(machineWith(cases, true, false));
    std::string before = readFile(kPlanFile);
    EXPECT_TRUE(live->resetRunningTestcasesTick());
    EXPECT_EQ(readFile(kPlanFile), before);

    std::unique_ptr<OstrelFSM> done(machineWith(cases, true, true));
    EXPECT_TRUE(done->resetRunningTestcasesTick());
    OstrelFSMData& d = done->planStore();
    EXPECT_FALSE(d.getRunStart());
    EXPECT_FALSE(d.getRunFinished());
    EXPECT_EQ(d.getTestcaseCurrentTime(0), 0);
    EXPECT_EQ(d.getTestcaseTargetTime(0), 7200);
    EXPECT_EQ(d.getTestcaseCurrentTime(1), 0);
    EXPECT_EQ(d.getTestcaseTargetTime(1), 3600);
    EXPECT_EQ(d.getTestcaseCurrentRound(2), 0);
    EXPECT_EQ(d.getTestcaseTargetRound(2), 4);

    // Without test cases the reset still clears both flags.
    std::unique_ptr<OstrelFSM> empty(machineWith("", true, true));
    empty->resetRunningTestcasesTick();
    EXPECT_FALSE(empty->planStore().getRunStart());
    EXPECT_FALSE(empty->planStore().getRunFinished());
}
