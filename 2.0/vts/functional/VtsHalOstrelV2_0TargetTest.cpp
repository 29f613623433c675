// VTS-style test of vendor.brevane.hardware.ostrel@2.0::IOstrel/default, through
// IOstrel::getService only: on a device over hwbinder, on a host over D-Bus next to
// a freshly started service. It checks each state's answers, the plan round trip,
// a short run to its result and an aborted run; the run's one test case is the
// executor's own "--help", which every executor answers and ends at once.
#include <vendor/brevane/hardware/ostrel/2.0/IOstrel.h>

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <initializer_list>
#include <regex>
#include <string>

using ::android::sp;
using ::android::hardware::hidl_array;
using ::android::hardware::hidl_string;
using ::android::hardware::Return;
using ::vendor::brevane::hardware::ostrel::V2_0::IOstrel;
using ::vendor::brevane::hardware::ostrel::V2_0::OstrelState;

namespace {

// A plan as a client writes it, with blanks and a key the planner must keep.
const char kPlan[] =
        "{\"not_set\": false, \"current_state\": 1, \"run_start\": false, "
        "\"run_finished\": false, \"owner\": \"vts\", \"testcases\": [{\"name\": \"help\", "
        "\"select\": true, \"command\": \"--help\", \"testcase_value\": 1, \"isRound\": true, "
        "\"testcase_current_time\": 0, \"testcase_target_time\": 0, "
        "\"testcase_current_round\": 0, \"testcase_target_round\": 0}]}";

class OstrelHidlTest : public ::testing::Test {
  protected:
    void SetUp() override {
        ostrel = IOstrel::getService("default");
        ASSERT_NE(ostrel, nullptr) << "IOstrel/default is not registered";
    }

    // The value of an answer; a failed call is a failure of the test.
    template <typename T>
    static T ok(const Return<T>& r) {
        EXPECT_TRUE(r.isOk()) << r.description();
        return r.isOk() ? static_cast<T>(r) : T{};
    }
    OstrelState state() { return ok(ostrel->getState()); }

    // The first value of a callback answer (not the reply log that comes with it).
    template <typename T, typename Method, typename... Args>
    T answer(Method method, const Args&... args) {
        T value{};
        Return<void> r = ((*ostrel).*method)(
                args..., [&](const auto& first, const hidl_string&) { value = first; });
        EXPECT_TRUE(r.isOk()) << r.description();
        return value;
    }
    std::string getTest() { return answer<std::string>(&IOstrel::getTest); }
    std::string getResult() { return answer<std::string>(&IOstrel::getResult); }
    std::string getConfig() { return answer<std::string>(&IOstrel::getConfig); }
    bool clearConfig() { return answer<bool>(&IOstrel::clearConfig); }
    bool setTest(const std::string& plan) { return answer<bool>(&IOstrel::setTest, plan); }
    bool setConfig(const std::string& config) { return answer<bool>(&IOstrel::setConfig, config); }

    // Brings the machine to PREPARING by the events each state answers to.
    void toPreparing() {
        if (state() == OstrelState::IDLE) ok(ostrel->bootCompleted());
        if (state() == OstrelState::RUNNING) ok(ostrel->runAbort());
        if (state() == OstrelState::COMPLETING) getResult();
        ASSERT_EQ(state(), OstrelState::PREPARING);
    }
    // Starts a run of kPlan and checks that it is RUNNING.
    void startRun() {
        ASSERT_NO_FATAL_FAILURE(toPreparing());
        ASSERT_TRUE(setTest(kPlan));
        ASSERT_TRUE(ok(ostrel->runStart()));
        ASSERT_EQ(state(), OstrelState::RUNNING);
    }
    // The client's requests and |events| are answered true and change nothing.
    void expectIgnored(std::initializer_list<Return<bool> (IOstrel::*)()> events) {
        OstrelState before = state();
        std::string plan = getTest();
        EXPECT_TRUE(setTest(kPlan));
        EXPECT_TRUE(setConfig("{}"));
        EXPECT_TRUE(clearConfig());
        EXPECT_TRUE(answer<bool>(&IOstrel::installTesters, hidl_string("tester.apk"),
                                 hidl_array<uint8_t, 65536>(), 3u));
        for (auto event : events) EXPECT_TRUE(ok(((*ostrel).*event)()));
        EXPECT_EQ(getConfig(), "");
        EXPECT_EQ(getTest(), plan);
        EXPECT_EQ(state(), before);
    }

    sp<IOstrel> ostrel;
};

bool contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

// A service that has not yet been told that the device booted acts on nothing
// but bootCompleted, which moves it to PREPARING.
TEST_F(OstrelHidlTest, IdleAnswersEverythingButBootCompletedWithoutActing) {
    if (state() != OstrelState::IDLE) {
        GTEST_SKIP() << "the service has already been told that the device booted";
    }
    EXPECT_EQ(getTest(), "");
    expectIgnored({&IOstrel::runStart, &IOstrel::runAbort, &IOstrel::runFinished});
    EXPECT_EQ(getResult(), "");
    EXPECT_TRUE(ok(ostrel->bootCompleted()));
    EXPECT_EQ(state(), OstrelState::PREPARING);
}

// In PREPARING a plan is stored and handed back compact, its members in order
// and a key the planner does not know kept; the configuration list comes from
// the config tool and a selection from it is applied.
TEST_F(OstrelHidlTest, PreparingStoresThePlanAndHandsItBack) {
    ASSERT_NO_FATAL_FAILURE(toPreparing());
    EXPECT_TRUE(setTest(kPlan));
    std::string compact = kPlan;  // members in their order, without blanks
    compact.erase(std::remove(compact.begin(), compact.end(), ' '), compact.end());
    EXPECT_EQ(getTest(), compact);
    std::string config = getConfig();
    EXPECT_EQ(config.rfind("{\"id\":\"default\",\"config\":[", 0), 0u) << config;
    EXPECT_TRUE(setConfig(config));
    EXPECT_TRUE(clearConfig());
    EXPECT_EQ(state(), OstrelState::PREPARING);
}

// A run ends by itself when the executor does; its result names an archive and a
// crash-history copy of one time stamp, and the machine is back in PREPARING.
TEST_F(OstrelHidlTest, ShortRunEndsWithItsResult) {
    ASSERT_NO_FATAL_FAILURE(startRun());
    // RUNNING hands out the plan with the run's targets, and acts on no request.
    std::string running = getTest();
    EXPECT_TRUE(contains(running, "\"run_start\":true,\"run_finished\":false")) << running;
    EXPECT_TRUE(contains(running, "\"testcase_current_round\":0,\"testcase_target_round\":1"))
            << running;
    expectIgnored({&IOstrel::bootCompleted});
    EXPECT_EQ(getResult(), "");

    // The executor ends at once; the service notices within a tick (10 seconds).
    for (int i = 0; i < 120 && state() != OstrelState::COMPLETING; i++) usleep(250 * 1000);
    ASSERT_EQ(state(), OstrelState::COMPLETING) << "the run did not end by itself";
    // COMPLETING keeps the finished plan and hands out only the result.
    EXPECT_TRUE(contains(getTest(), "\"run_start\":true,\"run_finished\":true")) << getTest();
    expectIgnored({&IOstrel::runStart, &IOstrel::runAbort, &IOstrel::runFinished,
                   &IOstrel::bootCompleted});

    std::string result = getResult();
    std::smatch names;
    ASSERT_TRUE(std::regex_match(result, names, std::regex("(/data/vendor/qav/results/QAV(\\d{8}_\\d{6})"
                                                           "\\.zip), (\\S+QAV\\2\\.db_history)")))
            << result;
    EXPECT_EQ(state(), OstrelState::PREPARING);
    EXPECT_EQ(getResult(), "");
    EXPECT_EQ(access(names[1].str().c_str(), R_OK), 0) << names[1];
    EXPECT_EQ(access(names[3].str().c_str(), R_OK), 0) << names[3];
}

// An aborted run goes to COMPLETING at once and hands out its result like any other.
TEST_F(OstrelHidlTest, AbortedRunCompletesAtOnce) {
    ASSERT_NO_FATAL_FAILURE(startRun());
    EXPECT_TRUE(ok(ostrel->runAbort()));
    EXPECT_EQ(state(), OstrelState::COMPLETING);
    EXPECT_TRUE(contains(getTest(), "\"run_start\":true,\"run_finished\":true"));
    EXPECT_TRUE(contains(getResult(), ".zip, /data/vendor/qav/results/QAV"));
    EXPECT_EQ(state(), OstrelState::PREPARING);
}

}  // namespace
