// The plan store against real files in the sandbox's data partition.
#include "OstrelFSMData.h"

#include <cstdlib>
#include <random>

#include "TestSupport.h"

using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

namespace {

std::string takeJSON(OstrelFSMData& store) {
    char* text = store.getJSON();
    std::string s = text ? text : "<null>";
    free(text);
    return s;
}

}  // namespace

// A missing or invalid plan file is replaced by the built-in placeholder, which
// is never handed out; a valid file is adopted as found.
TEST(OstrelFSMData, InvalidPlanFilesAreReplacedAndOddStatesReadAsIdle) {
    CaptureStderr();
    OstrelFSMData created;
    EXPECT_EQ(GetCapturedStderr(), "Log at OstrelFSMData: init Document\n");
    const std::string placeholder = readFile(kPlanFile);
    EXPECT_EQ(created.getState(), IDLE);
    EXPECT_FALSE(created.getTestcaseIsSelect(0));
    CaptureStderr();
    EXPECT_EQ(created.getJSON(), nullptr);
    EXPECT_EQ(GetCapturedStderr(),
              "Log at OstrelFSMData: ostrel: Document is not set, null string\n");

    for (const char* bad : {"{\"run_start\":true}", "{\"current_state\":1", "[1,2]", "", "null"}) {
        writeFile(kPlanFile, bad);
        CaptureStderr();
        OstrelFSMData store;
        EXPECT_EQ(GetCapturedStderr(),
                  "Log at OstrelFSMData: FSM data file is not correct!!\n"
                  "Log at OstrelFSMData: init Document\n")
                << bad;
        EXPECT_EQ(readFile(kPlanFile), placeholder) << bad;
    }
    // A state outside the machine is kept in the file and reads, and is written, as IDLE.
    for (const char* stored : {"7", "-1", "\"2\"", "2.0", "true", "4294967298"}) {
        writeFile(kPlanFile, std::string("{\"current_state\":") + stored + "}");
        OstrelFSMData store;
        EXPECT_EQ(store.getState(), IDLE) << stored;
    }
    writeFile(kPlanFile, "{\"current_state\":1}");
    OstrelFSMData store;
    store.setState(static_cast<PlannerFSMState>(9));
    EXPECT_EQ(readFile(kPlanFile), "{\"current_state\":0}");
    store.setState(COMPLETING);
    EXPECT_EQ(readFile(kPlanFile), "{\"current_state\":3}");
}

TEST(OstrelFSMData, KeepsMemberOrderAndUnknownKeysThroughEveryWrite) {
    OstrelFSMData store;
    ASSERT_TRUE(store.putJSON(
            "{\"zeta\": [1, {\"k\": \"v\"}], \"run_finished\": \"no\", \"current_state\": 1,"
            " \"testcases\": [{\"testcase_current_time\": 5, \"extra\": null, \"name\": \"a\"}],"
            " \"run_start\": 1}"));
    store.setState(RUNNING);
    store.setRunStart(true);
    store.setRunFinished(true);
    store.setTestcaseCurrentTime(0, 15);
    store.setTestcaseTargetTime(0, 20);  // missing key: not added
    const std::string expected =
            "{\"zeta\":[1,{\"k\":\"v\"}],\"run_finished\":true,\"current_state\":2,"
            "\"testcases\":[{\"testcase_current_time\":15,\"extra\":null,\"name\":\"a\"}],"
            "\"run_start\":true}";
    EXPECT_EQ(readFile(kPlanFile), expected);
    EXPECT_EQ(takeJSON(store), expected);
}

TEST(OstrelFSMData, WrongTypesReadAsMissingKeys) {
    OstrelFSMData store;
    const char* plans[] = {
            // numbers as strings, strings as numbers, booleans as numbers
            "{\"current_state\":\"1\",\"run_start\":1,\"run_finished\":\"true\",\"testcases\":"
            "[{\"select\":\"true\",\"command\":42,\"testcase_value\":\"3\",\"isRound\":1,"
            "\"isBootTest\":\"yes\",\"testcase_current_time\":[1],\"testcase_target_time\":{},"
            "\"testcase_current_round\":1.5,\"testcase_target_round\":99999999999}]}",
            // arrays where objects are expected
            "{\"current_state\":1,\"testcases\":[[1,2],\"x\",null,7]}",
            // "testcases" not an array
            "{\"current_state\":1,\"testcases\":{\"0\":{\"select\":true}}}",
            "{\"current_state\":1,\"testcases\":\"many\"}",
    };
    for (const char* plan : plans) {
        ASSERT_TRUE(store.putJSON(plan)) << plan;
        EXPECT_EQ(store.getState(), plan == plans[0] ? IDLE : PREPARING);
        EXPECT_FALSE(store.getRunStart() || store.getRunFinished());
        for (int i = -1; i <= store.getTestcasesLength() + 1; i++) {
            std::vector<int> read = {
                    store.getTestcaseCommand(i) != nullptr, store.getTestcaseIsSelect(i),
                    store.getTestcaseIsRound(i),            store.getTestcaseIsBootTest(i),
                    store.getTestcaseValue(i),              store.getTestcaseCurrentTime(i),
                    store.getTestcaseTargetTime(i),         store.getTestcaseCurrentRound(i),
                    store.getTestcaseTargetRound(i)};
            EXPECT_EQ(read, std::vector<int>(9, 0)) << plan << ", test case " << i;
        }
    }
    // A setter replaces a value of any type in place.
    ASSERT_TRUE(store.putJSON(plans[0]));
    EXPECT_TRUE(store.setTestcaseTargetRound(0, -3));
    EXPECT_EQ(store.getTestcaseTargetRound(0), -3);
}

// Text that does not parse leaves the plan in force; JSON that is no object is
// refused, empties the document (IDLE) and is never written.
TEST(OstrelFSMData, TextThatIsNoPlanIsNeverStored) {
    OstrelFSMData store;
    ASSERT_TRUE(store.putJSON("{\"not_set\": false, \"current_state\": 1, \"testcases\": []}"));
    store.setState(PREPARING);  // written
    const std::string plan = "{\"not_set\":false,\"current_state\":1,\"testcases\":[]}";
    for (const std::string& bad : {std::string("not json"), std::string(""),
                                   std::string("{\"a\":1} trailing"), std::string(100000, '['),
                                   std::string("{\"x\":") + std::string(300, '{')}) {
        EXPECT_TRUE(store.putJSON(bad.c_str()));
        EXPECT_EQ(takeJSON(store), plan);
    }
    EXPECT_FALSE(store.putJSON(nullptr));
    EXPECT_EQ(readFile(kPlanFile), plan);

    CaptureStderr();
    EXPECT_FALSE(store.putJSON("[1, 2, 3]"));
    EXPECT_EQ(store.getJSON(), nullptr);
    store.setState(PREPARING);
    EXPECT_EQ(GetCapturedStderr(),
              "Log at OstrelFSMData: Document is empty, put NULL JSON\n"
              "Log at OstrelFSMData: ostrel: Document is empty, null string\n"
              "Log at OstrelFSMData: Document is empty\n");
    EXPECT_EQ(readFile(kPlanFile), plan);
    EXPECT_EQ(store.getState(), IDLE);
    EXPECT_FALSE(store.setTestcaseCurrentTime(0, 1));
}

// A process killed in the middle of rewriting a large plan leaves a file that still
// loads as the old or the new plan.
TEST(OstrelFSMData, KillDuringWriteLeavesAWholePlan) {
    std::string words;
    for (int i = 0; i < 40000; i++) words += "w" + std::to_string(i) + " ";
    auto planWith = [&](int mark) {
        return "{\"not_set\":false,\"current_state\":1,\"mark\":" + std::to_string(mark) +
               ",\"testcases\":[{\"command\":\"" + words + "\"}]}";
    };
    {
        OstrelFSMData store;
        ASSERT_TRUE(store.putJSON(planWith(0).c_str()));
        store.setState(PREPARING);
    }
    std::mt19937 rng(42);
    for (int round = 0; round < 25; round++) {
        pid_t child = fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            OstrelFSMData store;
            for (int mark = 1;; mark++) {
                store.putJSON(planWith(mark).c_str());
                store.setState(PREPARING);
            }
        }
        usleep(2000 + rng() % 30000);
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);

        CaptureStderr();
        OstrelFSMData reloaded;
        EXPECT_EQ(GetCapturedStderr(), "") << "round " << round;
        EXPECT_EQ(reloaded.getState(), PREPARING);
        EXPECT_TRUE(contains(takeJSON(reloaded), words)) << "round " << round;
    }
}
