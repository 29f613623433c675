// The run record: executor starts and ends (from the supervisor's side file, also
// across a restart of the service), boots, the end's cause, the device and the
// plan's digest, moved beside the result archive; the archive itself unchanged.
#include <gtest/gtest.h>
#include <rapidjson/document.h>

#include <memory>
#include <regex>

#include "TestSupport.h"

using namespace vendor::brevane::hardware::ostrel::core;
using namespace ostrel_test;

namespace {

rapidjson::Document parsed(const std::string& text) {
    rapidjson::Document doc;
    doc.Parse(text.c_str());
    EXPECT_TRUE(doc.IsObject()) << text;
    return doc;
}

rapidjson::Document recordAt(const std::string& path) {
    return parsed(readFile(path));
}

// The record as the live journal makes it.
rapidjson::Document liveRecord() {
    return parsed(foldJournal(kRunJournalFile));
}

std::unique_ptr<OstrelFSM> machine(std::chrono::milliseconds tick) {
    auto m = std::make_unique<OstrelFSM>(nullptr);
    m->setRunTimings(tick, std::chrono::milliseconds(20));
    return m;
}

}  // namespace

TEST(RunRecord, ExecutorEndedBySignalAndTheRunsEndBesideTheResult) {
    writeFile(kPlanFile, planJson(PREPARING, false, false, {rounds("say a", 1), rounds("signal SEGV", 1)}));
    auto m = machine(std::chrono::milliseconds(50));
    useSilletStandIn();
    answer(*m, SET_CONFIG, nullptr, R"({"id":"default","config":[]})");
    ASSERT_TRUE(m->sendEvent(RUN_START, nullptr, nullptr, 0, 0));
    ASSERT_TRUE(waitFor([&] { return m->getState() == COMPLETING; }, 10));
    std::string result = answer(*m, GET_RESULT);
    std::smatch names;
    ASSERT_TRUE(std::regex_match(result, names, std::regex("(.*)\\.zip, .*\\.db_history"))) << result;
    // Nothing of the record goes into the archive.
    EXPECT_EQ(zipEntries(names[1].str() + ".zip"),
              (std::vector<std::string>{"qav/data/", "qav/data/db_history", "qav/data/ostreldata.txt",
                                        "qav/kelbrun/", "qav/kelbrun/kelbrun_log.txt"}));
    EXPECT_FALSE(fileExists(kRunJournalFile));
    rapidjson::Document r = recordAt(names[1].str() + ".run.json");
    ASSERT_EQ(r["executors"].Size(), 1u);
    const rapidjson::Value& exe = r["executors"][0];
    EXPECT_STREQ(exe["words"][0].GetString(), "/vendor/bin/kelbrun");
    EXPECT_STREQ(exe["end"]["signal"].GetString(), "SIGSEGV");
    EXPECT_STREQ(r["end"]["cause"].GetString(), "executor");
    EXPECT_TRUE(std::regex_match(std::string(r["start"]["plan_sha256"].GetString()), std::regex("[0-9a-f]{64}")));
    EXPECT_STREQ(r["start"]["boot_id"].GetString(), exe["boot_id"].GetString());
    EXPECT_STREQ(r["device"]["platform"].GetString(), "linux");
    // The configuration applied before the run: the client's list, the tool's words.
    const rapidjson::Value& config = r["configuration"];
    EXPECT_STREQ(config["list"]["id"].GetString(), "default");
    EXPECT_EQ(config["words"].Size(), 2u);
    EXPECT_STREQ(config["words"][1].GetString(), "set");
    EXPECT_EQ(config["exit_status"].GetInt(), 0);
    EXPECT_TRUE(r["device"]["kernel"].GetStringLength() > 0);
}

// The supervisor's side file outlives the service: the end of the executor that
// ended before the restart is folded in, then the boot and the second start.
TEST(RunRecord, ExecutorEndAndBootsSurviveARestart) {
    Testcase boot = rounds("exit 3", 3);
    boot.isBootTest = true;
    writeFile(kPlanFile, planJson(PREPARING, false, false, {boot}));
    auto m = machine(std::chrono::seconds(60));
    ASSERT_TRUE(m->sendEvent(RUN_START, nullptr, nullptr, 0, 0));
    const std::string side = std::string(kRunRecordDir) + "/executor." + std::to_string(m->executorPid()) + ".end";
    ASSERT_TRUE(waitFor([&] { return fileExists(side); }, 5));
    m.reset();  // the service goes before its tick reaps the supervisor

    m = machine(std::chrono::seconds(60));
    ASSERT_TRUE(m->sendEvent(BOOT_COMPLETED, nullptr, nullptr, 0, 0));
    EXPECT_FALSE(fileExists(side));
    ASSERT_TRUE(m->sendEvent(RUN_ABORT, nullptr, nullptr, 0, 0));
    rapidjson::Document r = liveRecord();
    ASSERT_EQ(r["executors"].Size(), 2u);
    EXPECT_EQ(r["executors"][0]["end"]["exit"].GetInt(), 3);
    EXPECT_EQ(r["boots"].Size(), 1u);
    EXPECT_STREQ(r["end"]["cause"].GetString(), "runAbort");
    const std::string digest = r["start"]["plan_sha256"].GetString();

    // The same test cases give the same digest in the next run, counters aside.
    writeFile(kHistoryCopy, "");
    ASSERT_FALSE(answer(*m, GET_RESULT).empty());
    ASSERT_TRUE(m->sendEvent(RUN_START, nullptr, nullptr, 0, 0));
    m->sendEvent(RUN_ABORT, nullptr, nullptr, 0, 0);
    EXPECT_EQ(liveRecord()["start"]["plan_sha256"].GetString(), digest);
}
