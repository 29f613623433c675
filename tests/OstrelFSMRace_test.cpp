// An abort that meets the executor's own end: RUN_ABORT from the client's thread
// while another thread reaps the supervisor and sends RUN_FINISHED, as the tick
// thread does ("Race" selects it: ctest --preset tsan -R Race).

#include <algorithm>
#include <atomic>
#include <thread>

#include "TestSupport.h"

namespace {

// Seconds from a run's start until its supervisor has ended, for an executor
// that exits at once: the median of a few natural runs on this machine and
// build (sanitizers make it several times longer).
double executorLife(OstrelFSM& m) {
    std::vector<double> lives;
    for (int i = 0; i < 5; i++) {
        auto t0 = std::chrono::steady_clock::now();
        EXPECT_TRUE(m.sendEvent(RUN_START, nullptr, nullptr, 0, 0));
        waitpid(m.executorPid(), nullptr, 0);
        lives.push_back(std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count());
        m.sendEvent(RUN_FINISHED, nullptr, nullptr, 0, 0);
        m.sendEvent(GET_RESULT, nullptr, nullptr, 0, 0);
    }
    std::sort(lives.begin(), lives.end());
    return lives[2];
}

}  // namespace

TEST(RaceOstrelFSMRun, AbortMeetingTheExecutorsEndAlwaysEndsInCompleting) {
    constexpr int kRepetitions = 200;
    writeFile(kPlanFile, planJson(PREPARING, false, false, {rounds("exit 0", 1)}));
    OstrelFSM& m = newMachine();
    double life = executorLife(m);

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
        // A third of the aborts come at once, a third once the group is gone
        // (racing the ender's RUN_FINISHED), a third spread over the measured life.
        if (i % 3 == 1) {
            waitFor([&] { return kill(-supervisor, 0) != 0; }, 10);
        } else if (i % 3 == 2) {
            usleep(static_cast<useconds_t>(life * 1e6 * ((i / 3) % 10) / 8));
        }
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
    const int terminated = occurrences(err.text(), "ostrel: terminate process group: -");
    // Both orders occurred: aborts that found the group and aborts that came late.
    printf("executor life %.1f ms; %d of %d aborts found the group alive before the abort; "
           "%d terminated it\n",
           life * 1e3, groupsFound, kRepetitions, terminated);
    EXPECT_GT(terminated, 0);
    EXPECT_LT(terminated, kRepetitions);
}
