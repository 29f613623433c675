// Runs that end alone: the threads of an ended run stop at once and never act for
// the next run, every crash line written after the run starts is collected, and
// one event writes the plan once. Ticks are shortened through setRunTimings.
#include <dirent.h>

#include "TestSupport.h"

namespace {

constexpr auto kFastTick = std::chrono::milliseconds(50);

// Threads of this process. A thread is made and joined first, so that a
// sanitizer's runtime thread that starts with the first thread is counted.
int threadCount() {
    static const bool warmedUp = (std::thread([] {}).join(), true);
    (void)warmedUp;
    int n = 0;
    DIR* d = opendir("/proc/self/task");
    while (struct dirent* e = d ? readdir(d) : nullptr) n += e->d_name[0] != '.';
    if (d) closedir(d);
    return n;
}

std::unique_ptr<OstrelFSM> fastMachine(const std::vector<Testcase>& plan) {
    writeFile(kPlanFile, planJson(PREPARING, false, false, plan));
    return timedMachine(kFastTick);
}

}  // namespace

// An ended run's threads and supervisor: the threads end with the abort, the
// supervisor is reaped by the next event at the latest; neither acts for a later run.
TEST(OstrelFSMRunEnd, EndedRunsThreadsStopAndNeverActForTheNextRun) {
    auto m = fastMachine({hours("sleep 60", 1)});
    const int idle = threadCount();
    for (int run = 1; run <= 6; run++) {
        ASSERT_TRUE(m->sendEvent(RUN_START, nullptr, nullptr, 0, 0));
        pid_t supervisor = m->executorPid();
        EXPECT_EQ(threadCount(), idle + 2) << "run " << run;
        ASSERT_TRUE(m->sendEvent(RUN_ABORT, nullptr, nullptr, 0, 0));
        EXPECT_EQ(threadCount(), idle) << "after abort " << run;
        ASSERT_FALSE(answer(*m, GET_RESULT).empty());
        // Reaped by an event once it can be (under TSan its own runtime thread may
        // still be exiting when it already shows as a zombie).
        EXPECT_TRUE(waitFor([&] { return answer(*m, GET_TEST), processState(supervisor) == 0; }, 5))
                << "run " << run << " left a zombie";
    }

    auto begin = std::chrono::steady_clock::now();
    ASSERT_TRUE(m->sendEvent(RUN_START, nullptr, nullptr, 0, 0));
    usleep(100 * 1000);
    appendFile(kShortHistoryPath, "crash of run 7\n");
    std::this_thread::sleep_for(20 * kFastTick);
    EXPECT_EQ(threadCount(), idle + 2);
    // The plan file, as the tick thread last wrote it (the store is its to change).
    int counted = numberAfter(readFile(kPlanFile), "\"testcase_current_time\":");
    double elapsed = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
    // One run's ticks at most: 10 seconds per period elapsed.
    EXPECT_LE(counted, 10 * static_cast<int>(elapsed / 0.05 + 1));
    EXPECT_GE(counted, 10);
    EXPECT_EQ(readFile(kHistoryCopy), "crash of run 7\n");

    ASSERT_TRUE(m->sendEvent(RUN_ABORT, nullptr, nullptr, 0, 0));
    EXPECT_EQ(threadCount(), idle);
    ASSERT_FALSE(answer(*m, GET_RESULT).empty());

    // Two executors in one run, both ending at once: one tick thread and one
    // monitor, the earlier supervisor reaped without ending the run, the end seen
    // at the first tick; the tick thread that ended it is joined by the next event.
    answer(*m, SET_TEST, nullptr, planJson(PREPARING, false, false, {hours("sleep 0.2", 1)}));
    m->setRunTimings(std::chrono::seconds(1), std::chrono::milliseconds(20));
    ASSERT_TRUE(m->sendEvent(RUN_START, nullptr, nullptr, 0, 0));
    pid_t first = m->executorPid();
    ASSERT_TRUE(m->sendEvent(RUN_START, nullptr, nullptr, 0, 0));
    EXPECT_NE(m->executorPid(), first);
    EXPECT_EQ(threadCount(), idle + 2);
    ASSERT_TRUE(waitFor([&] { return m->getState() == COMPLETING; }, 10));
    EXPECT_EQ(OstrelFSMData().getTestcaseCurrentTime(0), 10) << "the end was seen after the first tick";
    EXPECT_EQ(processState(first), 0);
    EXPECT_TRUE(waitFor([&] { return threadCount() == idle; }, 1));
    EXPECT_FALSE(answer(*m, GET_RESULT).empty());
}

// A file that the executor's first crash creates, or a line it adds to a file
// that exists: either comes right after the run starts, and is collected.
TEST(OstrelFSMRunEnd, CrashLineWrittenAsTheRunStartsIsCollected) {
    for (int attempt = 0; attempt < 40; attempt++) {
        const char* path = attempt % 2 ? kLongHistoryPath : kShortHistoryPath;
        bool existsBefore = attempt % 4 >= 2;
        unlink(path);
        if (existsBefore) writeFile(path, "old line\n");
        auto m = fastMachine({hours("sleep 60", 1)});
        ASSERT_TRUE(m->sendEvent(RUN_START, nullptr, nullptr, 0, 0));
        appendFile(path, "first crash\n");
        // A file seen as it appears and then as it changes gives the line twice.
        EXPECT_TRUE(waitFor([] { return readFile(kHistoryCopy) != ""; }, 2));
        std::string copy = readFile(kHistoryCopy);
        bool twice = !existsBefore && copy == "first crash\nfirst crash\n";
        EXPECT_TRUE(copy == "first crash\n" || twice)
                << path << (existsBefore ? " (existing)" : " (new)") << ": '" << copy << "'";
        m->sendEvent(RUN_ABORT, nullptr, nullptr, 0, 0);
        unlink(path);
    }
}

// A line written just before the abort, in a file that exists or that appears, is
// in the copy when the abort returns (twice if the monitor saw the new file first).
TEST(OstrelFSMRunEnd, CrashLineWrittenJustBeforeTheEndIsCollected) {
    for (bool existsBefore : {true, false}) {
        unlink(kShortHistoryPath);
        if (existsBefore) writeFile(kShortHistoryPath, "old line\n");
        writeFile(kPlanFile, planJson(PREPARING, false, false, {hours("sleep 60", 1)}));
        OstrelFSM m(nullptr);
        ASSERT_TRUE(m.sendEvent(RUN_START, nullptr, nullptr, 0, 0));
        usleep(100 * 1000);
        appendFile(kShortHistoryPath, "last crash\n");
        ASSERT_TRUE(m.sendEvent(RUN_ABORT, nullptr, nullptr, 0, 0));
        std::string copy = readFile(kHistoryCopy);
        EXPECT_TRUE(copy == "last crash\n" || (!existsBefore && copy == "last crash\nlast crash\n"))
                << (existsBefore ? "existing file: " : "new file: ") << copy;
    }
}

TEST(OstrelFSMRunEnd, AnEventWritesThePlanOnceAndAReadWritesNothing) {
    auto m = fastMachine(std::vector<Testcase>(50, hours("sleep 60", 1)));
    m->setRunTimings(std::chrono::seconds(60), kFastTick);  // only the ticks sent below
    OstrelFSMData& store = m->planStore();
    struct stat was, is;
    ASSERT_EQ(stat(kPlanFile, &was), 0);
    unsigned long before = store.writeCount();
    EXPECT_FALSE(answer(*m, GET_TEST).empty());
    ASSERT_EQ(stat(kPlanFile, &is), 0);
    EXPECT_EQ(store.writeCount(), before);
    EXPECT_EQ(is.st_ino, was.st_ino) << "a read replaced the plan file";

    // A missing plan file is written again by the next event.
    unlink(kPlanFile);
    std::string held = answer(*m, GET_TEST);
    EXPECT_EQ(readFile(kPlanFile), held);
    EXPECT_EQ(store.writeCount(), before + 1);

    // Start, abort and result: a handful of writes, each leaving the plan as held.
    before = store.writeCount();
    for (PlannerEvent event : {RUN_START, RUN_ABORT}) {
        ASSERT_TRUE(m->sendEvent(event, nullptr, nullptr, 0, 0));
        EXPECT_EQ(readFile(kPlanFile), answer(*m, GET_TEST));
    }
    ASSERT_FALSE(answer(*m, GET_RESULT).empty());
    EXPECT_LE(store.writeCount() - before, 4u);

    // A tick of 50 time-based test cases: one write, holding every counter.
    ASSERT_TRUE(m->sendEvent(RUN_START, nullptr, nullptr, 0, 0));
    before = store.writeCount();
    m->sendEvent(TICK, nullptr, nullptr, 10, 0);
    EXPECT_EQ(store.writeCount(), before + 1);
    OstrelFSMData written;
    for (int i = 0; i < 50; i++) EXPECT_EQ(written.getTestcaseCurrentTime(i), 10) << i;
    m->sendEvent(RUN_ABORT, nullptr, nullptr, 0, 0);
}

// A monitor held up in the history copy (a FIFO there) is left behind after a
// bound, appends to no later run's copy, and the next run collects as usual.
TEST(OstrelFSMRunEnd, AHistoryCopyThatBlocksNeverHoldsUpTheEndOfARun) {
    auto m = fastMachine({hours("sleep 60", 1)});
    StderrCapture diag;
    writeFile(kShortHistoryPath, "");
    ASSERT_TRUE(m->sendEvent(RUN_START, nullptr, nullptr, 0, 0));
    unlink(kHistoryCopy);
    ASSERT_EQ(mkfifo(kHistoryCopy, 0600), 0);
    appendFile(kShortHistoryPath, "held up\n");
    usleep(200 * 1000);
    std::promise<void> aborted;
    std::thread rescue([done = aborted.get_future()] {  // a reader, should the abort hang
        if (done.wait_for(std::chrono::seconds(3)) != std::future_status::ready)
            close(open(kHistoryCopy, O_RDONLY | O_NONBLOCK));
    });
    auto t0 = std::chrono::steady_clock::now();
    EXPECT_TRUE(m->sendEvent(RUN_ABORT, nullptr, nullptr, 0, 0));
    EXPECT_LT(std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count(), 1.0);
    aborted.set_value();
    int reader = open(kHistoryCopy, O_RDONLY | O_NONBLOCK);  // the held-up open goes on
    unlink(kHistoryCopy);
    rescue.join();
    answer(*m, GET_RESULT);

    ASSERT_TRUE(m->sendEvent(RUN_START, nullptr, nullptr, 0, 0));
    appendFile(kShortHistoryPath, "next run\n");
    EXPECT_TRUE(waitFor([] { return readFile(kHistoryCopy) == "next run\n"; }, 2)) << readFile(kHistoryCopy);
    m->sendEvent(RUN_ABORT, nullptr, nullptr, 0, 0);
    diag.restore();
    EXPECT_TRUE(contains(diag.text(), "did not stop, left behind"));
    close(reader);
}

// A second runStart in a live run starts a second executor; the first one's own
// end is not the run's end: only the current executor's supervisor ends the run.
TEST(OstrelFSMRunEnd, AnEarlierExecutorsEndDoesNotEndTheRun) {
    auto m = fastMachine({hours("sleep 60", 1)});
    ASSERT_TRUE(m->sendEvent(RUN_START, nullptr, nullptr, 0, 0));
    pid_t first = m->executorPid();
    ASSERT_TRUE(m->sendEvent(RUN_START, nullptr, nullptr, 0, 0));
    pid_t second = m->executorPid();
    ASSERT_NE(first, second);
    kill(-first, SIGKILL);  // the first executor's whole group ends
    EXPECT_TRUE(waitFor([&] { return processState(first) == 0; }, 5)) << "the first supervisor is reaped";
    std::this_thread::sleep_for(kFastTick * 6);
    EXPECT_EQ(m->getState(), RUNNING) << "the run ended with an executor that was no longer its own";
    EXPECT_GT(liveInGroup(second), 0);
    kill(-second, SIGKILL);
    EXPECT_TRUE(waitFor([&] { return m->getState() == COMPLETING; }, 5)) << "the current executor's end ends it";
}

// FIFOs without a writer appear at the crash-history paths: the monitor opens them
// without blocking and ignores each with one line, so it ends with the run and
// holds up no abort. (Opened blocking, it waits for a writer that never comes and
// is left behind by the run's end.)
TEST(OstrelFSMRunEnd, FifosAtTheCrashHistoryPathsAreIgnoredOnceAndLetTheRunEnd) {
    auto m = fastMachine({hours("sleep 60", 1)});
    const int idle = threadCount();
    StderrCapture diag;
    ASSERT_TRUE(m->sendEvent(RUN_START, nullptr, nullptr, 0, 0));
    for (const char* path : {kShortHistoryPath, kLongHistoryPath}) ASSERT_EQ(mkfifo(path, 0600), 0);
    usleep(300 * 1000);  // passes of the monitor, a retry every 20 ms
    auto t0 = std::chrono::steady_clock::now();
    ASSERT_TRUE(m->sendEvent(RUN_ABORT, nullptr, nullptr, 0, 0));
    EXPECT_LT(std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count(), 1.0);
    EXPECT_TRUE(waitFor([&] { return threadCount() == idle; }, 5))
            << threadCount() - idle << " thread(s) of the ended run still there";
    diag.restore();
    for (const char* path : {kShortHistoryPath, kLongHistoryPath}) {
        EXPECT_EQ(occurrences(diag.text(), diagnostic(std::string("ostrel: ") + path + " is not a regular file, ignored\n")), 1)
                << path << diag.text();
    }
    // Writers let a monitor held up in an open end before the machine goes.
    int writers[] = {open(kShortHistoryPath, O_RDWR | O_NONBLOCK), open(kLongHistoryPath, O_RDWR | O_NONBLOCK)};
    m.reset();
    for (int fd : writers) close(fd);
}
