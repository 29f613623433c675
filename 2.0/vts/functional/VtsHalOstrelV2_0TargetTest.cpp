// VTS-style test of vendor.brevane.hardware.ostrel@2.0::IOstrel/default. It reaches
// the service only through IOstrel::getService, so the same source runs on a
// device (hwbinder) and on a host (the D-Bus transport, inside the device sandbox
// next to a freshly started service). It checks what every device must hold: the
// state machine's answers in each state, the plan round trip, and a short run to
// its result. The run's one test case is the executor's own "--help", which every
// executor answers and ends at once.
#include <vendor/brevane/hardware/ostrel/2.0/IOstrel.h>

#include <gtest/gtest.h>

#include <chrono>
#include <fstream>
#include <functional>
#include <iterator>
#include <regex>
#include <string>
#include <thread>

using ::android::sp;
using ::android::hardware::hidl_array;
using ::android::hardware::hidl_string;
using ::android::hardware::Return;
using ::vendor::brevane::hardware::ostrel::V2_0::IOstrel;
using ::vendor::brevane::hardware::ostrel::V2_0::OstrelState;

namespace {

// A plan as a client writes it: blanks after colons and commas, and a key the
// planner does not know, which it must keep.
const char kPlan[] =
        "{\"not_set\": false, \"current_state\": 1, \"run_start\": false, "
        "\"run_finished\": false, \"owner\": \"vts\", \"testcases\": [{\"name\": \"help\", "
        "\"select\": true, \"command\": \"--help\", \"testcase_value\": 1, \"isRound\": true, "
        "\"testcase_current_time\": 0, \"testcase_target_time\": 0, "
        "\"testcase_current_round\": 0, \"testcase_target_round\": 0}]}";
// The same plan as the planner hands it back: compact, members in their order.
const char kCompactPlan[] =
        "{\"not_set\":false,\"current_state\":1,\"run_start\":false,\"run_finished\":false,"
        "\"owner\":\"vts\",\"testcases\":[{\"name\":\"help\",\"select\":true,"
        "\"command\":\"--help\",\"testcase_value\":1,\"isRound\":true,"
        "\"testcase_current_time\":0,\"testcase_target_time\":0,"
        "\"testcase_current_round\":0,\"testcase_target_round\":0}]}";

// A text answer (getConfig, getTest, getResult) and the reply log that came with it.
struct Text {
    std::string text;
    std::string log;
};

// A yes/no answer (setConfig, clearConfig, setTest, installTesters) and its log.
struct Verdict {
    bool ok = false;
    std::string log;
};

std::string str(const hidl_string& s) {
    return std::string(s.c_str(), s.size());
}

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

class OstrelHidlTest : public ::testing::Test {
  protected:
    void SetUp() override {
        ostrel = IOstrel::getService("default");
        ASSERT_NE(ostrel, nullptr) << "IOstrel/default is not registered";
    }

    OstrelState state() {
        Return<OstrelState> r = ostrel->getState();
        EXPECT_TRUE(r.isOk()) << r.description();
        return r;
    }

    template <typename Method>
    Text text(Method method) {
        Text answer;
        Return<void> r = ((*ostrel).*method)([&](const hidl_string& text, const hidl_string& log) {
            answer = {str(text), str(log)};
        });
        EXPECT_TRUE(r.isOk()) << r.description();
        return answer;
    }
    Text getConfig() { return text(&IOstrel::getConfig); }
    Text getTest() { return text(&IOstrel::getTest); }
    Text getResult() { return text(&IOstrel::getResult); }

    Verdict verdict(const std::function<Return<void>(std::function<void(bool, const hidl_string&)>)>&
                            call) {
        Verdict answer;
        Return<void> r = call([&](bool ok, const hidl_string& log) { answer = {ok, str(log)}; });
        EXPECT_TRUE(r.isOk()) << r.description();
        return answer;
    }
    Verdict setTest(const std::string& plan) {
        return verdict([&](auto cb) { return ostrel->setTest(plan, cb); });
    }
    Verdict setConfig(const std::string& config) {
        return verdict([&](auto cb) { return ostrel->setConfig(config, cb); });
    }
    Verdict clearConfig() {
        return verdict([&](auto cb) { return ostrel->clearConfig(cb); });
    }
    Verdict installTesters(const std::string& file, uint32_t len) {
        hidl_array<uint8_t, 65536> data;
        return verdict([&](auto cb) { return ostrel->installTesters(file, data, len, cb); });
    }

    static bool ok(const Return<bool>& r) {
        EXPECT_TRUE(r.isOk()) << r.description();
        return r.isOk() && static_cast<bool>(r);
    }

    // Empties the reply log, so that the next answer's log holds only its own lines.
    void flushLog() { getResult(); }

    // Brings the machine to PREPARING by the events each state answers to.
    void toPreparing() {
        for (int step = 0; step < 3 && state() != OstrelState::PREPARING; step++) {
            switch (state()) {
                case OstrelState::IDLE: ok(ostrel->bootCompleted()); break;
                case OstrelState::RUNNING: ok(ostrel->runAbort()); break;
                case OstrelState::COMPLETING: getResult(); break;
                default: break;
            }
        }
        ASSERT_EQ(state(), OstrelState::PREPARING);
    }

    // Polls the state until it is |want| or |seconds| have passed.
    bool waitForState(OstrelState want, int seconds) {
        auto end = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
        while (state() != want) {
            if (std::chrono::steady_clock::now() > end) return false;
            std::this_thread::sleep_for(std::chrono::milliseconds(250));
        }
        return true;
    }

    sp<IOstrel> ostrel;
};

// A service that has not yet been told that the device booted acts on nothing
// but bootCompleted, which moves it to PREPARING.
TEST_F(OstrelHidlTest, IdleAnswersEverythingButBootCompletedWithoutActing) {
    if (state() != OstrelState::IDLE) {
        GTEST_SKIP() << "the service has already been told that the device booted";
    }
    flushLog();
    EXPECT_TRUE(ok(ostrel->runStart()));
    Text test = getTest();
    EXPECT_EQ(test.text, "");
    EXPECT_EQ(test.log, "ostrel: runStart\nostrel: getTest\nostrel: test=\n");

    EXPECT_EQ(setTest(kPlan).log, std::string("ostrel: setTest\nostrel: test=") + kPlan + "\n");
    EXPECT_EQ(getTest().text, "");
    Verdict config = setConfig("not json");
    EXPECT_TRUE(config.ok);
    EXPECT_EQ(config.log, "ostrel: setConfig\nostrel: config=not json\n");
    EXPECT_TRUE(clearConfig().ok);
    EXPECT_EQ(getConfig().text, "");
    EXPECT_TRUE(ok(ostrel->runAbort()));
    EXPECT_TRUE(ok(ostrel->runFinished()));
    Text result = getResult();
    EXPECT_EQ(result.text, "");
    EXPECT_EQ(result.log, "ostrel: runAbort\nostrel: runFinished\nostrel: getResult\n"
                          "ostrel: result=\n");
    EXPECT_EQ(state(), OstrelState::IDLE);

    EXPECT_TRUE(ok(ostrel->bootCompleted()));
    EXPECT_EQ(state(), OstrelState::PREPARING);
    EXPECT_EQ(getResult().log, "ostrel: getState\nostrel: state=IDLE\nostrel: bootCompleted\n"
                               "ostrel: getState\nostrel: state=PREPARING\nostrel: getResult\n"
                               "ostrel: result=\n");
}

// In PREPARING a plan is stored and handed back compact with its members in
// order; a text that is no JSON changes nothing.
TEST_F(OstrelHidlTest, PreparingStoresThePlanAndHandsItBack) {
    ASSERT_NO_FATAL_FAILURE(toPreparing());
    flushLog();
    Verdict stored = setTest(kPlan);
    EXPECT_TRUE(stored.ok);
    EXPECT_EQ(stored.log, std::string("ostrel: setTest\nostrel: test=") + kPlan + "\n");
    Text test = getTest();
    EXPECT_EQ(test.text, kCompactPlan);
    EXPECT_EQ(test.log, std::string("ostrel: getTest\nostrel: test=") + kCompactPlan + "\n");

    // (A JSON text that is no object would be refused too, but it replaces the
    // plan in memory, and with it the state: the service would answer as IDLE
    // until it restarts. A device test must not leave it so.)
    EXPECT_TRUE(setTest("this is no JSON").ok);
    EXPECT_EQ(getTest().text, kCompactPlan);

    // The configuration list comes from the config tool; clearing runs it too.
    Text config = getConfig();
    EXPECT_EQ(config.text.rfind("{\"id\":\"default\",\"config\":[", 0), 0u) << config.text;
    EXPECT_NE(config.log.find("ostrel: config=" + config.text + "\n"), std::string::npos);
    EXPECT_TRUE(clearConfig().ok);

    // A selection that is no JSON object is refused before the config tool runs.
    Verdict selection = setConfig("not json");
    EXPECT_FALSE(selection.ok);
    EXPECT_EQ(selection.log.rfind("ostrel: setConfig\nostrel: config=not json\n", 0), 0u)
            << selection.log;
    Verdict testers = installTesters("tester.apk", 3);
    EXPECT_TRUE(testers.ok);
    EXPECT_EQ(testers.log, "ostrel: installTesters file=tester.apk len=3\n");
    EXPECT_EQ(getResult().text, "");
    EXPECT_EQ(state(), OstrelState::PREPARING);
}

// A run of the plan's one test case ends by itself when the executor does; its
// result names an archive and a crash-history copy of one time stamp, both
// present, and the machine is back in PREPARING.
TEST_F(OstrelHidlTest, ShortRunEndsWithItsResult) {
    ASSERT_NO_FATAL_FAILURE(toPreparing());
    ASSERT_TRUE(setTest(kPlan).ok);
    flushLog();
    ASSERT_TRUE(ok(ostrel->runStart()));
    EXPECT_EQ(state(), OstrelState::RUNNING);

    // RUNNING hands out the plan with the run's targets, and acts on no request.
    Text running = getTest();
    EXPECT_EQ(running.log.rfind("ostrel: runStart\nostrel: getState\nostrel: state=RUNNING\n"
                                "ostrel: getTest\nostrel: test={",
                                0),
              0u)
            << running.log;
    EXPECT_NE(running.text.find("\"run_start\":true,\"run_finished\":false"), std::string::npos)
            << running.text;
    EXPECT_NE(running.text.find("\"testcase_current_round\":0,\"testcase_target_round\":1"),
              std::string::npos)
            << running.text;
    EXPECT_TRUE(setConfig("not json").ok);
    EXPECT_TRUE(setTest("{}").ok);
    EXPECT_EQ(getTest().text, running.text);

    // The executor ends at once; the service notices within a tick (10 seconds).
    ASSERT_TRUE(waitForState(OstrelState::COMPLETING, 30)) << "the run did not end by itself";
    EXPECT_NE(getTest().text.find("\"run_start\":true,\"run_finished\":true"), std::string::npos);
    EXPECT_TRUE(ok(ostrel->runStart()));
    EXPECT_EQ(state(), OstrelState::COMPLETING);

    Text result = getResult();
    std::smatch names;
    ASSERT_TRUE(std::regex_match(result.text, names,
                                 std::regex("(/data/vendor/qav/results/QAV([0-9]{8}_[0-9]{6})"
                                            "\\.zip), (/data/vendor/qav/results/QAV([0-9]{8}_"
                                            "[0-9]{6})\\.db_history)")))
            << result.text;
    EXPECT_EQ(names[2], names[4]);
    EXPECT_NE(result.log.find("ostrel: result=" + result.text + "\n"), std::string::npos);
    EXPECT_EQ(state(), OstrelState::PREPARING);
    EXPECT_EQ(getResult().text, "");

    // The archive holds the plan and the executor's log (its entry names are
    // stored as they stand); the history copy exists, empty as no crash happened.
    std::string zip = readFile(names[1].str());
    EXPECT_EQ(zip.rfind("PK\x03\x04", 0), 0u) << names[1] << " is no zip archive";
    EXPECT_NE(zip.find("qav/data/ostreldata.txt"), std::string::npos);
    EXPECT_NE(zip.find("qav/kelbrun/kelbrun_log.txt"), std::string::npos);
    std::ifstream history(names[3].str());
    EXPECT_TRUE(history.good()) << names[3];
}

// An aborted run goes to COMPLETING at once and hands out its result like any other.
TEST_F(OstrelHidlTest, AbortedRunCompletesAtOnce) {
    ASSERT_NO_FATAL_FAILURE(toPreparing());
    ASSERT_TRUE(setTest(kPlan).ok);
    ASSERT_TRUE(ok(ostrel->runStart()));
    EXPECT_TRUE(ok(ostrel->runAbort()));
    EXPECT_EQ(state(), OstrelState::COMPLETING);
    EXPECT_NE(getTest().text.find("\"run_start\":true,\"run_finished\":true"), std::string::npos);
    EXPECT_NE(getResult().text.find(".zip, /data/vendor/qav/results/QAV"), std::string::npos);
    EXPECT_EQ(state(), OstrelState::PREPARING);
}

}  // namespace
