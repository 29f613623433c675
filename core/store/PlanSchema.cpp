#include "PlanSchema.h"

namespace vendor::brevane::hardware::ostrel::core {

namespace {

const rapidjson::Value* memberOf(const rapidjson::Value& object, const char* key) {
    if (!object.IsObject()) return nullptr;
    auto it = object.FindMember(key);
    return it == object.MemberEnd() ? nullptr : &it->value;
}

}  // namespace

int intOf(const rapidjson::Value* v) {
    return v != nullptr && v->IsInt() ? v->GetInt() : 0;
}

bool isTrue(const rapidjson::Value* v) {
    return v != nullptr && v->IsTrue();
}

const char* stringOf(const rapidjson::Value* v) {
    return v != nullptr && v->IsString() ? v->GetString() : nullptr;
}

TestcaseRecord readTestcase(const rapidjson::Value& tc) {
    using namespace plankey;
    TestcaseRecord record;
    record.name = stringOf(memberOf(tc, kName));
    record.command = stringOf(memberOf(tc, kCommand));
    record.value = intOf(memberOf(tc, kValue));
    record.isBootTest = isTrue(memberOf(tc, kIsBootTest));
    record.isRound = isTrue(memberOf(tc, kIsRound));
    record.isSelect = isTrue(memberOf(tc, kSelect));
    record.currentTime = intOf(memberOf(tc, kCurrentTime));
    record.targetTime = intOf(memberOf(tc, kTargetTime));
    record.currentRound = intOf(memberOf(tc, kCurrentRound));
    record.targetRound = intOf(memberOf(tc, kTargetRound));
    return record;
}

Counting countingOf(const TestcaseRecord& tc) {
    if (!tc.isRound) return Counting::ByTime;
    return tc.isBootTest ? Counting::ByBoots : Counting::ByExecutor;
}

int currentOf(const TestcaseRecord& tc) {
    return tc.isRound ? tc.currentRound : tc.currentTime;
}

int targetOf(const TestcaseRecord& tc) {
    return tc.isRound ? tc.targetRound : tc.targetTime;
}

const char* kindName(Counting counting) {
    switch (counting) {
        case Counting::ByTime: return "hours";
        case Counting::ByBoots: return "boots";
        case Counting::ByExecutor: return "rounds";
    }
    return "rounds";
}

const char* unitName(Counting counting) {
    return counting == Counting::ByTime ? "seconds" : kindName(counting);
}

}  // namespace vendor::brevane::hardware::ostrel::core
