// Whole runs through sendEvent with the stand-in executor: start, ticks, the
// executor's own end, abort, resume after a restart, and the result.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>

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

std::string diagnostic(const std::string& message) {
    return "Log at OstrelFSM: " + message.substr(0, 255) + "\n";
}

bool contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

Testcase rounds(const std::string& command, int value) {
    Testcase t;
    t.command = "\"" + command + "\"";
    t.value = value;
    return t;
}

// A machine in PREPARING with |plan|, started, with ticks |tick| apart.
OstrelFSM& start(const std::vector<Testcase>& plan,
                 std::chrono::milliseconds tick = std::chrono::seconds(kTickSeconds)) {
    writePlan(planJson(PREPARING, false, false, plan));
    OstrelFSM& m = newMachine();
    m.setRunTimings(tick, kHistoryRetry);
    EXPECT_TRUE(m.sendEvent(RUN_START, nullptr, nullptr, 0, 0));
    EXPECT_EQ(m.getState(), RUNNING);
    EXPECT_GE(m.executorPid(), 1);
    EXPECT_TRUE(m.threadsAreRunning());
    return m;
}

void expectRunEnded(OstrelFSM& m) {
    EXPECT_EQ(m.getState(), COMPLETING);
    EXPECT_EQ(m.executorPid(), -1);
    EXPECT_FALSE(m.threadsAreRunning());
    EXPECT_TRUE(m.planStore().getRunStart());
    EXPECT_TRUE(m.planStore().getRunFinished());
}

}  // namespace

TEST(OstrelFSMRun, RunEndsByItselfAndHandsOverArchiveAndHistory) {
    setenv("TZ", "UTC", 1);
    tzset();
    Testcase hour;
    hour.command = "\"say hour\"";
    hour.isRound = false;
    // Left over from an earlier run: cleared when the run starts.
    writeFile("/data/vendor/qav/kelbrun/stale", "old");
    writeFile(kHistoryCopy, "old crash\n");
    StderrCapture err;
    auto begin = std::chrono::steady_clock::now();
    OstrelFSM& m = start({rounds("sleep 1 1 crash long oops", 2), hour}, std::chrono::seconds(2));
    m.setTimeSource(lastSecondOfJanuary);
    pid_t supervisor = m.executorPid();

    // The executor ends after a second; the run ends at the first tick, 2 s in.
    ASSERT_TRUE(waitFor([&] { return m.getState() == COMPLETING; }, 30));
    double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
    EXPECT_GE(seconds, 1.9);
    expectRunEnded(m);
    EXPECT_TRUE(contains(err.text(), diagnostic("ostrel: send finished event, process : " +
                                                std::to_string(supervisor) +
                                                ", status : 0x0009")))
            << err.text();
    EXPECT_FALSE(contains(err.text(), "terminate process group"));
    // One tick was counted before the end: 10 seconds of the hour.
    EXPECT_EQ(m.planStore().getTestcaseCurrentTime(1), 10);
    std::string log = executorLog();
    EXPECT_TRUE(contains(log, "arguments: sleep 1 1 crash long oops 2 say hour 1\n")) << log;
    EXPECT_TRUE(contains(log, "kelbrun: say hour, round 1 of 1\nkelbrun: done\n")) << log;

    std::string plan = answer(m, GET_TEST);
    EXPECT_TRUE(contains(plan, "\"current_state\":3")) << plan;
    EXPECT_EQ(answer(m, GET_RESULT), std::string(kResults) + ".zip, " + kResults + ".db_history");
    err.restore();
    EXPECT_EQ(m.getState(), PREPARING);
    EXPECT_EQ(readFile(std::string(kResults) + ".db_history"), "oops 2\n");
    std::vector<std::string> entries = zipEntries(std::string(kResults) + ".zip");
    ASSERT_EQ(entries.size(), 5u);
    EXPECT_EQ(entries[0], "qav/data/");
    std::vector<std::string> data = {entries[1], entries[2]};
    std::sort(data.begin(), data.end());
    EXPECT_EQ(data, (std::vector<std::string>{"qav/data/db_history", "qav/data/ostreldata.txt"}));
    EXPECT_EQ(entries[3], "qav/kelbrun/");
    EXPECT_EQ(entries[4], "qav/kelbrun/kelbrun_log.txt");
    std::string zip = std::string(kResults) + ".zip";
    EXPECT_EQ(zipContent(zip, "qav/data/db_history"), "oops 2\n");
    EXPECT_EQ(zipContent(zip, "qav/kelbrun/kelbrun_log.txt"), log);
    EXPECT_TRUE(contains(zipContent(zip, "qav/data/ostreldata.txt"), "\"current_state\":3"));

    // The counters and flags are reset, and the result cannot be asked for twice.
    EXPECT_FALSE(m.planStore().getRunStart());
    EXPECT_FALSE(m.planStore().getRunFinished());
    EXPECT_EQ(m.planStore().getTestcaseCurrentTime(1), 0);
    EXPECT_EQ(m.planStore().getTestcaseTargetTime(1), 3600);
    EXPECT_EQ(answer(m, GET_RESULT), "");
}

TEST(OstrelFSMRun, AbortKillsAGroupThatIgnoresTerm) {
    OstrelFSM& m = start({rounds("ignore-term", 1), rounds("child 60", 1),
                          rounds("detach 60", 1), rounds("sleep 60", 1)});
    pid_t group = m.executorPid();
    ASSERT_TRUE(waitFor([] { return contains(executorLog(), "kelbrun: sleep round 1 of 1"); }, 10));
    pid_t detached = numberAfter(executorLog(), "kelbrun: detached child ");
    // Supervisor, executor, child, sleep; the log line comes just before the sleep starts.
    EXPECT_TRUE(waitFor([&] { return liveGroupMembers(group).size() == 4u; }, 5))
            << liveGroupMembers(group).size();
    // No result while running.
    EXPECT_EQ(answer(m, GET_RESULT), "");
    EXPECT_EQ(m.getState(), RUNNING);

    StderrCapture err;
    EXPECT_TRUE(m.sendEvent(RUN_ABORT, nullptr, nullptr, 0, 0));
    err.restore();
    expectRunEnded(m);
    std::string g = std::to_string(group);
    EXPECT_TRUE(contains(err.text(), diagnostic("ostrel: terminate process group: -" + g) +
                                             diagnostic("ostrel: delete process group again: -" + g)))
            << err.text();
    EXPECT_FALSE(contains(err.text(), "(errno:"));
    EXPECT_TRUE(waitFor([&] { return liveGroupMembers(group).empty(); }, 2));
    EXPECT_TRUE(isLive(detached));
    kill(detached, SIGKILL);

    // GET_TEST still answers; a late event changes nothing.
    EXPECT_TRUE(contains(answer(m, GET_TEST), "\"current_state\":3"));
    EXPECT_TRUE(m.sendEvent(TICK, nullptr, nullptr, 10, 0));
    EXPECT_TRUE(m.sendEvent(RUN_START, nullptr, nullptr, 0, 0));
    EXPECT_EQ(m.getState(), COMPLETING);
    EXPECT_EQ(m.executorPid(), -1);
    std::string result = answer(m, GET_RESULT);
    EXPECT_TRUE(std::regex_match(result, std::regex("/data/vendor/qav/results/QAV(\\d{8}_\\d{6})"
                                                    "\\.zip, /data/vendor/qav/results/QAV\\1"
                                                    "\\.db_history")))
            << result;
}

TEST(OstrelFSMRun, AbortWithoutExecutorAndAResultWithoutHistory) {
    // Restored in RUNNING after a restart: nothing has been started in this process.
    writePlan(planJson(RUNNING, true, false, {rounds("sleep 60", 1)}));
    OstrelFSM& m = newMachine();
    EXPECT_EQ(m.executorPid(), 0);
    StderrCapture err;
    EXPECT_TRUE(m.sendEvent(RUN_ABORT, nullptr, nullptr, 0, 0));
    expectRunEnded(m);
    EXPECT_FALSE(contains(err.text(), "process group"));

    // No history copy was ever made: the client gets no names.
    m.setTimeSource(noClock);
    EXPECT_EQ(answer(m, GET_RESULT), "");
    err.restore();
    EXPECT_TRUE(contains(err.text(),
                         diagnostic("ostrel: Exp=fprintf(buf_fp, \"\") > 0 Line:493 Func:bool "
                                    "vendor::brevane::hardware::ostrel::core::OstrelFSM::completing("
                                    "vendor::brevane::hardware::ostrel::core::PlannerEvent, "
                                    "char *, char *, int, long)")))
            << err.text();
    EXPECT_TRUE(std::regex_search(err.text(),
                                  std::regex("ostrel: rename /data/vendor/qav/data/db_history to "
                                             "/data/vendor/qav/results/QAV[0-9A-F]{8}"
                                             "\\.db_history \\(errno:2, No such file")))
            << err.text();
    EXPECT_EQ(m.getState(), PREPARING);
    EXPECT_FALSE(m.planStore().getRunStart());
}

TEST(OstrelFSMRun, AbortAfterTheGroupEndedAndNamesWithoutClock) {
    OstrelFSM& m = start({rounds("exit 0", 1)});
    pid_t supervisor = m.executorPid();
    // Reaped here before the tick thread's first look, 10 s in.
    int status = 0;
    ASSERT_EQ(waitpid(supervisor, &status, 0), supervisor);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL);
    ASSERT_TRUE(waitFor([&] { return kill(-supervisor, 0) != 0; }, 5));

    StderrCapture err;
    EXPECT_TRUE(m.sendEvent(RUN_ABORT, nullptr, nullptr, 0, 0));
    expectRunEnded(m);
    m.setTimeSource(noClock);
    std::string result = answer(m, GET_RESULT);
    err.restore();
    EXPECT_FALSE(contains(err.text(), "process group")) << err.text();
    std::smatch match;
    ASSERT_TRUE(std::regex_match(result, match,
                                 std::regex("/data/vendor/qav/results/QAV([0-9A-F]{8})\\.zip, "
                                            "/data/vendor/qav/results/QAV\\1\\.db_history")))
            << result;
    std::string stem = std::string(FSM_RESULT_DIR) + "/QAV" + match[1].str();
    EXPECT_TRUE(fileExists(stem + ".zip"));
    EXPECT_EQ(readFile(stem + ".db_history"), "");
}

TEST(OstrelFSMRun, BootTestResumesAfterRestartWithWhatIsLeft) {
    Testcase boot = rounds("sleep 1 1 crash long boot", 3);
    boot.isBootTest = true;
    writePlan(planJson(PREPARING, false, false, {boot}));

    // The service before the reboot runs in a process of its own, which dies with
    // its executor in the middle of the round.
    pid_t service = fork();
    if (service == 0) {
        OstrelFSM* before = new OstrelFSM(nullptr);
        before->sendEvent(RUN_START, nullptr, nullptr, 0, 0);
        while (true) pause();
    }
    ASSERT_TRUE(waitFor([] { return readFile(kHistoryCopy) == "boot 3\n"; }, 8))
            << readFile(kHistoryCopy);
    pid_t oldGroup = numberAfter(executorLog(), ", group ");
    kill(service, SIGKILL);
    ASSERT_EQ(waitpid(service, nullptr, 0), service);
    kill(-oldGroup, SIGKILL);

    OstrelFSM& m = newMachine();
    EXPECT_EQ(m.getState(), RUNNING);
    EXPECT_EQ(m.planStore().getTestcaseCurrentRound(0), 0);
    StderrCapture err;
    EXPECT_TRUE(m.sendEvent(BOOT_COMPLETED, nullptr, nullptr, 0, 0));
    EXPECT_GE(m.executorPid(), 1);
    EXPECT_EQ(m.planStore().getTestcaseCurrentRound(0), 1);
    // Another boot completion while the executor runs changes nothing.
    EXPECT_TRUE(m.sendEvent(BOOT_COMPLETED, nullptr, nullptr, 0, 0));
    EXPECT_EQ(m.planStore().getTestcaseCurrentRound(0), 1);
    EXPECT_TRUE(waitFor([] { return readFile(kHistoryCopy) == "boot 3\nboot 2\n"; }, 8))
            << readFile(kHistoryCopy);
    err.restore();
    EXPECT_TRUE(contains(err.text(), diagnostic("ostrel: run executor command: /vendor/bin/kelbrun "
                                                "sleep 1 1 crash long boot 2\n")))
            << err.text();
    std::string log = executorLog();
    size_t first = log.find("arguments: sleep 1 1 crash long boot 3\n");
    size_t second = log.find("arguments: sleep 1 1 crash long boot 2\n");
    ASSERT_NE(first, std::string::npos) << log;
    ASSERT_NE(second, std::string::npos) << log;
    EXPECT_LT(first, second);
    EXPECT_TRUE(m.sendEvent(RUN_ABORT, nullptr, nullptr, 0, 0));
    EXPECT_EQ(m.getState(), COMPLETING);
}

TEST(OstrelFSMRun, PlanWithBadValuesRunsWithoutCrash) {
    std::string words;
    while (words.size() < 100 * 1024) words += "a ";
    words.pop_back();
    std::string plan =
            "{\"not_set\":false,\"current_state\":1,\"run_start\":false,\"run_finished\":false,"
            "\"testcases\":["
            "{\"select\":true,\"command\":42,\"isRound\":true,\"testcase_value\":2,"
            "\"testcase_current_round\":0,\"testcase_target_round\":0},"
            "{\"select\":true,\"isRound\":true,\"testcase_value\":\"5\","
            "\"testcase_current_round\":\"1\",\"testcase_target_round\":\"9\"},"
            "{\"select\":true,\"command\":\"" + words + "\",\"isRound\":false,\"testcase_value\":1,"
            "\"testcase_current_time\":\"10\",\"testcase_target_time\":\"abc\"},"
            "{\"select\":true,\"command\":\"say strings\",\"isRound\":true,\"testcase_value\":\"7\","
            "\"testcase_current_round\":\"x\",\"testcase_target_round\":[1]},"
            "{\"select\":\"true\",\"command\":\"say never\",\"isRound\":true,\"testcase_value\":1},"
            "{\"select\":true,\"command\":\"say nokeys\",\"isRound\":true,\"testcase_value\":4}]}";
    OstrelFSM& m = newMachine();
    ASSERT_TRUE(m.sendEvent(BOOT_COMPLETED, nullptr, nullptr, 0, 0));
    ASSERT_TRUE(m.sendEvent(SET_TEST, &plan[0], nullptr, 0, 0));
    StderrCapture err;
    EXPECT_TRUE(m.sendEvent(RUN_START, nullptr, nullptr, 0, 0));
    EXPECT_EQ(m.getState(), RUNNING);
    std::string line = "/vendor/bin/kelbrun  2  0 " + words + " 1 say strings 0 say nokeys 0";
    EXPECT_TRUE(contains(err.text(),
                         diagnostic("ostrel: error executor command: /vendor/bin/kelbrun \n") +
                                 diagnostic("ostrel: error executor command: /vendor/bin/kelbrun  2 \n") +
                                 diagnostic("ostrel: run executor command: " + line + "\n")))
            << err.text().substr(0, 2000);
    ASSERT_TRUE(waitFor([] { return contains(executorLog(), "kelbrun: done\n"); }, 30));
    err.restore();
    std::string log = executorLog();
    EXPECT_TRUE(contains(log, "arguments: 2 0 " + words + " 1 say strings 0 say nokeys 0\n"));
    EXPECT_TRUE(contains(log, "kelbrun: test case without command, 2 left\n"
                              "kelbrun: test case without command, 0 left\n"
                              "kelbrun: unknown word 'a' skipped\n"));
    EXPECT_TRUE(contains(log, "kelbrun: unknown word 'a' skipped\n"
                              "kelbrun: test case without command, 1 left\n"
                              "kelbrun: say: nothing left (0), skipped\n"
                              "kelbrun: say: nothing left (0), skipped\n"
                              "kelbrun: done\n"));
    EXPECT_TRUE(m.sendEvent(RUN_ABORT, nullptr, nullptr, 0, 0));
    EXPECT_EQ(m.getState(), COMPLETING);
    EXPECT_NE(answer(m, GET_RESULT), "");
    EXPECT_EQ(m.getState(), PREPARING);
}

TEST(OstrelFSMRun, PreparingStoresThePlanAndRefusesTesters) {
    OstrelFSM& m = newMachine();
    ASSERT_TRUE(m.sendEvent(BOOT_COMPLETED, nullptr, nullptr, 0, 0));
    ASSERT_EQ(m.getState(), PREPARING);
    char file[] = "/data/vendor/qav/tester.apk";
    std::vector<char> bytes(65536, 'x');
    StderrCapture err;
    EXPECT_TRUE(m.sendEvent(INSTALL_TESTERS, file, bytes.data(), 65536, 0));
    err.restore();
    EXPECT_EQ(err.text(), "Log at OstrelFSM: ostrel: temporary disable installTesters!!!\n\n");
    EXPECT_FALSE(fileExists(file));

    std::string plan = planJson(PREPARING, false, false, {rounds("say stored", 2)});
    EXPECT_TRUE(m.sendEvent(SET_TEST, &plan[0], nullptr, 0, 0));
    EXPECT_EQ(answer(m, GET_TEST), plan);
    char broken[] = "{\"testcases\":[";
    // A text that does not parse leaves the stored plan in force, and says so.
    EXPECT_TRUE(m.sendEvent(SET_TEST, broken, nullptr, 0, 0));
    EXPECT_EQ(answer(m, GET_TEST), plan);
    EXPECT_EQ(readFile(kPlanFile), plan);
    EXPECT_EQ(m.getState(), PREPARING);

    EXPECT_TRUE(m.sendEvent(RUN_START, nullptr, nullptr, 0, 0));
    EXPECT_TRUE(contains(answer(m, GET_TEST), "\"current_state\":2,\"run_start\":true"));
    EXPECT_TRUE(waitFor([] { return contains(executorLog(), "say stored, round 2 of 2"); }, 10));
}
