#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "TestSupport.h"
#include "OstrelFSM.h"

using namespace vendor::brevane::hardware::ostrel::core;
using ostrel_test::kSilletState;
using ostrel_test::readFile;
using ostrel_test::ReplyLog;

namespace {

// A service whose machine is in PREPARING.
class PreparingConfigEvents : public ::testing::Test {
  protected:
    void SetUp() override {
        ostrel_test::useSilletStandIn();
        ASSERT_TRUE(fsm().sendEvent(BOOT_COMPLETED, nullptr, nullptr, 0, 0));
        ASSERT_EQ(fsm().getState(), PREPARING);
        log.added();
    }
    OstrelFSM& fsm() { return log.get()->machine(); }

    // GET_CONFIG into a memory stream: the handler's answer and what it wrote.
    bool getConfig(std::string* text) {
        char* buf = nullptr;
        size_t size = 0;
        FILE* stream = open_memstream(&buf, &size);
        bool ok = fsm().sendEvent(GET_CONFIG, nullptr, nullptr, 0, reinterpret_cast<long>(stream));
        fclose(stream);
        text->assign(buf, size);
        free(buf);
        return ok;
    }

    ReplyLog log;
};

}  // namespace

TEST_F(PreparingConfigEvents, GetConfigWritesTheListAndStaysInPreparing) {
    std::string text;
    ASSERT_TRUE(getConfig(&text));
    EXPECT_EQ(text.compare(0, 26, R"({"id":"default","config":[)"), 0);
    EXPECT_NE(text.find(R"({"name":"vdd_npu customization","select":false,"num":62,"value":0})"),
              std::string::npos);
    std::string added = log.added();
    EXPECT_EQ(added.compare(0, 24, "Preparing the QaV list\n\n"), 0);
    const std::string end = "\nHave the QaV list ready\n\nQuery the QaV list\n\n";
    ASSERT_GT(added.size(), end.size());
    EXPECT_EQ(added.substr(added.size() - end.size()), end);
    EXPECT_EQ(fsm().getState(), PREPARING);

    setenv("SILLET_EXIT", "2", 1);
    testing::internal::CaptureStderr();
    EXPECT_FALSE(getConfig(&text));
    std::string diagnostics = testing::internal::GetCapturedStderr();
    EXPECT_EQ(text, "");
    EXPECT_NE(diagnostics.find("Log at OstrelFSM: ostrel: Fail to prepare the QaV list\n"),
              std::string::npos);
    EXPECT_EQ(fsm().getState(), PREPARING);
}

TEST_F(PreparingConfigEvents, StreamThatTakesNothingGivesAssertionLine263) {
    FILE* full = fopen("/dev/full", "w");
    ASSERT_NE(full, nullptr);
    setvbuf(full, nullptr, _IONBF, 0);
    testing::internal::CaptureStderr();
    EXPECT_TRUE(fsm().sendEvent(GET_CONFIG, nullptr, nullptr, 0, reinterpret_cast<long>(full)));
    std::string diagnostics = testing::internal::GetCapturedStderr();
    fclose(full);
    EXPECT_NE(diagnostics.find("Log at OstrelFSM: ostrel: Exp=fprintf(buf_fp, \"%s\", buf) > 0 "
                               "Line:263 Func:bool vendor::brevane::hardware::ostrel::core::"
                               "OstrelFSM::preparing(vendor::brevane::hardware::ostrel::core::"
                               "PlannerEvent, char *, char *, int, long)\n"),
              std::string::npos)
            << diagnostics;
}

TEST_F(PreparingConfigEvents, SetConfigRunsTheToolWithTheClientsList) {
    std::string json = R"({"config":[{"name":"hw_watchdog","select":true,"enable-num":25,)"
                       R"("disable-num":26}]})";
    EXPECT_TRUE(fsm().sendEvent(SET_CONFIG, json.data(), nullptr, 0, 0));
    EXPECT_EQ(readFile(kSilletState), "set 25\n");
    EXPECT_NE(log.added().find(" set 25 \n"), std::string::npos);
    EXPECT_EQ(fsm().getState(), PREPARING);

    std::string refused = "[]";
    testing::internal::CaptureStderr();
    EXPECT_FALSE(fsm().sendEvent(SET_CONFIG, refused.data(), nullptr, 0, 0));
    std::string diagnostics = testing::internal::GetCapturedStderr();
    EXPECT_EQ(diagnostics,
              "Cannot parse the given JSON: is not object\n"
              "Log at OstrelFSM: ostrel: Fail to select QaV\n");
    EXPECT_EQ(log.added(), "Cannot parse the given JSON: is not object\n\n");
    EXPECT_EQ(readFile(kSilletState), "set 25\n");
    EXPECT_EQ(fsm().getState(), PREPARING);
}

TEST_F(PreparingConfigEvents, ClearConfigAnswersTheToolsResult) {
    EXPECT_TRUE(fsm().sendEvent(CLEAR_CONFIG, nullptr, nullptr, 0, 0));
    EXPECT_EQ(readFile(kSilletState), "clear\n");
    setenv("SILLET_SIGNAL", "KILL", 1);
    EXPECT_FALSE(fsm().sendEvent(CLEAR_CONFIG, nullptr, nullptr, 0, 0));
    EXPECT_EQ(readFile(kSilletState), "clear\nclear\n");
    EXPECT_EQ(log.added(), "");
    EXPECT_EQ(fsm().getState(), PREPARING);
}
