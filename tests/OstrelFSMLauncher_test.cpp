// The executor launcher with the real stand-in executor: the process tree, every
// way the executor can end, and what the supervisor leaves behind.
#include <sys/resource.h>

#include "TestSupport.h"

namespace {

// Starts the supervisor for |words| (the program path first) and returns its id.
// The vector is new[]-allocated as the runner's is: the supervisor delete[]s its copy.
pid_t launch(OstrelFSM& m, std::vector<std::string> words) {
    char** argv = new char*[words.size() + 1];
    for (size_t i = 0; i < words.size(); i++) argv[i] = words[i].data();
    argv[words.size()] = nullptr;
    EXPECT_TRUE(m.forkAndExec(argv));
    delete[] argv;
    return m.executorPid();
}

// Waits for the supervisor and returns its raw wait status.
int reap(pid_t supervisor) {
    int status = -1;
    EXPECT_EQ(waitpid(supervisor, &status, 0), supervisor);
    return status;
}

}  // namespace

// However the executor ends, its supervisor reports the raw status, kills the
// group (children that stayed in it die, one that left survives) and dies by
// SIGKILL itself.
TEST(OstrelFSMLauncher, ExecutorsEndIsReportedAndItsGroupKilled) {
    struct Case {
        std::vector<std::string> words;
        const char* status;
    } cases[] = {
            {{kExecutorPath, "child", "60", "1", "detach", "60", "1", "exit", "3", "1"}, "0x0300"},
            {{kExecutorPath, "signal", "SEGV", "1"}, "0x000B"},
            {{"/vendor/bin/no-such-executor", "say", "x", "1"}, "0x0100"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.words[1]);
        unlink(kExecutorLogFile);
        OstrelFSM& m = newMachine();
        StderrCapture err;
        pid_t sup = launch(m, c.words);
        ASSERT_GE(sup, 1);
        int status = reap(sup);
        err.restore();
        EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << status;
        std::string log = executorLog();
        pid_t exec = numberAfter(log, "kelbrun: pid ");
        EXPECT_TRUE(contains(err.text(), " back, status " + std::string(c.status) + "\n" +
                                                 diagnostic("ostrel: delete process group: -" +
                                                            std::to_string(sup))))
                << err.text();
        if (exec < 0) {
            // The executor's standard error is the log file by the time exec fails.
            EXPECT_EQ(log, diagnostic("ostrel: execvp /vendor/bin/no-such-executor should not "
                                      "be here!! (errno:2, No such file or directory)"));
            continue;
        }
        EXPECT_TRUE(contains(err.text(), "ostrel: process " + std::to_string(exec) + " back"));
        // The executor runs in the supervisor's group, which is its own session.
        EXPECT_EQ(numberAfter(log, "group "), sup);
        pid_t stayed = numberAfter(log, "kelbrun: child ");
        pid_t left = numberAfter(log, "kelbrun: detached child ");
        if (stayed < 0) continue;
        EXPECT_TRUE(waitFor([&] { return !isLive(stayed); }, 5));
        EXPECT_EQ(liveInGroup(sup), 0);
        EXPECT_TRUE(isLive(left));
        kill(left, SIGKILL);
    }
}

TEST(OstrelFSMLauncher, GroupSignalEndsSupervisorWithoutReport) {
    OstrelFSM& m = newMachine();
    StderrCapture err;
    // The executor ignores SIGTERM, so it cannot end (and wake its supervisor)
    // before the supervisor's own SIGTERM has taken effect, whatever order the
    // kernel signals the group in.
    pid_t sup = launch(m, {kExecutorPath, "ignore-term", "1", "sleep", "60", "1"});
    ASSERT_TRUE(waitFor([] { return executorLog().find("ignoring SIGTERM") != std::string::npos; }, 10));
    ASSERT_EQ(kill(-sup, SIGTERM), 0);
    int status = reap(sup);
    err.restore();
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGTERM) << status;
    EXPECT_EQ(err.text().find("back, status"), std::string::npos) << err.text();
    EXPECT_GT(liveInGroup(sup), 0) << "SIGTERM reached the executor";
    kill(-sup, SIGKILL);
    EXPECT_TRUE(waitFor([&] { return liveInGroup(sup) == 0; }, 5));
}

TEST(OstrelFSMLauncher, StopAndContinueDoNotEndTheRun) {
    OstrelFSM& m = newMachine();
    pid_t sup = launch(m, {kExecutorPath, "sleep", "1", "2", "say", "resumed", "1"});
    pid_t exec = -1;
    ASSERT_TRUE(waitFor([&] { return (exec = numberAfter(executorLog(), "kelbrun: pid ")) > 0; },
                        10));
    ASSERT_EQ(kill(exec, SIGSTOP), 0);
    EXPECT_TRUE(waitFor([&] { return processState(exec) == 'T'; }, 5));
    usleep(300 * 1000);
    int status = 0;
    EXPECT_EQ(waitpid(sup, &status, WNOHANG), 0) << "the supervisor took a stop for the end";
    ASSERT_EQ(kill(exec, SIGCONT), 0);
    usleep(300 * 1000);
    EXPECT_EQ(waitpid(sup, &status, WNOHANG), 0) << "the supervisor took a continue for the end";
    status = reap(sup);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << status;
    EXPECT_TRUE(contains(executorLog(), "kelbrun: say resumed, round 1 of 1\nkelbrun: done\n"));
}

TEST(OstrelFSMLauncher, LogIsAppendedAndPrivate) {
    OstrelFSM& m = newMachine();
    reap(launch(m, {kExecutorPath, "say", "first", "1"}));
    reap(launch(m, {kExecutorPath, "say", "second", "1"}));
    EXPECT_TRUE(contains(executorLog(), "kelbrun: say first, round 1 of 1\nkelbrun: done\n"
                                        "kelbrun: pid "));
    EXPECT_TRUE(contains(executorLog(), "kelbrun: say second, round 1 of 1\n"));
    struct stat st;
    ASSERT_EQ(stat(kExecutorLogFile, &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0600u);
}

// The first fork failing (a limit of 1 process) starts nothing; the supervisor's
// fork failing (2) ends the supervisor with 1 and no executor. A helper process,
// limited and under a user id that owns no other process, prints forkAndExec's
// result, the id field and the supervisor's status.
TEST(OstrelFSMLauncher, FailedForksAreReported) {
    const std::string eagain = " (errno:11, Resource temporarily unavailable)\n";
    const std::string expected[] = {
            diagnostic("ostrel: Cannot fork" + eagain) + "started 0, pid -1, status 0xFFFFFFFF\n",
            diagnostic("ostrel: can't fork" + eagain) +
                    diagnostic("ostrel: runKelbrun should not be here!! ")};
    for (rlim_t limit : {1, 2}) {
        StderrCapture err;
        pid_t helper = fork();
        if (helper == 0) {
            OstrelFSM* m = new OstrelFSM(nullptr);
            // The limit counts threads: a sanitizer's own thread is added.
            rlim_t processes = limit + numberAfter(readFile("/proc/self/status"), "Threads:") - 1;
            struct rlimit rl = {processes, processes};
            if (setrlimit(RLIMIT_NPROC, &rl) != 0 || setgid(54321) != 0 || setuid(54321) != 0) {
                _exit(3);
            }
            std::string program = kExecutorPath;
            char* argv[] = {program.data(), nullptr};
            bool started = m->forkAndExec(argv);
            int status = -1;
            if (started) waitpid(m->executorPid(), &status, 0);
            fprintf(stderr, "started %d, pid %d, status 0x%04X\n", started, m->executorPid(), status);
            _exit(0);
        }
        int status = -1;
        waitpid(helper, &status, 0);
        err.restore();
        EXPECT_EQ(status, 0);
        EXPECT_TRUE(contains(err.text(), expected[limit - 1])) << err.text();
        if (limit == 2) EXPECT_TRUE(contains(err.text(), ", status 0x0100\n")) << err.text();
    }
    EXPECT_EQ(executorLog(), "");
}
