#include <gtest/gtest.h>

#include <chrono>
#include <string>

#include "ConfigBridge.h"
#include "TestSupport.h"

using namespace vendor::brevane::hardware::ostrel::core;
using ostrel_test::fileExists;
using ostrel_test::kSilletState;
using ostrel_test::readFile;
using ostrel_test::ReplyLog;

namespace {

constexpr const char* kRefused = "Cannot parse the given JSON: exit_select_qav\n\n";

// The words the stand-in received for one "set" run.
std::string selectGiving(const std::string& json) {
    ostrel_test::useSilletStandIn();
    if (selectSilletConfig(nullptr, json.c_str()) != 0) return "(failed)";
    return readFile(kSilletState);
}

}  // namespace

TEST(ConfigSelect, ExampleListGivesItsVectorAndEchoesIt) {
    std::string bin = ostrel_test::useSilletStandIn();
    ReplyLog log;
    const char* json = R"({"id":"default","config":[
        {"name":"thermal_mitigation","select":true,"enable-num":4,"disable-num":5},
        {"name":"random_hotplug","select":false,"enable-num":8,"disable-num":9},
        {"name":"ddr_features","multi":true,"content":[
            {"name":"ddr_ecc_injection","select":true,"enable-num":-1,"disable-num":-1}]},
        {"name":"vdd_gpu","multi":false,"content":[
            {"name":"vdd_gpu customization","select":true,"value":850,"num":20}]}]})";
    ASSERT_EQ(selectSilletConfig(log.get(), json), 0);
    EXPECT_EQ(readFile(kSilletState), "set 4 9 20 a850\n");
    std::string out = "argv = " + bin + " set 4 9 20 a850 \nsillet: 4 word(s) applied\n";
    EXPECT_EQ(log.added(), "collect sillet out_buf size=" + std::to_string(out.size()) + "\n\n" +
                                   out + "\ncollect sillet err_buf size=0\n\n");
}

TEST(ConfigSelect, NumberRulesOfTheWalk) {
    auto item = [](const char* select, const char* extra) {
        return std::string(R"({"name":"f","select":)") + select + extra + "}";
    };
    auto list = [](const std::string& entries) { return R"({"config":[)" + entries + "]}"; };
    auto group = [](const std::string& members) {
        return R"({"name":"g","multi":false,"content":[)" + members + "]}";
    };
    EXPECT_EQ(selectGiving(list("")), "set\n");
    EXPECT_EQ(selectGiving(list(item("true", R"(,"enable-num":-1,"disable-num":-1)") + "," +
                                group(item("true", R"(,"num":-1)")))),
              "set\n");
    // Levels are passed whatever their selection; a switch member by its selection.
    EXPECT_EQ(selectGiving(list(group(item("false", R"(,"num":3)") + "," +
                                      item("true", R"(,"value":0,"num":7)") + "," +
                                      item("false", R"(,"enable-num":1,"disable-num":2)")))),
              "set 3 7 a0 2\n");
    // A missing number is passed on as "-1"; a negative value adds no value word.
    EXPECT_EQ(selectGiving(list(item("true", R"(,"disable-num":6,"value":-1)") + "," +
                                item("true", R"(,"enable-num":5,"value":0)"))),
              "set -1 5 a0\n");
    // A member's "num" replaces its switch number, unless the switch is not offered.
    EXPECT_EQ(selectGiving(list(group(item("true", R"(,"enable-num":4,"num":11)") + "," +
                                      item("true", R"(,"enable-num":-1,"num":12)")))),
              "set 11\n");
    // Groups without members are skipped; only the boolean true selects.
    EXPECT_EQ(selectGiving(list(R"({"name":"g","multi":true},{"multi":1,"content":[]},)" +
                                item("1", R"(,"enable-num":1,"disable-num":2)"))),
              "set 2\n");
    // Wrong types read as missing.
    EXPECT_EQ(selectGiving(list(
                      R"({"name":7,"select":"yes","enable-num":"4","disable-num":[1],"value":{}},)"
                      R"({"name":"g","multi":true,"content":{"name":"x"}},)"
                      R"({"multi":null,"content":[{"select":true,"num":2.5,"value":"850"}]})")),
              "set -1 -1\n");
    // Enough entries to grow the vector several times, in list order.
    std::string many;
    std::string expected = "set";
    for (int i = 0; i < 30; i++) {
        many += (i ? "," : "") + item("true", (R"(,"enable-num":)" + std::to_string(i) +
                                               R"(,"value":)" + std::to_string(100 + i))
                                                      .c_str());
        expected += " " + std::to_string(i) + " a" + std::to_string(100 + i);
    }
    EXPECT_EQ(selectGiving(list(many)), expected + "\n");
}

TEST(ConfigSelect, UnreadableListsAreRefusedWithoutRunningTheTool) {
    std::string deep(1000000, '[');
    std::string bigNumbers = R"({"config":[)";
    while (bigNumbers.size() < 10 * 1024 * 1024) bigNumbers += "123456789,";
    bigNumbers += "0]}";
    struct Case {
        std::string json;
        std::string log;
    } cases[] = {
            {"{}", "Cannot parse the given JSON: no configs array\n\n"},
            {R"({"config":{"name":"x"}})", "Cannot parse the given JSON: no configs array\n\n"},
            {"[]", "Cannot parse the given JSON: is not object\n\n"},
            {R"({"config":[)", "Cannot parse the given JSON: is not object\n\n"},
            {deep, "Cannot parse the given JSON: is not object\n\n"},
            {R"({"config":[{"name":"hw_watchdog","enable-num":1}]})",
             std::string("exit: name:hw_watchdog\n\n") + kRefused},
            {R"({"config":[{"name":"a","select":true},{}]})",
             std::string("exit: name:(null)\n\n") + kRefused},
            {bigNumbers, std::string("exit: name:(null)\n\n") + kRefused},
            {R"({"config":[{"name":"g","multi":true,"content":[{"name":"m","num":3}]}]})",
             std::string("exit: name:m\n\n") + kRefused},
            {R"({"config":[{"name":"g","multi":true,"content":[[{"select":true}]]}]})",
             std::string("exit: name:(null)\n\n") + kRefused},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.json.substr(0, 60));
        ostrel_test::useSilletStandIn();
        ReplyLog log;
        testing::internal::CaptureStderr();
        EXPECT_EQ(selectSilletConfig(log.get(), c.json.c_str()), -1);
        std::string diagnostics = testing::internal::GetCapturedStderr();
        EXPECT_EQ(log.added(), c.log);
        EXPECT_FALSE(fileExists(kSilletState));
    }
    EXPECT_EQ(selectSilletConfig(nullptr, nullptr), -1);
}

TEST(ConfigSelect, HugeClientTextStillRunsTheTool) {
    std::string json = R"({"id":")" + std::string(10 * 1024 * 1024, 'x') +
                       R"(","config":[{"name":"f","select":true,"enable-num":4,"disable-num":5}]})";
    EXPECT_EQ(selectGiving(json), "set 4\n");
}

TEST(ConfigSelect, FailingToolsAreReported) {
    struct Case {
        const char* variable;
        const char* value;
        std::string tail;
    } cases[] = {
            {"SILLET_BIN", "/vendor/bin/no-such-sillet",
             "collect sillet err_buf size=24\n\nCannot execvp (errno:2)\n\n"
             "sillet returns error(1)\n\n"},
            {"SILLET_EXIT", "4",
             "collect sillet err_buf size=44\n\nsillet: failing with exit code 4 on request\n\n"
             "sillet returns error(4)\n\n"},
            {"SILLET_SIGNAL", "SEGV",
             "collect sillet err_buf size=0\n\nsillet abnormally existed\n\n"},
            // The echo makes the output readable at once; a tool that then holds
            // only its error stream open is waited for five seconds.
            {"SILLET_QUIET_HANG", "8", "Cannot poll (errno:0)\n\n"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.variable);
        ostrel_test::useSilletStandIn();
        setenv(c.variable, c.value, 1);
        ReplyLog log;
        auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(selectSilletConfig(log.get(), R"({"config":[]})"), -1);
        std::string added = log.added();
        ASSERT_GE(added.size(), c.tail.size());
        EXPECT_EQ(added.substr(added.size() - c.tail.size()), c.tail);
        if (std::string(c.variable) == "SILLET_QUIET_HANG") {
            EXPECT_EQ(added, c.tail);
            EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(4900));
        }
    }
}

TEST(ConfigSelect, ClearRunsTheToolOnTheServiceStreams) {
    ostrel_test::useSilletStandIn();
    ReplyLog log;
    testing::internal::CaptureStdout();
    EXPECT_EQ(clearSilletConfig(log.get()), 0);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "sillet: all settings cleared\n");
    EXPECT_EQ(readFile(kSilletState), "clear\n");

    struct Case {
        const char* variable;
        const char* value;
        std::string stderrTail;
    } cases[] = {
            {"SILLET_EXIT", "5", "sillet returns error(5)\n"},
            {"SILLET_SIGNAL", "KILL", "sillet abnormally existed\n"},
            {"SILLET_BIN", "/vendor/bin/no-such-sillet",
             "Cannot execvp (errno:2)\nsillet returns error(1)\n"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.variable);
        ostrel_test::useSilletStandIn();
        setenv(c.variable, c.value, 1);
        testing::internal::CaptureStderr();
        EXPECT_EQ(clearSilletConfig(log.get()), -1);
        std::string diagnostics = testing::internal::GetCapturedStderr();
        ASSERT_GE(diagnostics.size(), c.stderrTail.size());
        EXPECT_EQ(diagnostics.substr(diagnostics.size() - c.stderrTail.size()), c.stderrTail);
    }
    // This path leaves the reply log alone.
    EXPECT_EQ(log.added(), "");
}
