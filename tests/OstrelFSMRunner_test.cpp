// The test-case runner: the executor's command line from the selected test cases
// with what is left of each, as the stand-in executor receives it.

#include "TestSupport.h"

namespace {

// A test case whose command is the JSON text |command|, with its counters.
Testcase left(const std::string& command, bool isRound, int target, int current) {
    Testcase t;
    t.command = command;
    t.isRound = isRound;
    (isRound ? t.targetRound : t.targetTime) = target;
    (isRound ? t.currentRound : t.currentTime) = current;
    return t;
}

}  // namespace

TEST(OstrelFSMRunner, CommandLineCarriesWhatIsLeftOfEachSelectedTestCase) {
    Testcase skipped = left("\"say skipped\"", true, 4, 0);
    skipped.select = false;
    std::string big;
    while (big.size() < 100 * 1024) big += "a ";
    big.pop_back();
    writeFile(kPlanFile, planJson(RUNNING, true, false, {
            left("\"say a\"", true, 3, 5),         // passed its target: -2
            skipped,                               // not selected: not in the line
            left("\"say b\"", false, 3600, 0),     // one hour: 1
            left("\"say\\t c\"", false, 3601, 0),  // a second more: 2
            left("\"say d\"", false, 7200, 7200),  // reached: 0
            left("\"say e\"", false, 36000, 18000),// five hours left: 5
            left("\"say f\"", false, 0, 1),        // -1 s rounds to 1
            left("\"say g\"", false, 0, 3601),     // -3601 s: 0
            left("\"say h\"", false, 0, 7200),     // -7200 s: -2
            left("\" say \\n  i \"", true, 2, 0),  // white space runs split words
            left("\"" + big + "\"", true, 1, 0),   // a 100 KiB command
            left("42", true, 2, 0),                // a command that is no string: no word
            left("", true, 3, 0),                  // no command: no word
    }));
    OstrelFSM& m = newMachine();
    StderrCapture err;
    EXPECT_TRUE(m.runTestcases());
    EXPECT_GE(m.executorPid(), 1);
    EXPECT_TRUE(m.threadsAreRunning());
    EXPECT_TRUE(waitFor([] { return contains(executorLog(), "kelbrun: done\n"); }, 30));
    err.restore();
    std::string line = "/vendor/bin/kelbrun say a -2 say b 1 say\t c 2 say d 0 say e 5 say f 1 "
                       "say g 0 say h -2  say \n  i  2 " + big + " 1  2  3";
    EXPECT_TRUE(contains(err.text(), diagnostic("ostrel: run executor command: " + line + "\n")))
            << err.text().substr(0, 2000);
    // The executor gets the words of that line.
    EXPECT_TRUE(contains(executorLog(), "arguments: say a -2 say b 1 say c 2 say d 0 say e 5 "
                                        "say f 1 say g 0 say h -2 say i 2 " + big + " 1 2 3\n"));
}
