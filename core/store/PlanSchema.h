// The plan document's schema in one place: its keys, the read of a test-case
// record, and the counting rule (which test cases the planner counts, and in
// which unit). The state machine, the plan store, watch and report all use it.
#pragma once

#include <rapidjson/document.h>

namespace vendor::brevane::hardware::ostrel::core {

namespace plankey {
constexpr const char* kNotSet = "not_set";
constexpr const char* kCurrentState = "current_state";
constexpr const char* kRunStart = "run_start";
constexpr const char* kRunFinished = "run_finished";
constexpr const char* kTestcases = "testcases";
constexpr const char* kName = "name";
constexpr const char* kSelect = "select";
constexpr const char* kCommand = "command";
constexpr const char* kValue = "testcase_value";
constexpr const char* kIsRound = "isRound";
constexpr const char* kIsBootTest = "isBootTest";
constexpr const char* kCurrentTime = "testcase_current_time";
constexpr const char* kTargetTime = "testcase_target_time";
constexpr const char* kCurrentRound = "testcase_current_round";
constexpr const char* kTargetRound = "testcase_target_round";
}  // namespace plankey

// One test case's fields, read together. A missing field, or one of another
// type (a number that is no 32-bit integer included), reads as 0, false or null.
// The texts point into the document and live as long as it does.
struct TestcaseRecord {
    const char* name = nullptr;
    const char* command = nullptr;
    int value = 0;
    bool isBootTest = false;
    bool isRound = false;
    bool isSelect = false;
    int currentTime = 0;
    int targetTime = 0;
    int currentRound = 0;
    int targetRound = 0;
};

TestcaseRecord readTestcase(const rapidjson::Value& testcase);

// The typed reads of every plan value: null, another type, or a number that is no
// 32-bit integer reads as 0, false or null.
int intOf(const rapidjson::Value* v);
bool isTrue(const rapidjson::Value* v);
const char* stringOf(const rapidjson::Value* v);

// How the planner counts a test case: time-based ones by ticks (in seconds),
// boot tests by completed boots, other round-based ones not at all (the executor
// runs out its rounds).
enum class Counting { ByExecutor, ByTime, ByBoots };
// The largest size in hours whose target in seconds fits the 32-bit counter;
// above it the target wraps.
constexpr int kMaxHours = 596523;
Counting countingOf(const TestcaseRecord& tc);
// The counter and its target in the counting's unit (rounds, seconds or boots).
int currentOf(const TestcaseRecord& tc);
int targetOf(const TestcaseRecord& tc);
// "rounds", "hours", "boots"; and the units counted: "rounds", "seconds", "boots".
const char* kindName(Counting counting);
const char* unitName(Counting counting);

}  // namespace vendor::brevane::hardware::ostrel::core
