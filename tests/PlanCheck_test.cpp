// The plan check: one row per class of problem (and the warnings), each plan a
// good plan with one thing changed, against the exact lines found.

#include "PlanCheck.h"
#include "TestSupport.h"

namespace {

// A good plan of two test cases ("t" and "boot"), with the first occurrence of
// |from| replaced by |to|.
std::string plan(const std::string& from = "", const std::string& to = "") {
    std::string text = planJson(PREPARING, false, false, {rounds("say a", 2), bootTest("sleep 60", 3)});
    text.replace(text.rfind(R"("name":"t")"), 10, R"("name":"boot")");
    if (!from.empty()) text.replace(text.find(from), from.size(), to);
    return text;
}

std::vector<std::string> lines(const std::string& text) {
    std::vector<PlanFinding> findings;
    std::string error;
    if (!checkPlan(text, &findings, &error)) return {"unreadable: " + error};
    std::vector<std::string> out;
    for (const auto& f : findings) out.push_back((f.problem ? "" : "warning: ") + f.path + ": " + f.message);
    return out;
}

}  // namespace

TEST(PlanCheck, EachProblemIsFoundWithItsPathAndFix) {
    struct Row {
        std::string text;
        std::vector<std::string> want;
    } rows[] = {
            {plan(), {}},
            {plan(R"("current_state":1,)", ""),
             {"$.current_state: missing; the planner writes it only when it is there (without it the "
              "planner falls to IDLE): add \"current_state\": 1"}},
            {plan(R"("run_start":false)", R"("run_start":"false")"),
             {"$.run_start: a string where a flag is read (read as false); write true or false without quotes"}},
            {plan(R"("isRound":true)", R"("isround":true)"),
             {"$.testcases[0].isRound: missing; the planner reads or sets it: add \"isRound\": true",
              "$.testcases[0].isround: unknown key; did you mean \"isRound\"?"}},
            {plan(R"("testcase_value":2)", R"("testcase_value":0.01)"),
             {"$.testcases[0].testcase_value: not a whole 32-bit number, read as 0; write a whole number",
              "$.testcases[0].testcase_value: a size of 0 or below is reached at once; write the rounds (or "
              "hours) to run"}},
            {plan(R"("isRound":true,"isBootTest":true)", R"("isRound":false,"isBootTest":true)"),
             {"$.testcases[1].isRound: a boot test counts boots as rounds: write \"isRound\": true"}},
            {plan(R"("command":"say a")", R"("command":"")"),
             {"$.testcases[0].command: a selected test case needs the executor's words: write \"command\": "
              "\"say hello\", say"}},
            {plan(R"("testcase_value":2,"isRound":true)", R"("testcase_value":596524,"isRound":false)"),
             {"$.testcases[0].testcase_value: above 596523 hours the target wraps in 32 bits and counts as "
              "reached at once; write at most 596523"}},
            {plan(R"("name":"boot")", R"("name":"t")"),
             {"$.testcases[1].name: \"t\" is also the name of $.testcases[0]; give each test case "
              "a name of its own"}},
            {plan(R"("not_set":false)", R"("not_set":true)"),
             {"$.not_set: true: the planner then hands the plan out as empty; write false"}},
            {planJson(PREPARING, false, false, {}),
             {"$.testcases: no test case is selected; write \"select\": true in one"}},
            {plan(R"("run_finished":false)", R"("run_finished":false,"owner":"lab 3")"),
             {"warning: $.owner: not a key of the planner; kept as it is"}},
            {"[1,2]", {"unreadable: JSON, but not an object"}},
            {"{\"testcases\": [", {"unreadable: not JSON (or nested deeper than 256 levels)"}},
    };
    for (const Row& row : rows) EXPECT_EQ(lines(row.text), row.want) << row.text;
}

// A plan of many test cases with the same problem gives the first 20 of each kind
// and a count of the rest, so its check costs lines and memory of the kinds, not
// of the plan's size.
TEST(PlanCheck, ProblemsOfOneKindAreShownTwentyTimesAndTheRestCounted) {
    std::vector<Testcase> cases(5000, rounds("say a", 0));  // each a size of 0
    std::string text = planJson(PREPARING, false, false, cases);
    std::vector<std::string> found = lines(text);
    size_t sizeZero = 0;
    for (const std::string& line : found) sizeZero += contains(line, ".testcase_value: a size of 0 or below");
    EXPECT_EQ(sizeZero, 20u);
    EXPECT_TRUE(std::find(found.begin(), found.end(),
                          "... 4980 more: a size of 0 or below is reached at once; write the rounds (or hours) to run") !=
                found.end());
    // 4999 names shared with the first: one kind, 20 shown.
    size_t sameName = 0;
    for (const std::string& line : found) sameName += contains(line, "is also the name of $.testcases[0]");
    EXPECT_EQ(sameName, 21u);  // 20 shown, and the count of the rest
    EXPECT_LT(found.size(), 80u);
}
