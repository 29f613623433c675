// Whole runs through sendEvent with the stand-in executor: the executor's own end,
// aborts (also of a group that ignores SIGTERM, and of a run with no executor),
// resume after a restart, and the result.

#include <regex>

#include "TestSupport.h"

namespace {

const char* const kResults = "/data/vendor/qav/results/QAV20240131_235959";

// A machine in PREPARING with |plan|, started, with ticks |tick| apart.
OstrelFSM& start(const std::vector<Testcase>& plan,
                 std::chrono::milliseconds tick = std::chrono::seconds(kTickSeconds)) {
    writeFile(kPlanFile, planJson(PREPARING, false, false, plan));
    OstrelFSM& m = newMachine();
    m.setRunTimings(tick, kHistoryRetry);
    EXPECT_TRUE(m.sendEvent(RUN_START, nullptr, nullptr, 0, 0));
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
    // Left over from an earlier run: cleared when the run starts (a link removed, not
    // followed). The history copy is readable by the group whatever the umask.
    writeFile("/data/vendor/qav/kelbrun/stale", "old");
    writeFile(kHistoryCopy, "old crash\n");
    ASSERT_EQ(mkdir("/data/keep", 0755) | symlink("/data/keep", "/data/vendor/qav/kelbrun/link"), 0);
    writeFile("/data/keep/x", "kept");
    umask(077);
    StderrCapture err;
    OstrelFSM& m = start({rounds("sleep 1 1 crash long oops", 2), hours("say hour", 1)},
                         std::chrono::seconds(2));
    m.setTimeSource([](time_t*) -> time_t { return 1706745599; });  // 2024-01-31 23:59:59 UTC
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

    EXPECT_EQ(answer(m, GET_RESULT), std::string(kResults) + ".zip, " + kResults + ".db_history");
    err.restore();
    EXPECT_EQ(readFile(std::string(kResults) + ".db_history"), "oops 2\n");
    struct stat st;
    ASSERT_EQ(stat((std::string(kResults) + ".db_history").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0664u);
    EXPECT_TRUE(fileExists("/data/keep/x"));
    std::string zip = std::string(kResults) + ".zip";
    EXPECT_EQ(zipContent(zip, "qav/kelbrun/stale"), "");
    EXPECT_EQ(zipContent(zip, "qav/data/db_history"), "oops 2\n");
    EXPECT_EQ(zipContent(zip, "qav/kelbrun/kelbrun_log.txt"), executorLog());
    EXPECT_TRUE(contains(zipContent(zip, "qav/data/ostreldata.txt"), "\"current_state\":3"));
}

TEST(OstrelFSMRun, AbortKillsAGroupThatIgnoresTerm) {
    OstrelFSM& m = start({rounds("ignore-term", 1), rounds("child 60", 1),
                          rounds("detach 60", 1), rounds("sleep 60", 1)});
    pid_t group = m.executorPid();
    ASSERT_TRUE(waitFor([] { return contains(executorLog(), "kelbrun: sleep round 1 of 1"); }, 10));
    pid_t detached = numberAfter(executorLog(), "kelbrun: detached child ");
    // Supervisor, executor, child, sleep.
    EXPECT_TRUE(waitFor([&] { return liveInGroup(group) == 4; }, 5));

    StderrCapture err;
    EXPECT_TRUE(m.sendEvent(RUN_ABORT, nullptr, nullptr, 0, 0));
    err.restore();
    expectRunEnded(m);
    std::string g = std::to_string(group);
    EXPECT_TRUE(contains(err.text(), diagnostic("ostrel: terminate process group: -" + g) +
                                             diagnostic("ostrel: delete process group again: -" + g)))
            << err.text();
    EXPECT_TRUE(waitFor([&] { return liveInGroup(group) == 0; }, 2));
    // A child that left the group is not the run's to end.
    EXPECT_TRUE(isLive(detached));
    kill(detached, SIGKILL);
}

TEST(OstrelFSMRun, AbortWithoutExecutorAndResultsWithAndWithoutHistory) {
    // Restored in RUNNING after a restart: nothing has been started in this process.
    writeFile(kPlanFile, planJson(RUNNING, true, false, {rounds("sleep 60", 1)}));
    OstrelFSM& m = newMachine();
    EXPECT_EQ(m.executorPid(), 0);
    StderrCapture err;
    EXPECT_TRUE(m.sendEvent(RUN_ABORT, nullptr, nullptr, 0, 0));
    expectRunEnded(m);
    EXPECT_FALSE(contains(err.text(), "process group"));
    // No history copy was ever made: the client gets no names.
    EXPECT_EQ(answer(m, GET_RESULT), "");

    // Without a clock, a run whose group has ended: names of 8 hex digits.
    OstrelFSM& late = start({rounds("exit 0", 1)});
    ASSERT_EQ(waitpid(late.executorPid(), nullptr, 0), late.executorPid());
    EXPECT_TRUE(late.sendEvent(RUN_ABORT, nullptr, nullptr, 0, 0));
    expectRunEnded(late);
    late.setTimeSource([](time_t*) -> time_t { return -1; });
    std::string result = answer(late, GET_RESULT);
    err.restore();
    std::smatch match;
    ASSERT_TRUE(std::regex_match(result, match,
                                 std::regex("/data/vendor/qav/results/QAV([0-9A-F]{8})\\.zip, "
                                            "/data/vendor/qav/results/QAV\\1\\.db_history")))
            << result;
    EXPECT_TRUE(fileExists(std::string(FSM_RESULT_DIR) + "/QAV" + match[1].str() + ".zip"));
}
