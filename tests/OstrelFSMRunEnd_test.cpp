// Runs that end alone: the threads of an ended run stop at once and never act for
// the next run, every crash line written after the run starts is collected, and
// one event writes the plan once. Ticks are shortened through setRunTimings.
#include <gtest/gtest.h>
#include <dirent.h>
#include <sys/stat.h>

#include <memory>
#include <regex>

#include "TestSupport.h"

using namespace vendor::brevane::hardware::ostrel::core;
using namespace ostrel_test;

namespace {

constexpr auto kFastTick = std::chrono::milliseconds(50);

// Threads of this process; a sanitizer's runtime may add one of its own, so the
// tests count from what the process had before the first run.
int threadCount() {
    // A thread made and joined first, so that a runtime thread that starts with
    // the first thread is already there.
    static const bool warmedUp = (std::thread([] {}).join(), true);
    (void)warmedUp;
    int n = 0;
    DIR* d = opendir("/proc/self/task");
    while (struct dirent* e = d ? readdir(d) : nullptr) n += e->d_name[0] != '.';
    if (d) closedir(d);
    return n;
}

std::unique_ptr<OstrelFSM> fastMachine(const std::vector<Testcase>& plan) {
    writePlan(planJson(PREPARING, false, false, plan));
    auto m = std::make_unique<OstrelFSM>(nullptr);
    m->setRunTimings(kFastTick, std::chrono::milliseconds(20));
    return m;
}

}  // namespace

TEST(OstrelFSMRunEnd, EndedRunsThreadsStopAndNeverActForTheNextRun) {
    auto m = fastMachine({hours("sleep 60", 1)});
    const int idle = threadCount();
    for (int run = 1; run <= 6; run++) {
        ASSERT_TRUE(m->sendEvent(RUN_START, nullptr, nullptr, 0, 0));
        EXPECT_EQ(threadCount(), idle + 2) << "run " << run;
        ASSERT_TRUE(m->sendEvent(RUN_ABORT, nullptr, nullptr, 0, 0));
        // The abort returns once both threads have ended.
        EXPECT_EQ(threadCount(), idle) << "after abort " << run;
        ASSERT_FALSE(answer(*m, GET_RESULT).empty());
        ASSERT_EQ(m->getState(), PREPARING);
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

    // A run that its own tick thread ends (it reaps the executor that ended): the
    // thread is joined by the next event.
    writePlan(planJson(PREPARING, false, false, {hours("say done", 1)}));
    OstrelFSM self(nullptr);
    self.setRunTimings(kFastTick, std::chrono::milliseconds(20));
    ASSERT_TRUE(self.sendEvent(RUN_START, nullptr, nullptr, 0, 0));
    ASSERT_TRUE(waitFor([&] { return self.getState() == COMPLETING; }, 10));
    EXPECT_TRUE(waitFor([&] { return threadCount() == idle; }, 1));
    EXPECT_FALSE(answer(self, GET_RESULT).empty());
}

// A file that the executor's first crash creates, or a line it adds to a file
// that exists: either comes right after the run starts, and is collected.
TEST(OstrelFSMRunEnd, CrashLineWrittenAsTheRunStartsIsCollected) {
    struct Case {
        const char* path;
        bool existsBefore;
    };
    const Case cases[] = {{kShortHistoryPath, false}, {kLongHistoryPath, false},
                          {kShortHistoryPath, true}, {kLongHistoryPath, true}};
    for (const Case& c : cases) {
        for (int attempt = 0; attempt < 10; attempt++) {
            unlink(kShortHistoryPath);
            unlink(kLongHistoryPath);
            if (c.existsBefore) writeFile(c.path, "old line\n");
            auto m = fastMachine({hours("sleep 60", 1)});
            ASSERT_TRUE(m->sendEvent(RUN_START, nullptr, nullptr, 0, 0));
            appendFile(c.path, "first crash\n");
            // A file seen as it appears and then as it changes gives the line twice.
            EXPECT_TRUE(waitFor([] { return readFile(kHistoryCopy) != ""; }, 2));
            std::string copy = readFile(kHistoryCopy);
            EXPECT_TRUE(copy == "first crash\n" || (!c.existsBefore && copy == "first crash\nfirst crash\n"))
                    << c.path << (c.existsBefore ? " (existing)" : " (new)") << ", attempt "
                    << attempt << ": copy holds '" << copy << "'";
            m->sendEvent(RUN_ABORT, nullptr, nullptr, 0, 0);
        }
    }
}

// The end of a run does not cut the monitor short: a line written just before
// the abort, in a file that exists or in one that appears, is in the copy when
// the abort returns.
TEST(OstrelFSMRunEnd, CrashLineWrittenJustBeforeTheEndIsCollected) {
    for (bool existsBefore : {true, false}) {
        unlink(kShortHistoryPath);
        if (existsBefore) writeFile(kShortHistoryPath, "old line\n");
        writePlan(planJson(PREPARING, false, false, {hours("sleep 60", 1)}));
        OstrelFSM m(nullptr);
        ASSERT_TRUE(m.sendEvent(RUN_START, nullptr, nullptr, 0, 0));
        usleep(100 * 1000);
        appendFile(kShortHistoryPath, "last crash\n");
        ASSERT_TRUE(m.sendEvent(RUN_ABORT, nullptr, nullptr, 0, 0));
        EXPECT_EQ(readFile(kHistoryCopy), "last crash\n")
                << (existsBefore ? "existing file" : "new file");
    }
}

TEST(OstrelFSMRunEnd, AnEventWritesThePlanOnceAndAReadWritesNothing) {
    std::vector<Testcase> plan;
    for (int i = 0; i < 50; i++) plan.push_back(hours("sleep 60", 1));
    auto m = fastMachine(plan);
    // Only the ticks sent below.
    m->setRunTimings(std::chrono::seconds(60), std::chrono::milliseconds(20));
    OstrelFSMData& store = m->planStore();

    unsigned long before = store.writeCount();
    struct stat was, is;
    ASSERT_EQ(stat(kPlanFile, &was), 0);
    EXPECT_FALSE(answer(*m, GET_TEST).empty());
    EXPECT_EQ(store.writeCount(), before);
    ASSERT_EQ(stat(kPlanFile, &is), 0);
    EXPECT_EQ(is.st_ino, was.st_ino) << "a read replaced the plan file";

    // A missing plan file is written again by the next event.
    unlink(kPlanFile);
    answer(*m, GET_TEST);
    EXPECT_EQ(store.writeCount(), before + 1);
    EXPECT_EQ(readFile(kPlanFile), answer(*m, GET_TEST));

    // Start, abort and result: a handful of writes, not one per setter.
    before = store.writeCount();
    ASSERT_TRUE(m->sendEvent(RUN_START, nullptr, nullptr, 0, 0));
    EXPECT_EQ(readFile(kPlanFile), answer(*m, GET_TEST));
    ASSERT_TRUE(m->sendEvent(RUN_ABORT, nullptr, nullptr, 0, 0));
    EXPECT_EQ(readFile(kPlanFile), answer(*m, GET_TEST));
    ASSERT_FALSE(answer(*m, GET_RESULT).empty());
    EXPECT_LE(store.writeCount() - before, 4u);

    // A tick of 50 time-based test cases: one write, holding every counter.
    ASSERT_TRUE(m->sendEvent(RUN_START, nullptr, nullptr, 0, 0));
    before = store.writeCount();
    m->sendEvent(TICK, nullptr, nullptr, 10, 0);
    EXPECT_EQ(store.writeCount(), before + 1);
    std::string file = readFile(kPlanFile);
    const std::regex ten("\"testcase_current_time\":10,");
    EXPECT_EQ(std::distance(std::sregex_iterator(file.begin(), file.end(), ten),
                            std::sregex_iterator()),
              50);
    m->sendEvent(RUN_ABORT, nullptr, nullptr, 0, 0);
}
