// Dispatch to the handler of the persisted state, the IDLE transitions by the run
// flags, and the PREPARING plan exchange, with everything persisted in the plan file.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "OstrelFSM.h"
#include "TestSupport.h"

using namespace vendor::brevane::hardware::ostrel::core;
using ostrel_test::readFile;
using ostrel_test::writeFile;

namespace {

// Sends |event| with a memory stream and returns what the handler wrote.
std::string answer(OstrelFSM& fsm, PlannerEvent event, bool* result = nullptr) {
    char* buf = nullptr;
    size_t size = 0;
    FILE* fp = open_memstream(&buf, &size);
    bool ok = fsm.sendEvent(event, nullptr, nullptr, 0, reinterpret_cast<long>(fp));
    fclose(fp);
    std::string text(buf, size);
    free(buf);
    if (result) *result = ok;
    return text;
}

std::string planWithFlags(int state, bool runStart, bool runFinished) {
    return "{\"current_state\":" + std::to_string(state) +
           ",\"run_start\":" + (runStart ? "true" : "false") +
           ",\"run_finished\":" + (runFinished ? "true" : "false") + ",\"testcases\":[]}";
}

}  // namespace

TEST(OstrelFSMDispatch, BootCompletedInIdleFollowsTheRunFlags) {
    struct Case {
        bool runStart, runFinished;
        PlannerFSMState expected;
    } cases[] = {{false, false, PREPARING}, {false, true, PREPARING},
                 {true, false, RUNNING},    {true, true, COMPLETING}};
    for (const Case& c : cases) {
        writeFile(kPlanFile, planWithFlags(0, c.runStart, c.runFinished));
        OstrelFSM fsm(nullptr);
        // Nothing but BOOT_COMPLETED acts in IDLE, and 0 or 13 act nowhere.
        for (int e : {0, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13}) {
            EXPECT_TRUE(fsm.sendEvent(static_cast<PlannerEvent>(e), nullptr, nullptr, 0, 0));
            EXPECT_EQ(fsm.getState(), IDLE);
        }
        EXPECT_EQ(readFile(kPlanFile), planWithFlags(0, c.runStart, c.runFinished));
        EXPECT_TRUE(fsm.sendEvent(BOOT_COMPLETED, nullptr, nullptr, 0, 0));
        EXPECT_EQ(fsm.getState(), c.expected);
        // The new state is in the file, and a restarted service finds it.
        OstrelFSM restarted(nullptr);
        EXPECT_EQ(restarted.getState(), c.expected);
        EXPECT_EQ(fsm.executorPid(), 0);  // RUNNING restored: nothing started yet
    }
}

TEST(OstrelFSMDispatch, InvalidStoredStatesAreHandledAsIdle) {
    for (const char* stored : {"7", "-1", "255", "\"RUNNING\""}) {
        writeFile(kPlanFile,
                  std::string("{\"current_state\":") + stored + ",\"run_start\":false}");
        OstrelFSM fsm(nullptr);
        EXPECT_EQ(fsm.getState(), IDLE);
        // Not BOOT_COMPLETED: IDLE answers true and the value stays as stored.
        EXPECT_TRUE(fsm.sendEvent(GET_TEST, nullptr, nullptr, 0, 0));
        EXPECT_EQ(readFile(kPlanFile),
                  std::string("{\"current_state\":") + stored + ",\"run_start\":false}");
        EXPECT_TRUE(fsm.sendEvent(BOOT_COMPLETED, nullptr, nullptr, 0, 0));
        EXPECT_EQ(readFile(kPlanFile), "{\"current_state\":1,\"run_start\":false}");
    }
}

TEST(OstrelFSMDispatch, PreparingStoresAndHandsOutThePlan) {
    OstrelFSM fsm(nullptr);
    ASSERT_TRUE(fsm.sendEvent(BOOT_COMPLETED, nullptr, nullptr, 0, 0));
    ASSERT_EQ(fsm.getState(), PREPARING);

    // The placeholder plan is not handed out.
    bool ok = true;
    EXPECT_EQ(answer(fsm, GET_TEST, &ok), "");
    EXPECT_FALSE(ok);

    std::string plan =
            "{\"not_set\": false, \"current_state\": 0, \"run_start\": false, "
            "\"run_finished\": false, \"testcases\": [{\"name\": \"idle\", \"select\": true, "
            "\"command\": \"sleep 1\", \"testcase_value\": 2, \"isRound\": false, "
            "\"testcase_current_time\": 0, \"testcase_target_time\": 0, "
            "\"testcase_current_round\": 0, \"testcase_target_round\": 0}], \"owner\": \"lab 3\"}";
    EXPECT_TRUE(fsm.sendEvent(SET_TEST, &plan[0], nullptr, 0, 0));
    // The handler writes PREPARING over the plan's own state.
    std::string stored =
            "{\"not_set\":false,\"current_state\":1,\"run_start\":false,\"run_finished\":false,"
            "\"testcases\":[{\"name\":\"idle\",\"select\":true,\"command\":\"sleep 1\","
            "\"testcase_value\":2,\"isRound\":false,\"testcase_current_time\":0,"
            "\"testcase_target_time\":0,\"testcase_current_round\":0,"
            "\"testcase_target_round\":0}],\"owner\":\"lab 3\"}";
    EXPECT_EQ(readFile(kPlanFile), stored);
    EXPECT_EQ(answer(fsm, GET_TEST, &ok), stored);
    EXPECT_TRUE(ok);

    // A text that does not parse leaves the plan; an array is refused.
    std::string broken = "{\"testcases\": [";
    EXPECT_TRUE(fsm.sendEvent(SET_TEST, &broken[0], nullptr, 0, 0));
    EXPECT_EQ(readFile(kPlanFile), stored);
    std::string array = "[]";
    EXPECT_FALSE(fsm.sendEvent(SET_TEST, &array[0], nullptr, 0, 0));
    EXPECT_EQ(readFile(kPlanFile), stored);
    // INSTALL_TESTERS is switched off but answers true.
    std::string file = "/data/local/tmp/tester.apk";
    EXPECT_TRUE(fsm.sendEvent(INSTALL_TESTERS, &file[0], nullptr, 4, 0));
    EXPECT_FALSE(ostrel_test::fileExists(file));
}

TEST(OstrelFSMDispatch, PlanWithoutStateCannotKeepPreparing) {
    OstrelFSM fsm(nullptr);
    fsm.sendEvent(BOOT_COMPLETED, nullptr, nullptr, 0, 0);
    std::string plan = "{\"testcases\":[]}";
    EXPECT_TRUE(fsm.sendEvent(SET_TEST, &plan[0], nullptr, 0, 0));
    // The plan has no "current_state": the store reads IDLE, and the file is
    // rejected at the next start.
    EXPECT_EQ(fsm.getState(), IDLE);
    EXPECT_EQ(readFile(kPlanFile), "{\"testcases\":[]}");
    OstrelFSM restarted(nullptr);
    EXPECT_EQ(restarted.getState(), IDLE);
    EXPECT_EQ(restarted.planStore().getTestcasesLength(), 1);
}
