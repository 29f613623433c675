// The verdict model against the README's tables: every cell of the table of test
// cases (kind x how the run ended), of the run's findings and of the formats is
// what the unit decides, so the documentation and the code cannot drift.
#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "Report.h"
#include "Verdicts.h"

namespace ostrel_report {
namespace {

using Row = std::vector<std::string>;

// The cells of a Markdown table row, trimmed.
Row cellsOf(const std::string& line) {
    Row cells;
    std::stringstream in(line.substr(1));
    std::string cell;
    while (std::getline(in, cell, '|')) {
        size_t from = cell.find_first_not_of(' '), to = cell.find_last_not_of(' ');
        cells.push_back(from == std::string::npos ? "" : cell.substr(from, to - from + 1));
    }
    return cells;
}

// The README's table whose header row starts with |header|: header and body rows.
std::vector<Row> readmeTable(const std::string& header) {
    std::ifstream readme(std::string(OSTREL_SOURCE_DIR) + "/README.md");
    std::vector<Row> rows;
    std::string line;
    bool in = false;
    while (std::getline(readme, line)) {
        if (!in && line.rfind(header, 0) == 0) in = true;
        if (!in) continue;
        if (line.empty() || line[0] != '|') break;
        if (line.rfind("|---", 0) != 0) rows.push_back(cellsOf(line));
    }
    return rows;
}

Verdict verdictNamed(const std::string& name) {
    for (Verdict v : kVerdictOrder) {
        if (name == verdictName(v)) return v;
    }
    ADD_FAILURE() << "no verdict \"" << name << "\"";
    return Verdict::Unknown;
}

// How the run ended, by the table's column heading.
RunFacts runOf(const std::string& column) {
    RunFacts run;
    run.present = true;
    run.recordPath = "QAV0.run.json";
    run.endCause = kCauseExecutor;
    run.lastEnd = "exit 0";
    run.executorStarts = 1;
    if (column == "the executor ended in error") {
        run.lastEnd = run.error = "SIGSYS";
        run.errorText = "was killed by SIGSYS (signal 31), a signal the service did not send";
    } else if (column == "an unplanned reboot") {
        run.unplannedBoots = 1;
        run.firstUnplannedBoot = "2026-11-24T05:15:00Z";
    } else if (column == "aborted (runAbort)") {
        run.endCause = kCauseRunAbort;
        run.lastEnd = "SIGTERM";
    } else if (column == "finished by a client (runFinished)") {
        run.endCause = kCauseRunFinished;
        run.lastEnd = "SIGTERM";
    } else if (column == "no run record") {
        run = RunFacts();
        run.recordPath = "QAV0.run.json";
    } else if (column != "reached its target" && column != "the executor ended by itself, status 0") {
        ADD_FAILURE() << "a column the test does not know: " << column;
    }
    return run;
}

// The test cases a row stands for, short of their targets unless |reached|.
std::vector<CaseReport> casesOf(const std::string& row, bool reached) {
    auto counted = [reached](Kind kind, int64_t value, int64_t target) {
        CaseReport c;
        c.kind = kind;
        c.counted = true;
        c.value = value;
        c.target = target;
        c.reached = reached ? target : target / 2;
        return c;
    };
    CaseReport rounds;
    rounds.value = rounds.target = rounds.asked = 3;
    if (row == "`hours`, `boots` short of the target") {
        return {counted(Kind::ByTime, 2, 7200), counted(Kind::ByBoots, 3, 3)};
    }
    if (row == "`rounds` (not counted)") return {rounds};
    if (row == "size 0, negative, or over 596,523 hours") {
        return {counted(Kind::ByTime, 0, 0), counted(Kind::ByBoots, -1, -1),
                counted(Kind::ByTime, 600000, -2134967296), counted(Kind::ByExecutor, 0, 0)};
    }
    ADD_FAILURE() << "a row the test does not know: " << row;
    return {};
}

TEST(Verdicts, EveryCellOfTheReadmesTestCaseTableIsWhatTheModelDecides) {
    std::vector<Row> table = readmeTable("| test case | reached its target |");
    ASSERT_EQ(table.size(), 4u) << "the README's table of test-case verdicts is gone or changed its shape";
    const Row& columns = table[0];
    int cells = 0;
    for (size_t r = 1; r < table.size(); r++) {
        for (size_t k = 1; k < columns.size(); k++) {
            if (table[r][k] == "-") continue;
            RunFacts run = runOf(columns[k]);
            for (CaseReport c : casesOf(table[r][0], columns[k] == "reached its target")) {
                judgeCase(run, &c);
                EXPECT_EQ(verdictName(c.verdict), table[r][k])
                        << table[r][0] << " / " << columns[k] << " (kind " << kindName(c.kind) << ", value "
                        << c.value << "): " << c.reason;
                EXPECT_FALSE(c.reason.empty());
                cells++;
            }
        }
    }
    EXPECT_GE(cells, 20);
}

TEST(Verdicts, TheRunsFindingsAreTheReadmesAndTheWeightiestVerdictIsTheRuns) {
    std::vector<Row> table = readmeTable("| the run | verdict |");
    ASSERT_EQ(table.size(), 5u);
    RunFacts run = runOf("the executor ended in error");
    run.unplannedBoots = 2;
    run.firstUnplannedBoot = "2026-11-24T05:15:00Z";
    std::vector<RunFinding> findings = runFindings(run, false);
    std::map<std::string, Verdict> byName;
    for (const RunFinding& f : findings) byName[f.name] = f.verdict;
    ASSERT_EQ(findings.size(), 3u);
    for (size_t r = 1; r < 4; r++) {
        std::string cell = table[r][1];  // "error (`nothing_selected`)"
        size_t tick = cell.find('`');
        std::string name = cell.substr(tick + 1, cell.find('`', tick + 1) - tick - 1);
        if (name == "executor_<signal or exit_N>") name = "executor SIGSYS";
        ASSERT_EQ(byName.count(name), 1u) << name;
        EXPECT_EQ(verdictName(byName[name]), cell.substr(0, cell.find(' '))) << name;
    }
    EXPECT_TRUE(runFindings(runOf("reached its target"), true).empty());

    RunReport report;
    report.historySource = "QAV0.db_history";
    report.findings = findings;
    EXPECT_EQ(runVerdict(report), Verdict::Error);
    report.findings.clear();
    EXPECT_EQ(runVerdict(report), Verdict::Pass);
    report.crashLineCount = 1;
    EXPECT_EQ(runVerdict(report), Verdict::Fail);
    report.historySource.clear();
    EXPECT_EQ(historyVerdict(report), Verdict::Unknown);
}

TEST(Verdicts, EachVerdictMapsIntoEachFormatAsTheReadmeSays) {
    std::vector<Row> table = readmeTable("| verdict | fails the run |");
    ASSERT_EQ(table.size(), 1u + kVerdictCount);
    for (size_t r = 1; r < table.size(); r++) {
        const Row& row = table[r];
        Verdict v = verdictNamed(row[0]);
        EXPECT_EQ(failsRun(v), row[1] == "yes") << row[0];
        EXPECT_EQ(std::string(junitElement(v)), row[2] == "(none)" ? "" : row[2]) << row[0];
        EXPECT_EQ(lavaResult(v), row[3]) << row[0];
        EXPECT_EQ(std::to_string(exitStatusOf(v)), row[4]) << row[0];
        EXPECT_EQ(row[5].substr(0, row[5].find(',')), verdictLetter(v)) << row[0];
    }
}

// retry takes every test case that did not pass; --failed-only just fail and error.
TEST(Verdicts, RetryTakesWhatDidNotPass) {
    const struct {
        Verdict verdict;
        bool retried, failedOnly;
    } rows[] = {
            {Verdict::Pass, false, false},   {Verdict::Fail, true, true},    {Verdict::Error, true, true},
            {Verdict::Aborted, true, false}, {Verdict::Unknown, true, false},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(retried(row.verdict, false), row.retried) << verdictName(row.verdict);
        EXPECT_EQ(retried(row.verdict, true), row.failedOnly) << verdictName(row.verdict);
    }
}

TEST(Verdicts, ASignalIsNamedFromItsNumberForEverySignal) {
    namespace key = core::runrecord;
    const std::pair<int, const char*> rows[] = {{11, "SIGSEGV"}, {15, "SIGTERM"}, {24, "SIGXCPU"},
                                                {25, "SIGXFSZ"}, {31, "SIGSYS"},  {32, "SIGRTMIN"},
                                                {36, "SIGRTMIN+4"}, {64, "SIGRTMIN+32"}, {65, "signal 65"}};
    for (const auto& [number, name] : rows) EXPECT_EQ(key::signalName(number), name);
    for (int n = 1; n <= 64; n++) EXPECT_FALSE(key::signalName(n).empty()) << n;
}

}  // namespace
}  // namespace ostrel_report
