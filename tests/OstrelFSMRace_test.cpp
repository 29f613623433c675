// An abort that meets the executor's own end: RUN_ABORT from the client's thread
// while another thread reaps the supervisor and sends RUN_FINISHED, as the tick
// thread does. The suite name starts with "Race" so that the ThreadSanitizer
// build can select it (ctest --preset tsan -R Race).
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <atomic>
#include <thread>

#include "RunSupport.h"

using namespace vendor::brevane::hardware::ostrel::core;
using namespace ostrel_test;

TEST(RaceOstrelFSMRun, AbortMeetingTheExecutorsEndAlwaysEndsInCompleting) {
    constexpr int kRepetitions = 200;
    Testcase quick;
    quick.command = "\"exit 0\"";
    writePlan(planJson(PREPARING, false, false, {quick}));
    OstrelFSM& m = newMachine();

    StderrCapture err;
    int groupsFound = 0;
    for (int i = 0; i < kRepetitions; i++) {
        ASSERT_EQ(m.getState(), PREPARING) << "repetition " << i;
        ASSERT_TRUE(m.sendEvent(RUN_START, nullptr, nullptr, 0, 0));
        pid_t supervisor = m.executorPid();
        ASSERT_GE(supervisor, 1);
        std::atomic<bool> go(false);
        std::thread ender([&] {
            while (!go.load()) {
            }
            // The stand-in exits at once; the supervisor then kills its group.
            waitpid(supervisor, nullptr, 0);
            m.sendEvent(RUN_FINISHED, nullptr, nullptr, 0, 0);
        });
        go.store(true);
        // Spread the abort over the executor's start-up and end (a few ms).
        usleep(static_cast<useconds_t>((i % 10) * 700));
        if (kill(-supervisor, 0) == 0) groupsFound++;
        EXPECT_TRUE(m.sendEvent(RUN_ABORT, nullptr, nullptr, 0, 0));
        ender.join();

        ASSERT_EQ(m.getState(), COMPLETING) << "repetition " << i;
        EXPECT_EQ(m.executorPid(), -1);
        EXPECT_FALSE(m.threadsAreRunning());
        EXPECT_TRUE(m.planStore().getRunFinished());
        m.sendEvent(GET_RESULT, nullptr, nullptr, 0, 0);
    }
    err.restore();
    size_t terminated = 0;
    for (size_t at = 0; (at = err.text().find("ostrel: terminate process group: -", at)) !=
                        std::string::npos;
         at++) {
        terminated++;
    }
    // Both orders occurred: aborts that found the group and aborts that came late.
    printf("%d of %d aborts found the group alive before the abort; %zu terminated it\n",
           groupsFound, kRepetitions, terminated);
    EXPECT_GT(terminated, 0u);
    EXPECT_LT(terminated, static_cast<size_t>(kRepetitions));
    EXPECT_EQ(m.getState(), PREPARING);
}
