// The plan check, on the plan's schema: which keys the planner reads and writes,
// and how it reads their values (a value of another type reads as 0 or false).
#include "PlanCheck.h"

#include <algorithm>
#include <cctype>
#include <map>

#include "JsonText.h"
#include "PlanSchema.h"

namespace vendor::brevane::hardware::ostrel::core {

namespace {

using namespace plankey;

enum class Type { Int, Bool, String };

struct Key {
    const char* name;
    Type type;
    const char* example;  // what to write when it is missing
};

// What the planner writes into: it sets only keys that exist.
const Key kRootKeys[] = {{kCurrentState, Type::Int, "1"},
                         {kRunStart, Type::Bool, "false"},
                         {kRunFinished, Type::Bool, "false"}};
// What the planner reads or sets in each test case (isBootTest may be left out:
// it then reads as false).
const Key kCaseKeys[] = {{kSelect, Type::Bool, "true"},
                         {kCommand, Type::String, "\"say hello\""},
                         {kValue, Type::Int, "1"},
                         {kIsRound, Type::Bool, "true"},
                         {kCurrentTime, Type::Int, "0"},
                         {kTargetTime, Type::Int, "0"},
                         {kCurrentRound, Type::Int, "0"},
                         {kTargetRound, Type::Int, "0"}};
const Key kOptionalCaseKeys[] = {{kName, Type::String, "\"cpu load\""},
                                 {kIsBootTest, Type::Bool, "false"}};
const Key kOptionalRootKeys[] = {{kNotSet, Type::Bool, "false"}, {kTestcases, Type::String, ""}};

std::string lower(std::string s) {
    for (char& c : s) c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
    return s;
}

size_t editDistance(const std::string& a, const std::string& b) {
    std::vector<size_t> row(b.size() + 1);
    for (size_t j = 0; j <= b.size(); j++) row[j] = j;
    for (size_t i = 1; i <= a.size(); i++) {
        size_t diagonal = row[0];
        row[0] = i;
        for (size_t j = 1; j <= b.size(); j++) {
            size_t up = row[j];
            row[j] = std::min({row[j] + 1, row[j - 1] + 1, diagonal + (a[i - 1] != b[j - 1])});
            diagonal = up;
        }
    }
    return row[b.size()];
}

// Findings of one kind (the same message) kept in full; the rest are counted.
constexpr size_t kShownPerKind = 20;
// Kinds told apart; findings of further kinds are counted together.
constexpr size_t kKindsKept = 1000;

class Checker {
  public:
    explicit Checker(std::vector<PlanFinding>* out) : out(out) {}

    void problem(const std::string& path, const std::string& message) { add(true, path, message); }
    void warning(const std::string& path, const std::string& message) { add(false, path, message); }

    // One finding per kind that says how many more there were: a plan of a
    // million test cases gives a few hundred lines, not millions.
    void finish() {
        for (const auto& [kind, n] : counts) {
            if (n > kShownPerKind) {
                out->push_back({kind.first, "... " + std::to_string(n - kShownPerKind) + " more", kind.second});
            }
        }
        for (bool problem : {true, false}) {
            if (otherKinds[problem] > 0) {
                out->push_back({problem, "... " + std::to_string(otherKinds[problem]) + " more",
                                "of other kinds, not told apart"});
            }
        }
    }

    // A value of the type the planner reads, or a problem that says how it reads it.
    bool typed(const std::string& path, const rapidjson::Value& v, const Key& key) {
        bool ok = key.type == Type::Int ? v.IsInt() : key.type == Type::Bool ? v.IsBool() : v.IsString();
        if (ok) return true;
        if (key.type == Type::Int && v.IsNumber()) {
            problem(path, "not a whole 32-bit number, read as 0; write a whole number");
        } else if (key.type == Type::Bool && v.IsString()) {
            problem(path, "a string where a flag is read (read as false); write true or false without quotes");
        } else {
            const char* what = key.type == Type::Int ? "a whole number" : key.type == Type::Bool ? "true or false" : "a string";
            problem(path, std::string("of the wrong type, read as ") +
                                  (key.type == Type::String ? "missing" : key.type == Type::Int ? "0" : "false") +
                                  "; write " + what);
        }
        return false;
    }

    // Keys of |object| that are none of |known|: a near miss is a problem.
    template <size_t N, size_t M>
    void unknownKeys(const std::string& path, const rapidjson::Value& object, const Key (&known)[N],
                     const Key (&optional)[M]) {
        for (const auto& m : object.GetObject()) {
            std::string name = m.name.GetString();
            auto same = [&](const Key& k) { return name == k.name; };
            if (std::any_of(known, known + N, same) || std::any_of(optional, optional + M, same)) continue;
            std::string nearest;
            for (const Key* set : {static_cast<const Key*>(known), static_cast<const Key*>(optional)}) {
                size_t count = set == known ? N : M;
                for (size_t i = 0; i < count; i++) {
                    std::string k = set[i].name;
                    if (lower(k) == lower(name) || editDistance(lower(k), lower(name)) <= 2) nearest = k;
                }
            }
            if (!nearest.empty()) {
                problem(path + "." + name, "unknown key; did you mean \"" + nearest + "\"?");
            } else {
                warning(path + "." + name, "not a key of the planner; kept as it is");
            }
        }
    }

  private:
    void add(bool problem, const std::string& path, const std::string& message) {
        auto key = std::make_pair(problem, message);
        auto it = counts.find(key);
        if (it == counts.end()) {
            if (counts.size() >= kKindsKept) {
                otherKinds[problem]++;
                return;
            }
            it = counts.emplace(key, 0).first;
        }
        if (++it->second <= kShownPerKind) out->push_back({problem, path, message});
    }

    std::vector<PlanFinding>* out;
    std::map<std::pair<bool, std::string>, size_t> counts;
    size_t otherKinds[2] = {0, 0};
};

void checkTestcase(Checker& c, const rapidjson::Value& tc, const std::string& path) {
    for (const Key& key : kCaseKeys) {
        auto it = tc.FindMember(key.name);
        if (it == tc.MemberEnd()) {
            if (key.name != std::string(kCommand)) {
                c.problem(path + "." + key.name, std::string("missing; the planner reads or sets it: add \"") +
                                                          key.name + "\": " + key.example);
            }
            continue;
        }
        c.typed(path + "." + key.name, it->value, key);
    }
    for (const Key& key : kOptionalCaseKeys) {
        auto it = tc.FindMember(key.name);
        if (it != tc.MemberEnd()) c.typed(path + "." + key.name, it->value, key);
    }
    c.unknownKeys(path, tc, kCaseKeys, kOptionalCaseKeys);

    TestcaseRecord record = readTestcase(tc);
    if (record.isBootTest && !record.isRound) {
        c.problem(path + "." + kIsRound, "a boot test counts boots as rounds: write \"isRound\": true");
    }
    if (!record.isSelect) return;
    if (record.command == nullptr || record.command[0] == '\0') {
        c.problem(path + "." + kCommand, "a selected test case needs the executor's words: write \"command\": "
                                         "\"say hello\", say");
    }
    if (record.value <= 0) {
        c.problem(path + "." + kValue, "a size of 0 or below is reached at once; write the rounds (or hours) to run");
    } else if (!record.isRound && record.value > kMaxHours) {
        c.problem(path + "." + kValue, "above 596523 hours the target wraps in 32 bits and counts as "
                                       "reached at once; write at most 596523");
    }
}

}  // namespace

bool checkPlan(const std::string& text, std::vector<PlanFinding>* findings, std::string* error) {
    rapidjson::Document doc;
    if (!parseJsonText(doc, text.data(), text.size())) {
        *error = "not JSON (or nested deeper than 256 levels)";
        return false;
    }
    if (!doc.IsObject()) {
        *error = "JSON, but not an object";
        return false;
    }
    Checker c(findings);
    for (const Key& key : kRootKeys) {
        auto it = doc.FindMember(key.name);
        if (it == doc.MemberEnd()) {
            c.problem(std::string("$.") + key.name,
                      std::string("missing; the planner writes it only when it is there") +
                              (key.name == std::string(kCurrentState) ? " (without it the planner falls to IDLE)"
                                                                       : "") +
                              ": add \"" + key.name + "\": " + key.example);
        } else {
            c.typed(std::string("$.") + key.name, it->value, key);
        }
    }
    auto notSet = doc.FindMember(kNotSet);
    if (notSet != doc.MemberEnd() && c.typed("$.not_set", notSet->value, kOptionalRootKeys[0]) &&
        notSet->value.GetBool()) {
        c.problem("$.not_set", "true: the planner then hands the plan out as empty; write false");
    }
    c.unknownKeys("$", doc, kRootKeys, kOptionalRootKeys);
    auto cases = doc.FindMember(kTestcases);
    if (cases == doc.MemberEnd() || !cases->value.IsArray()) {
        c.problem("$.testcases", "missing or not an array; write the test cases as an array");
        c.finish();
        return true;
    }
    std::map<std::string, std::string> names;
    bool anySelected = false;
    int i = 0;
    for (const auto& tc : cases->value.GetArray()) {
        std::string path = "$.testcases[" + std::to_string(i++) + "]";
        if (!tc.IsObject()) {
            c.problem(path, "not an object; write a test case as an object");
            continue;
        }
        checkTestcase(c, tc, path);
        TestcaseRecord record = readTestcase(tc);
        anySelected = anySelected || record.isSelect;
        if (record.name == nullptr) continue;
        auto [it, first] = names.emplace(record.name, path);
        if (!first) {
            c.problem(path + ".name", "\"" + std::string(record.name) + "\" is also the name of " + it->second +
                                              "; give each test case a name of its own");
        }
    }
    if (!anySelected) c.problem("$.testcases", "no test case is selected; write \"select\": true in one");
    c.finish();
    return true;
}

}  // namespace vendor::brevane::hardware::ostrel::core
