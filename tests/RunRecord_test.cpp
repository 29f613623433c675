// The run record: executor starts and ends (from the supervisor's side file, also
// across a restart of the service), boots, the end's cause, the device and the
// plan's digest, moved beside the result archive; the archive itself unchanged.

#include <regex>

#include "TestSupport.h"

namespace {

rapidjson::Document parsed(const std::string& text) {
    rapidjson::Document doc;
    doc.Parse(text.c_str());
    EXPECT_TRUE(doc.IsObject()) << text;
    return doc;
}

// The record as the live journal makes it.
rapidjson::Document liveRecord() {
    return parsed(foldJournal(kRunJournalFile));
}

}  // namespace

TEST(RunRecord, ExecutorEndedBySignalAndTheRunsEndBesideTheResult) {
    writeFile(kPlanFile, planJson(PREPARING, false, false, {rounds("say a", 1), rounds("signal SEGV", 1)}));
    auto m = timedMachine(std::chrono::milliseconds(50));
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
    rapidjson::Document r = parsed(readFile(names[1].str() + ".run.json"));
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
    writeFile(kPlanFile, planJson(PREPARING, false, false, {bootTest("exit 3", 3)}));
    auto m = timedMachine(std::chrono::seconds(60));
    ASSERT_TRUE(m->sendEvent(RUN_START, nullptr, nullptr, 0, 0));
    const std::string side = std::string(kRunRecordDir) + "/executor." + std::to_string(m->executorPid()) + ".end";
    ASSERT_TRUE(waitFor([&] { return fileExists(side); }, 5));
    m.reset();  // the service goes before its tick reaps the supervisor

    m = timedMachine(std::chrono::seconds(60));
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

// A restart finds the record ahead of the plan where a kill fell between the two
// writes: the step is marked, kept, and not taken for done; a journal whose record
// was handed out goes.
TEST(RunRecord, StepsThePlanDoesNotConfirmAreMarkedNotDroppedNorTakenForDone) {
    const std::string start = R"({"event":"start","run_id":"r1","time":"2026-11-24T05:00:00Z"})";
    const std::string boot = R"({"event":"boot","time":"2026-11-24T05:10:00Z","planned":true,"boot_rounds":2})";
    const std::string end = R"({"event":"end","time":"2026-11-24T06:00:00Z","cause":"runAbort"})";
    const struct {
        std::vector<std::string> journal;
        bool planStarted, planFinished;
        int planBootRounds;
        std::string unconfirmed;  // the steps marked, in order
        bool ended;               // the folded record has an end
        int boots;                // boots counted
    } rows[] = {
            {{start, boot, end}, true, true, 2, "", true, 1},
            {{start, end}, true, false, 0, "end", false, 0},
            {{start, boot}, true, false, 1, "boot", false, 0},
            {{start, boot, end}, true, false, 1, "end boot", false, 0},
            {{start}, false, false, 0, "start", false, 0},
    };
    for (const auto& row : rows) {
        std::string text;
        for (const std::string& line : row.journal) text += line + "\n";
        mkdir(kRunRecordDir, 0770);
        writeFile(kRunJournalFile, text);
        RunRecord record;
        record.reconcile(row.planStarted, row.planFinished, row.planBootRounds);
        rapidjson::Document r = liveRecord();
        std::string steps;
        for (const auto& step : r["unconfirmed"].GetArray()) steps += (steps.empty() ? "" : " ") + std::string(step["step"].GetString());
        EXPECT_EQ(steps, row.unconfirmed) << text;
        EXPECT_EQ(r["end"].IsObject(), row.ended) << text;
        EXPECT_EQ(r["boot_count"].GetInt(), row.boots) << text;
        RunRecord again;  // a second restart marks nothing twice
        again.reconcile(row.planStarted, row.planFinished, row.planBootRounds);
        EXPECT_EQ(liveRecord()["unconfirmed"].Size(), r["unconfirmed"].Size()) << text;
    }
    writeFile(kRunJournalFile, start + "\n" + end + "\n");
    RunRecord handedOut;
    handedOut.reconcile(false, false, 0);
    EXPECT_FALSE(fileExists(kRunJournalFile));
}

// What a kill left half made goes at the next start; the end of an executor that
// a supervisor wrote before the restart keeps the time the executor exited, and a
// torn last line of the journal is cut so that the next line stands alone.
TEST(RunRecord, ARestartCleansLeftoversKeepsExitTimesAndCutsATornLine) {
    mkdir(kRunRecordDir, 0770);
    const std::string dir = kRunRecordDir;
    for (const std::string& leftover : {dir + "/record.journal.new", dir + "/configuration.json.new",
                                        dir + "/executor.41.tmp", std::string("/data/vendor/qav/results/QAVx.run.json.new")}) {
        mkdir("/data/vendor/qav/results", 0775);
        writeFile(leftover, "half");
    }
    writeFile(kRunJournalFile, R"({"event":"start","run_id":"r1","time":"2026-11-24T05:00:00Z"})" "\n"
                               R"({"event":"executor","supervisor":77,"words":["kelbrun"]})" "\n"
                               R"({"event":"boot","time":"2026-11)");
    writeFile(dir + "/executor.77.end", "11 1700000000\n");
    RunRecord record;
    for (const char* gone : {"/record.journal.new", "/configuration.json.new", "/executor.41.tmp", "/executor.77.end"}) {
        EXPECT_FALSE(fileExists(dir + gone)) << gone;
    }
    EXPECT_FALSE(fileExists("/data/vendor/qav/results/QAVx.run.json.new"));
    rapidjson::Document r = liveRecord();
    const rapidjson::Value& end = r["executors"][0]["end"];
    EXPECT_STREQ(end["time"].GetString(), "2023-11-14T22:13:20Z");
    EXPECT_STREQ(end["signal"].GetString(), "SIGSEGV");
    EXPECT_EQ(end["signal_number"].GetInt(), 11);
    EXPECT_EQ(r["boot_count"].GetInt(), 0);
    EXPECT_EQ(readFile(kRunJournalFile).back(), '\n');
}
