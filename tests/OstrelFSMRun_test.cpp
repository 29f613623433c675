// Whole runs through sendEvent with the stand-in executor: the executor's own end,
// aborts (also of a group that ignores SIGTERM, and of a run with no executor),
// resume after a restart, plans with values of the wrong type, and the result.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>

#include <algorithm>
#include <regex>

#include "TestSupport.h"

using namespace vendor::brevane::hardware::ostrel::core;
using namespace ostrel_test;

namespace {

const char* const kResults = "/data/vendor/qav/results/QAV20240131_235959";

time_t lastSecondOfJanuary(time_t* t) {
    time_t v = 1706745599;  // 2024-01-31 23:59:59 UTC
    if (t) *t = v;
    return v;
}

time_t noClock(time_t* t) {
    if (t) *t = -1;
    return -1;
}

// A machine in PREPARING with |plan|, started, with ticks |tick| apart.
OstrelFSM& start(const std::vector<Testcase>& plan,
                 std::chrono::milliseconds tick = std::chrono::seconds(kTickSeconds)) {
    writePlan(planJson(PREPARING, false, false, plan));
    OstrelFSM& m = newMachine();
    m.setRunTimings(tick, kHistoryRetry);
    EXPECT_TRUE(m.sendEvent(RUN_START, nullptr, nullptr, 0, 0));
    EXPECT_GE(m.executorPid(), 1);
    return m;
}

void expectRunEnded(OstrelFSM& m) {
    EXPECT_EQ(m.getState(), COMPLETING);
    EXPECT_EQ(m.executorPid(), -1);
    EXPECT_FALSE(m.threadsAreRunning());
    EXPECT_TRUE(m.planStore().getRunStart() && m.planStore().getRunFinished());
}

}  // namespace

TEST(OstrelFSMRun, RunEndsByItselfAndHandsOverArchiveAndHistory) {
    setenv("TZ", "UTC", 1);
    tzset();
    // Left over from an earlier run: cleared when the run starts.
    writeFile("/data/vendor/qav/kelbrun/stale", "old");
    writeFile(kHistoryCopy, "old crash\n");
    StderrCapture err;
    OstrelFSM& m = start({rounds("sleep 1 1 crash long oops", 2), hours("say hour", 1)},
                         std::chrono::seconds(2));
    m.setTimeSource(lastSecondOfJanuary);
    pid_t supervisor = m.executorPid();

    // The executor ends after a second; the run ends at the first tick, 2 s in,
    // which counted 10 seconds of the hour.
    ASSERT_TRUE(waitFor([&] { return m.getState() == COMPLETING; }, 30));
    expectRunEnded(m);
    EXPECT_EQ(m.planStore().getTestcaseCurrentTime(1), 10);
    EXPECT_TRUE(contains(err.text(), diagnostic("ostrel: send finished event, process : " +
                                                std::to_string(supervisor) + ", status : 0x0009")))
            << err.text();
    EXPECT_FALSE(contains(err.text(), "terminate process group"));
    std::string log = executorLog();
    EXPECT_TRUE(contains(log, "arguments: sleep 1 1 crash long oops 2 say hour 1\n")) << log;

    EXPECT_EQ(answer(m, GET_RESULT), std::string(kResults) + ".zip, " + kResults + ".db_history");
    err.restore();
    EXPECT_EQ(m.getState(), PREPARING);
    EXPECT_EQ(readFile(std::string(kResults) + ".db_history"), "oops 2\n");
    std::string zip = std::string(kResults) + ".zip";
    std::vector<std::string> entries = zipEntries(zip);
    std::sort(entries.begin(), entries.end());
    EXPECT_EQ(entries, (std::vector<std::string>{"qav/data/", "qav/data/db_history",
                                                 "qav/data/ostreldata.txt", "qav/kelbrun/",
                                                 "qav/kelbrun/kelbrun_log.txt"}));
    EXPECT_EQ(zipContent(zip, "qav/data/db_history"), "oops 2\n");
    EXPECT_EQ(zipContent(zip, "qav/kelbrun/kelbrun_log.txt"), log);
    EXPECT_TRUE(contains(zipContent(zip, "qav/data/ostreldata.txt"), "\"current_state\":3"));

    // The counters and flags are reset, and the result cannot be asked for twice.
    EXPECT_FALSE(m.planStore().getRunStart() || m.planStore().getRunFinished());
    EXPECT_EQ(m.planStore().getTestcaseCurrentTime(1), 0);
    EXPECT_EQ(answer(m, GET_RESULT), "");
}

TEST(OstrelFSMRun, AbortKillsAGroupThatIgnoresTerm) {
    OstrelFSM& m = start({rounds("ignore-term", 1), rounds("child 60", 1),
                          rounds("detach 60", 1), rounds("sleep 60", 1)});
    pid_t group = m.executorPid();
    ASSERT_TRUE(waitFor([] { return contains(executorLog(), "kelbrun: sleep round 1 of 1"); }, 10));
    pid_t detached = numberAfter(executorLog(), "kelbrun: detached child ");
    // Supervisor, executor, child, sleep.
    EXPECT_TRUE(waitFor([&] { return liveGroupMembers(group).size() == 4u; }, 5));

    StderrCapture err;
    EXPECT_TRUE(m.sendEvent(RUN_ABORT, nullptr, nullptr, 0, 0));
    err.restore();
    expectRunEnded(m);
    std::string g = std::to_string(group);
    EXPECT_TRUE(contains(err.text(), diagnostic("ostrel: terminate process group: -" + g) +
                                             diagnostic("ostrel: delete process group again: -" + g)))
            << err.text();
    EXPECT_TRUE(waitFor([&] { return liveGroupMembers(group).empty(); }, 2));
    // A child that left the group is not the run's to end.
    EXPECT_TRUE(isLive(detached));
    kill(detached, SIGKILL);
}

TEST(OstrelFSMRun, AbortWithoutExecutorAndResultsWithAndWithoutHistory) {
    // Restored in RUNNING after a restart: nothing has been started in this process.
    writePlan(planJson(RUNNING, true, false, {rounds("sleep 60", 1)}));
    OstrelFSM& m = newMachine();
    EXPECT_EQ(m.executorPid(), 0);
    StderrCapture err;
    EXPECT_TRUE(m.sendEvent(RUN_ABORT, nullptr, nullptr, 0, 0));
    expectRunEnded(m);
    EXPECT_FALSE(contains(err.text(), "process group"));
    // No history copy was ever made: the client gets no names.
    EXPECT_EQ(answer(m, GET_RESULT), "");
    EXPECT_EQ(m.getState(), PREPARING);

    // Without a clock, a run whose group has ended: names of 8 hex digits.
    OstrelFSM& late = start({rounds("exit 0", 1)});
    ASSERT_EQ(waitpid(late.executorPid(), nullptr, 0), late.executorPid());
    EXPECT_TRUE(late.sendEvent(RUN_ABORT, nullptr, nullptr, 0, 0));
    expectRunEnded(late);
    late.setTimeSource(noClock);
    std::string result = answer(late, GET_RESULT);
    err.restore();
    std::smatch match;
    ASSERT_TRUE(std::regex_match(result, match,
                                 std::regex("/data/vendor/qav/results/QAV([0-9A-F]{8})\\.zip, "
                                            "/data/vendor/qav/results/QAV\\1\\.db_history")))
            << result;
    EXPECT_TRUE(fileExists(std::string(FSM_RESULT_DIR) + "/QAV" + match[1].str() + ".zip"));
}

TEST(OstrelFSMRun, BootTestResumesAfterRestartWithWhatIsLeft) {
    Testcase boot = rounds("sleep 1 1 crash long boot", 3);
    boot.isBootTest = true;
    writePlan(planJson(PREPARING, false, false, {boot}));

    // The service before the reboot runs in a process of its own, which dies with
    // its executor in the middle of the round.
    pid_t service = fork();
    if (service == 0) {
        (new OstrelFSM(nullptr))->sendEvent(RUN_START, nullptr, nullptr, 0, 0);
        while (true) pause();
    }
    ASSERT_TRUE(waitFor([] { return readFile(kHistoryCopy) == "boot 3\n"; }, 8));
    pid_t oldGroup = numberAfter(executorLog(), ", group ");
    kill(service, SIGKILL);
    ASSERT_EQ(waitpid(service, nullptr, 0), service);
    kill(-oldGroup, SIGKILL);

    OstrelFSM& m = newMachine();
    EXPECT_EQ(m.getState(), RUNNING);
    EXPECT_TRUE(m.sendEvent(BOOT_COMPLETED, nullptr, nullptr, 0, 0));
    EXPECT_EQ(m.planStore().getTestcaseCurrentRound(0), 1);
    // Another boot completion while the executor runs changes nothing.
    EXPECT_TRUE(m.sendEvent(BOOT_COMPLETED, nullptr, nullptr, 0, 0));
    EXPECT_EQ(m.planStore().getTestcaseCurrentRound(0), 1);
    EXPECT_TRUE(waitFor([] { return readFile(kHistoryCopy) == "boot 3\nboot 2\n"; }, 8))
            << readFile(kHistoryCopy);
    std::string log = executorLog();
    size_t first = log.find("arguments: sleep 1 1 crash long boot 3\n");
    size_t second = log.find("arguments: sleep 1 1 crash long boot 2\n");
    EXPECT_TRUE(first != std::string::npos && second != std::string::npos && first < second)
            << log;
    EXPECT_TRUE(m.sendEvent(RUN_ABORT, nullptr, nullptr, 0, 0));
}

TEST(OstrelFSMRun, PlanWithValuesOfTheWrongTypeRuns) {
    std::string words;
    while (words.size() < 100 * 1024) words += "a ";
    words.pop_back();
    std::string plan =
            "{\"current_state\":1,\"run_start\":false,\"run_finished\":false,\"testcases\":["
            "{\"select\":true,\"command\":42,\"isRound\":true,\"testcase_value\":2,"
            "\"testcase_current_round\":0,\"testcase_target_round\":0},"
            "{\"select\":true,\"isRound\":true,\"testcase_value\":\"5\","
            "\"testcase_current_round\":\"1\",\"testcase_target_round\":\"9\"},"
            "{\"select\":true,\"command\":\"" + words + "\",\"isRound\":false,\"testcase_value\":1,"
            "\"testcase_current_time\":\"10\",\"testcase_target_time\":\"abc\"},"
            "{\"select\":true,\"command\":\"say strings\",\"isRound\":true,\"testcase_value\":\"7\","
            "\"testcase_current_round\":\"x\",\"testcase_target_round\":[1]},"
            "{\"select\":\"true\",\"command\":\"say never\",\"isRound\":true,\"testcase_value\":1}]}";
    writePlan(plan);
    OstrelFSM& m = newMachine();
    StderrCapture err;
    EXPECT_TRUE(m.sendEvent(RUN_START, nullptr, nullptr, 0, 0));
    EXPECT_EQ(m.getState(), RUNNING);
    // Commands that are not strings leave a word empty; values that are not
    // numbers count as 0; a "select" that is not a boolean is not selected.
    EXPECT_TRUE(contains(err.text(), diagnostic("ostrel: run executor command: /vendor/bin/kelbrun  2"
                                                "  0 " + words + " 1 say strings 0\n")))
            << err.text().substr(0, 2000);
    ASSERT_TRUE(waitFor([] { return contains(executorLog(), "kelbrun: done\n"); }, 30));
    err.restore();
    EXPECT_TRUE(contains(executorLog(), "arguments: 2 0 " + words + " 1 say strings 0\n"));
    EXPECT_FALSE(contains(executorLog(), "say never"));
    EXPECT_TRUE(m.sendEvent(RUN_ABORT, nullptr, nullptr, 0, 0));
    EXPECT_NE(answer(m, GET_RESULT), "");
}
