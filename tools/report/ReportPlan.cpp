// ostrelctl report, the plan: the archived plan read as a stream of JSON events,
// one test case at a time, so that memory follows what is shown and not what the
// archive declares (a plan of a million test cases is a few MiB of counts). Each
// test case is judged by the verdict model with its counters and the run record.
#include <rapidjson/reader.h>

#include <cstring>
#include <map>

#include "JsonText.h"
#include "Report.h"

namespace ostrel_report {

namespace {

// The keys of a test case that the planner reads: only the first of each is
// kept, as a lookup in the whole object would find it.
const char* const kCaseKeys[] = {
        core::plankey::kName,        core::plankey::kSelect,      core::plankey::kCommand,
        core::plankey::kValue,       core::plankey::kIsRound,     core::plankey::kIsBootTest,
        core::plankey::kCurrentTime, core::plankey::kTargetTime,  core::plankey::kCurrentRound,
        core::plankey::kTargetRound,
};

// A test case's size and counters as the planner keeps them: time and boots
// are counted against their targets; other round-based test cases are the
// executor's alone.
CaseReport countersOf(const rapidjson::Value& tc, int64_t index) {
    core::TestcaseRecord record = core::readTestcase(tc);
    CaseReport c;
    c.name = shownText(record.name ? record.name : "test case " + std::to_string(index));
    c.command = shownText(record.command ? record.command : "");
    c.kind = core::countingOf(record);
    c.counted = c.kind != Kind::ByExecutor;
    c.value = record.value;
    c.target = core::targetOf(record);
    if (c.counted) {
        c.reached = core::currentOf(record);
    } else {
        c.asked = c.target - record.currentRound;
    }
    return c;
}

// The events of the plan. Depth 1 is the root object, 2 the "testcases" array,
// 3 one test case; a test case's known scalar members are collected into a small
// object, a nested value under a known key stands as null (a wrong type either way).
class PlanReader : public rapidjson::BaseReaderHandler<rapidjson::UTF8<>, PlanReader> {
  public:
    PlanReader(const RunFacts& run, RunReport* report) : run_(run), report_(report) {}

    bool rootIsObject() const { return rootIsObject_; }

    bool Null() { return scalar(rapidjson::Value()); }
    bool Bool(bool b) { return scalar(rapidjson::Value(b)); }
    bool Int(int i) { return scalar(rapidjson::Value(i)); }
    bool Uint(unsigned u) { return scalar(rapidjson::Value(u)); }
    bool Int64(int64_t i) { return scalar(rapidjson::Value(i)); }
    bool Uint64(uint64_t u) { return scalar(rapidjson::Value(u)); }
    bool Double(double d) { return scalar(rapidjson::Value(d)); }
    bool String(const char* s, rapidjson::SizeType length, bool) {
        if (depth_ == 3 && inCase_ && keep_) {
            return scalar(rapidjson::Value(s, length, testcase_.GetAllocator()));
        }
        return scalar(rapidjson::Value());
    }
    bool StartObject() { return open(true); }
    bool StartArray() { return open(false); }
    bool Key(const char* s, rapidjson::SizeType length, bool) {
        if (depth_ == 1) inCases_ = !casesSeen_ && length == strlen(core::plankey::kTestcases) &&
                                    memcmp(s, core::plankey::kTestcases, length) == 0;
        if (depth_ == 3 && inCase_) {
            key_ = nullptr;
            for (const char* known : kCaseKeys) {
                if (length == strlen(known) && memcmp(s, known, length) == 0) key_ = known;
            }
            keep_ = key_ != nullptr && !testcase_.HasMember(key_);
        }
        return true;
    }
    bool EndObject(rapidjson::SizeType) { return close(); }
    bool EndArray(rapidjson::SizeType) { return close(); }

  private:
    bool scalar(rapidjson::Value value) {
        if (depth_ == 1 && inCases_) {  // "testcases" that is no array
            casesSeen_ = true;
            inCases_ = false;
        }
        if (depth_ == 2 && inArray_) index_++;  // an element that is no object
        if (depth_ == 3 && inCase_ && keep_) {
            testcase_.AddMember(rapidjson::StringRef(key_), value, testcase_.GetAllocator());
            keep_ = false;
        }
        return true;
    }

    bool open(bool object) {
        if (depth_ == 0) rootIsObject_ = object;
        if (depth_ == 1 && inCases_) {
            casesSeen_ = true;
            inCases_ = false;
            inArray_ = !object;
        } else if (depth_ == 2 && inArray_ && object) {
            testcase_.SetObject();
            testcase_.GetAllocator().Clear();
            inCase_ = true;
        } else if (depth_ == 2 && inArray_) {
            index_++;
        } else if (depth_ == 3 && inCase_ && keep_) {
            testcase_.AddMember(rapidjson::StringRef(key_), rapidjson::Value(), testcase_.GetAllocator());
            keep_ = false;
        }
        depth_++;
        return true;
    }

    bool close() {
        depth_--;
        if (depth_ == 2 && inCase_) {
            inCase_ = false;
            take(index_++);
        }
        if (depth_ == 1) inArray_ = false;  // only the "testcases" array is entered
        return true;
    }

    void take(int64_t index) {
        if (!core::readTestcase(testcase_).isSelect) return;
        CaseReport c = judgeTestcase(testcase_, index, run_);
        if (report_->cases.size() >= kShownCases) {
            report_->leftOut[static_cast<int>(c.verdict)]++;
            return;
        }
        int n = ++seen_[{c.name, static_cast<int>(c.kind)}];
        c.id = n == 1 ? c.name : c.name + " #" + std::to_string(n);
        report_->cases.push_back(std::move(c));
    }

    const RunFacts& run_;
    RunReport* report_;
    int depth_ = 0;
    bool rootIsObject_ = false;
    bool inCases_ = false;    // the root's first "testcases" key was just read
    bool casesSeen_ = false;  // the first "testcases" member was met (only it counts)
    bool inArray_ = false;    // inside the "testcases" array
    bool inCase_ = false;      // inside one test case object
    bool keep_ = false;        // the value after this key is kept
    const char* key_ = nullptr;
    int64_t index_ = 0;
    rapidjson::Document testcase_;
    std::map<std::pair<std::string, int>, int> seen_;
};

}  // namespace

CaseReport judgeTestcase(const rapidjson::Value& tc, int64_t index, const RunFacts& run) {
    CaseReport c = countersOf(tc, index);
    judgeCase(run, &c);
    return c;
}

// |text| is the plan entry's bytes; false with |error| when it is no JSON object.
bool readPlanText(const std::string& text, const char* entry, RunReport* report, std::string* error) {
    PlanReader handler(report->run, report);
    rapidjson::Reader reader;
    rapidjson::MemoryStream bytes(text.data(), text.size());
    rapidjson::EncodedInputStream<rapidjson::UTF8<>, rapidjson::MemoryStream> stream(bytes);
    bool parsed = core::jsonDepthWithinBound(text.data(), text.size()) &&
                  !reader.Parse<rapidjson::kParseIterativeFlag>(stream, handler).IsError();
    if (!parsed) {
        report->cases.clear();
        std::fill(std::begin(report->leftOut), std::end(report->leftOut), 0);
        *error = std::string("the plan ") + entry + " is not JSON";
        return false;
    }
    if (!handler.rootIsObject()) {
        report->cases.clear();
        *error = std::string("the plan ") + entry + " is JSON but not an object";
        return false;
    }
    return true;
}

}  // namespace ostrel_report
