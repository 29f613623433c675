// The test-case runner: the executor's command line from the selected test cases
// with what is left of each, as the stand-in executor receives and consumes it.
#include <gtest/gtest.h>

#include "TestSupport.h"

using namespace vendor::brevane::hardware::ostrel::core;
using namespace ostrel_test;

namespace {

// Starts the test cases of |plan| (a live run) and returns the captured stderr
// once the stand-in has finished.
std::string runPlan(const std::vector<Testcase>& plan) {
    writePlan(planJson(RUNNING, true, false, plan));
    OstrelFSM& m = newMachine();
    StderrCapture err;
    EXPECT_TRUE(m.runTestcases());
    EXPECT_GE(m.executorPid(), 1);
    EXPECT_TRUE(m.threadsAreRunning());
    EXPECT_TRUE(waitFor([] { return executorLog().find("kelbrun: done\n") != std::string::npos; },
                        10))
            << executorLog();
    err.restore();
    return err.text();
}

Testcase rounds(const std::string& command, int target, int current) {
    Testcase t;
    t.command = command;
    t.targetRound = target;
    t.currentRound = current;
    return t;
}

Testcase hours(const std::string& command, int target, int current) {
    Testcase t;
    t.command = command;
    t.isRound = false;
    t.targetTime = target;
    t.currentTime = current;
    return t;
}

}  // namespace

TEST(OstrelFSMRunner, CommandLineCarriesWhatIsLeftOfEachSelectedTestCase) {
    Testcase skipped = rounds("\"say skipped\"", 4, 0);
    skipped.select = false;
    std::string err = runPlan({
            rounds("\"say a\"", 3, 5),        // passed its target: -2
            skipped,                          // not selected: not in the line
            hours("\"say b\"", 3600, 0),      // one hour: 1
            hours("\"say\\t c\"", 3601, 0),   // a second more: 2
            hours("\"say d\"", 7200, 7200),   // reached: 0
            hours("\"say e\"", 36000, 18000), // five hours left: 5
            hours("\"say f\"", 0, 1),         // -1 s rounds to 1
            hours("\"say g\"", 0, 3601),      // -3601 s: 0
            hours("\"say h\"", 0, 7200),      // -7200 s: -2
            rounds("\" say \\n  i \"", 2, 0), // white space runs split words
    });
    std::string line =
            "/vendor/bin/kelbrun say a -2 say b 1 say\t c 2 say d 0 say e 5 say f 1 say g 0 "
            "say h -2  say \n  i  2";
    EXPECT_NE(err.find(diagnostic("ostrel: run executor command: " + line + "\n")),
              std::string::npos)
            << err;

    std::string log = executorLog();
    EXPECT_NE(log.find("arguments: say a -2 say b 1 say c 2 say d 0 say e 5 say f 1 say g 0 "
                       "say h -2 say i 2\n"),
              std::string::npos)
            << log;
    // What the stand-in did with each count.
    for (const char* expected :
         {"kelbrun: say: nothing left (-2), skipped\n", "kelbrun: say b, round 1 of 1\n",
          "kelbrun: say c, round 2 of 2\n", "kelbrun: say: nothing left (0), skipped\n",
          "kelbrun: say e, round 5 of 5\n", "kelbrun: say f, round 1 of 1\n",
          "kelbrun: say i, round 2 of 2\n"}) {
        EXPECT_NE(log.find(expected), std::string::npos) << expected;
    }
    EXPECT_EQ(log.find("skipped,"), std::string::npos);
    EXPECT_EQ(log.find("say g,"), std::string::npos);
    EXPECT_EQ(log.find("say h,"), std::string::npos);
}
