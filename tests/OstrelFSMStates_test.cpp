// Every event in every state: the handler's result, the state it leaves, what it
// writes to the client's stream, and what it does (plan stored, executor started,
// tool run, run ended, result made) or that it does nothing at all.

#include <map>
#include <regex>

#include "TestSupport.h"

namespace {

enum Answer { kNoText, kPlan, kList, kResultNames };
enum Effect { kNothing, kStored, kStarted, kCounted, kToolSet, kToolCleared, kEnded, kResult };

struct Expected {
    PlannerFSMState after;
    Answer answer = kNoText;
    Effect effect = kNothing;
};

// What differs from "answers true, writes nothing, does nothing".
Expected expected(PlannerFSMState state, int event) {
    const std::map<std::pair<int, int>, Expected> acts = {
            {{IDLE, BOOT_COMPLETED}, {PREPARING}},
            {{PREPARING, GET_CONFIG}, {PREPARING, kList}},
            {{PREPARING, SET_CONFIG}, {PREPARING, kNoText, kToolSet}},
            {{PREPARING, CLEAR_CONFIG}, {PREPARING, kNoText, kToolCleared}},
            {{PREPARING, SET_TEST}, {PREPARING, kNoText, kStored}},
            {{PREPARING, GET_TEST}, {PREPARING, kPlan}},
            {{PREPARING, RUN_START}, {RUNNING, kNoText, kStarted}},
            // A restored run: a boot completion or a client's runStart starts the executor.
            {{RUNNING, BOOT_COMPLETED}, {RUNNING, kNoText, kStarted}},
            {{RUNNING, RUN_START}, {RUNNING, kNoText, kStarted}},
            {{RUNNING, GET_TEST}, {RUNNING, kPlan}},
            {{RUNNING, TICK}, {RUNNING, kNoText, kCounted}},
            {{RUNNING, RUN_ABORT}, {COMPLETING, kNoText, kEnded}},
            {{RUNNING, RUN_FINISHED}, {COMPLETING, kNoText, kEnded}},
            {{COMPLETING, GET_TEST}, {COMPLETING, kPlan}},
            {{COMPLETING, GET_RESULT}, {PREPARING, kResultNames, kResult}},
    };
    auto it = acts.find({state, event});
    return it != acts.end() ? it->second : Expected{state};
}

const std::map<int, std::string> kInputs = {
        {SET_TEST, planJson(PREPARING, false, false, {rounds("say new", 1)})},
        {SET_CONFIG, R"({"config":[]})"},
        {INSTALL_TESTERS, "/data/vendor/qav/tester.apk"}};

}  // namespace

TEST(OstrelFSMStates, EveryEventInEveryStateHasItsAnswerAndEffect) {
    const std::regex resultNames("/data/vendor/qav/results/QAV(\\d{8}_\\d{6})\\.zip, "
                                 "/data/vendor/qav/results/QAV\\1\\.db_history");
    for (PlannerFSMState state : {IDLE, PREPARING, RUNNING, COMPLETING}) {
        for (int event = 0; event <= 13; event++) {
            SCOPED_TRACE(testing::Message() << kStateNames[state] << ", event " << event);
            useSilletStandIn();
            unlink(kExecutorLogFile);
            Testcase hour = hours("sleep 60", 1);
            hour.targetTime = 3600;  // as a started run holds it
            writeFile(kPlanFile, planJson(state, state >= RUNNING, state == COMPLETING,
                               {rounds("sleep 60", 1), hour}));
            auto m = timedMachine(std::chrono::seconds(60));
            const std::string before = readFile(kPlanFile);
            bool result = false;
            std::string text =
                    answer(*m, static_cast<PlannerEvent>(event), &result,
                           kInputs.count(event) ? kInputs.at(event) : "");
            Expected want = expected(state, event);

            EXPECT_TRUE(result);
            EXPECT_EQ(m->getState(), want.after);
            EXPECT_EQ(OstrelFSMData().getState(), want.after) << "not persisted";
            switch (want.answer) {
                case kNoText: EXPECT_EQ(text, ""); break;
                case kPlan: EXPECT_EQ(text, readFile(kPlanFile)); break;
                case kList: EXPECT_EQ(text.rfind(R"({"id":"default","config":[{)", 0), 0u); break;
                case kResultNames: EXPECT_TRUE(std::regex_match(text, resultNames)) << text; break;
            }
            EXPECT_EQ(m->executorPid() >= 1, want.effect == kStarted);
            EXPECT_EQ(readFile(kSilletState),
                      want.effect == kToolSet ? "set\n" : want.effect == kToolCleared ? "clear\n" : "");
            EXPECT_EQ(fileExists("/data/vendor/qav/tester.apk"), false);
            OstrelFSMData& plan = m->planStore();
            switch (want.effect) {
                case kNothing:
                    if (want.after == state) EXPECT_EQ(readFile(kPlanFile), before);
                    break;
                case kStored: EXPECT_TRUE(contains(readFile(kPlanFile), "say new")); break;
                case kStarted: EXPECT_TRUE(plan.getRunStart() && !plan.getRunFinished()); break;
                case kCounted: EXPECT_EQ(plan.getTestcaseCurrentTime(1), 10); break;
                case kEnded: EXPECT_TRUE(plan.getRunFinished()); break;
                case kResult: EXPECT_FALSE(plan.getRunStart() || plan.getRunFinished()); break;
                default: break;
            }
            if (m->getState() == RUNNING) m->sendEvent(RUN_ABORT, nullptr, nullptr, 0, 0);
        }
    }
}

// The cases that answer false, and how IDLE leaves by the stored run flags.
TEST(OstrelFSMStates, RefusalsAndTheWayOutOfIdle) {
    OstrelFSM& m = newMachine();  // the built-in placeholder plan, IDLE
    ASSERT_TRUE(m.sendEvent(BOOT_COMPLETED, nullptr, nullptr, 0, 0));
    // The placeholder is never handed out; a failing tool fails the config events.
    useSilletStandIn();
    setenv("SILLET_EXIT", "2", 1);
    for (PlannerEvent event : {GET_TEST, GET_CONFIG, SET_CONFIG, CLEAR_CONFIG}) {
        bool result = true;
        EXPECT_EQ(answer(m, event, &result, "[]"), "") << event;
        EXPECT_FALSE(result) << event;
    }
    EXPECT_EQ(m.getState(), PREPARING);

    // A restart between the two writes of a run's end finds RUNNING with both flags:
    // the run had ended, so it resumes in COMPLETING and starts nothing.
    struct Case {
        PlannerFSMState stored;
        bool runStart, runFinished;
        PlannerFSMState after;
    } cases[] = {{IDLE, false, false, PREPARING}, {IDLE, false, true, PREPARING},
                 {IDLE, true, false, RUNNING},    {IDLE, true, true, COMPLETING},
                 {RUNNING, true, true, COMPLETING}};
    for (const Case& c : cases) {
        writeFile(kPlanFile, planJson(c.stored, c.runStart, c.runFinished, {rounds("sleep 60", 1)}));
        OstrelFSM m(nullptr);
        EXPECT_EQ(m.getState(), c.stored);
        EXPECT_TRUE(m.sendEvent(BOOT_COMPLETED, nullptr, nullptr, 0, 0));
        EXPECT_EQ(m.getState(), c.after);
        EXPECT_EQ(OstrelFSM(nullptr).getState(), c.after) << "not persisted";
        EXPECT_EQ(m.executorPid(), 0) << "an executor was started";
        if (c.after != COMPLETING) continue;
        writeFile(kHistoryCopy, "crash\n");
        EXPECT_FALSE(answer(m, GET_RESULT).empty());
    }
}
