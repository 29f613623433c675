#include "OstrelFSMData.h"

#include <fcntl.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>

#include "AtomicFile.h"
#include "JsonText.h"
#include "OstrelLog.h"

namespace vendor::brevane::hardware::ostrel::core {

namespace {

constexpr const char* kLogTag = "ostrel.core.fsmdata";
constexpr const char* kPlanTempFile = "/data/vendor/qav/data/ostreldata.txt.new";

// What a missing or invalid plan file is replaced with.
constexpr const char* kDefaultDocument =
        "{\"not_set\": true,\"current_state\": 0,\"run_start\": false,\"run_finished\": false,"
        "\"testcases\": [{\"name\": \"kelbrun help\",\"select\": false,\"command\": \"--help\","
        "\"testcase_value\": 0,\"isRound\": false,\"testcase_current_time\": 0,"
        "\"testcase_target_time\": 0,\"testcase_current_round\": 0,"
        "\"testcase_target_round\": 0}]}";

bool readPlanFile(std::string* text) {
    std::ifstream in(kPlanFile, std::ios::in | std::ios::binary);
    if (!in) return false;
    text->assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    return true;
}

// Typed reads: a member that is missing or of another type reads as 0, false
// or null.
rapidjson::Value* memberOf(rapidjson::Value* object, const char* key) {
    if (object == nullptr) return nullptr;
    auto it = object->FindMember(key);
    return it == object->MemberEnd() ? nullptr : &it->value;
}


}  // namespace

const char* const kStateNames[4] = {"IDLE", "PREPARING", "RUNNING", "COMPLETING"};

OstrelFSMData::OstrelFSMData() {
    // A write cut short by a crash leaves only the temporary file behind.
    unlink(kPlanTempFile);
    if (!isFSMDataExist()) {
        error("init Document");
        parseJsonText(document, kDefaultDocument, strlen(kDefaultDocument));
        writeFSMData();
    }
    if (!loadFSMData()) error("Unable to read FSM data");
}

void OstrelFSMData::error(const char* message) {
    formatDiagnostic(kLogTag, __FILE__, "%s", message);
}

bool OstrelFSMData::isFSMDataExist() {
    struct stat st;
    if (stat(kPlanFile, &st) != 0) return false;
    std::string text;
    rapidjson::Document local;
    if (readPlanFile(&text)) parseJsonText(local, text.data(), text.size());
    if (local.IsObject() && local.HasMember(plankey::kCurrentState)) return true;
    error("FSM data file is not correct!!");
    return false;
}

bool OstrelFSMData::loadFSMData() {
    struct stat st;
    if (stat(kPlanFile, &st) != 0) {
        error("FSM data file is not exist!!");
        return false;
    }
    std::string text;
    if (readPlanFile(&text)) parseJsonText(document, text.data(), text.size());
    lastWritten = text;
    return true;
}

// The file is replaced atomically: the new text goes to a temporary file in the
// same directory, is flushed to disk and renamed over the plan file, so a power
// cut leaves either the old or the new plan, never a truncated one. A file that
// cannot be written is not reported, as before.
bool OstrelFSMData::writeFSMData() {
    if (!document.IsObject()) {
        error("Document is empty");
        return false;
    }
    if (writeHolds > 0) {
        changed = true;
        return true;
    }
    replacePlanFile(documentText());
    return true;
}

// The document as compact JSON, as the plan file and getJSON hold it.
std::string OstrelFSMData::documentText() {
    rapidjson::StringBuffer buffer;
    rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
    document.Accept(writer);
    return std::string(buffer.GetString(), buffer.GetSize());
}

bool OstrelFSMData::replacePlanFile(const std::string& text) {
    if (!replaceFileAtomically(kPlanTempFile, kPlanFile, text, 0666)) return false;
    lastWritten = text;
    writes++;
    return true;
}

void OstrelFSMData::holdWrites() {
    writeHolds++;
}

void OstrelFSMData::releaseWrites() {
    if (writeHolds > 0 && --writeHolds == 0) commitWrites();
}

void OstrelFSMData::commitWrites() {
    if (!changed) return;
    changed = false;
    // A document that stopped being an object was reported by the setter.
    if (!document.IsObject()) return;
    std::string text = documentText();
    struct stat st;
    if (text == lastWritten && stat(kPlanFile, &st) == 0) return;
    replacePlanFile(text);
}

rapidjson::Value* OstrelFSMData::rootMember(const char* key) {
    if (!document.IsObject()) return nullptr;
    auto it = document.FindMember(key);
    return it == document.MemberEnd() ? nullptr : &it->value;
}

PlannerFSMState OstrelFSMData::getState() {
    rapidjson::Value* v = rootMember(plankey::kCurrentState);
    if (v == nullptr || !v->IsInt()) return IDLE;
    switch (v->GetInt()) {
        case PREPARING:
            return PREPARING;
        case RUNNING:
            return RUNNING;
        case COMPLETING:
            return COMPLETING;
        default:
            return IDLE;
    }
}

bool OstrelFSMData::setState(PlannerFSMState state) {
    rapidjson::Value* v = rootMember(plankey::kCurrentState);
    if (v != nullptr) {
        bool known = state == PREPARING || state == RUNNING || state == COMPLETING;
        v->SetInt(known ? state : IDLE);
    }
    writeFSMData();
    return true;
}

bool OstrelFSMData::getRunStart() {
    rapidjson::Value* v = rootMember(plankey::kRunStart);
    return v != nullptr && v->IsTrue();
}

bool OstrelFSMData::setRunStart(bool value) {
    rapidjson::Value* v = rootMember(plankey::kRunStart);
    if (v != nullptr) v->SetBool(value);
    return writeFSMData();
}

bool OstrelFSMData::getRunFinished() {
    rapidjson::Value* v = rootMember(plankey::kRunFinished);
    return v != nullptr && v->IsTrue();
}

bool OstrelFSMData::setRunFinished(bool value) {
    rapidjson::Value* v = rootMember(plankey::kRunFinished);
    if (v != nullptr) v->SetBool(value);
    return writeFSMData();
}

int OstrelFSMData::getTestcasesLength() {
    rapidjson::Value* v = rootMember(plankey::kTestcases);
    return v != nullptr && v->IsArray() ? static_cast<int>(v->Size()) : 0;
}

// An index out of range, a "testcases" that is not an array and an element that
// is not an object all read like a missing key.
rapidjson::Value* OstrelFSMData::testcaseObject(int i, bool* haveTestcases) {
    rapidjson::Value* cases = rootMember(plankey::kTestcases);
    if (haveTestcases != nullptr) *haveTestcases = cases != nullptr;
    if (cases == nullptr || !cases->IsArray() || i < 0 ||
        static_cast<unsigned>(i) >= cases->Size()) {
        return nullptr;
    }
    rapidjson::Value& tc = (*cases)[static_cast<rapidjson::SizeType>(i)];
    return tc.IsObject() ? &tc : nullptr;
}

rapidjson::Value* OstrelFSMData::testcaseMember(int i, const char* key, bool* haveTestcases) {
    return memberOf(testcaseObject(i, haveTestcases), key);
}

int OstrelFSMData::getTestcaseInt(int i, const char* key) {
    return intOf(testcaseMember(i, key));
}

bool OstrelFSMData::getTestcaseBool(int i, const char* key) {
    return isTrue(testcaseMember(i, key));
}

OstrelFSMData::TestcaseRecord OstrelFSMData::getTestcase(int i) {
    rapidjson::Value* tc = testcaseObject(i);
    return tc != nullptr ? readTestcase(*tc) : TestcaseRecord{};
}

bool OstrelFSMData::setTestcaseInt(int i, const char* key, int value) {
    bool haveTestcases = false;
    rapidjson::Value* v = testcaseMember(i, key, &haveTestcases);
    if (!haveTestcases) return false;
    if (v != nullptr) v->SetInt(value);
    writeFSMData();
    return true;
}

const char* OstrelFSMData::getTestcaseCommand(int i) {
    return stringOf(testcaseMember(i, plankey::kCommand));
}

int OstrelFSMData::getTestcaseValue(int i) {
    return getTestcaseInt(i, plankey::kValue);
}

bool OstrelFSMData::getTestcaseIsBootTest(int i) {
    return getTestcaseBool(i, plankey::kIsBootTest);
}

bool OstrelFSMData::getTestcaseIsRound(int i) {
    return getTestcaseBool(i, plankey::kIsRound);
}

bool OstrelFSMData::getTestcaseIsSelect(int i) {
    return getTestcaseBool(i, plankey::kSelect);
}

int OstrelFSMData::getTestcaseCurrentTime(int i) {
    return getTestcaseInt(i, plankey::kCurrentTime);
}

bool OstrelFSMData::setTestcaseCurrentTime(int i, int value) {
    return setTestcaseInt(i, plankey::kCurrentTime, value);
}

int OstrelFSMData::getTestcaseTargetTime(int i) {
    return getTestcaseInt(i, plankey::kTargetTime);
}

bool OstrelFSMData::setTestcaseTargetTime(int i, int value) {
    return setTestcaseInt(i, plankey::kTargetTime, value);
}

int OstrelFSMData::getTestcaseCurrentRound(int i) {
    return getTestcaseInt(i, plankey::kCurrentRound);
}

bool OstrelFSMData::setTestcaseCurrentRound(int i, int value) {
    return setTestcaseInt(i, plankey::kCurrentRound, value);
}

int OstrelFSMData::getTestcaseTargetRound(int i) {
    return getTestcaseInt(i, plankey::kTargetRound);
}

bool OstrelFSMData::setTestcaseTargetRound(int i, int value) {
    return setTestcaseInt(i, plankey::kTargetRound, value);
}

// A text that does not parse leaves the plan in force; one whose root is not an
// object replaces it but is refused (and is never written to the file). The new
// plan is parsed into a document of its own and swapped in, so the old plan's
// memory goes with it instead of piling up in one pool.
bool OstrelFSMData::putJSON(const char* json) {
    if (json == nullptr) return false;
    rapidjson::Document fresh;
    if (parseJsonText(fresh, json, strlen(json))) document.Swap(fresh);
    if (document.IsObject()) return true;
    error("Document is empty, put NULL JSON");
    return false;
}

char* OstrelFSMData::getJSON() {
    if (!document.IsObject()) {
        error("ostrel: Document is empty, null string");
        return nullptr;
    }
    rapidjson::Value* notSet = rootMember(plankey::kNotSet);
    if (notSet != nullptr && notSet->IsTrue()) {
        error("ostrel: Document is not set, null string");
        return nullptr;
    }
    return strdup(documentText().c_str());
}

}  // namespace vendor::brevane::hardware::ostrel::core

namespace vendor::brevane::hardware::ostrel::core {

std::string OstrelFSMData::testcaseDefinitions() {
    rapidjson::StringBuffer buffer;
    rapidjson::Writer<rapidjson::StringBuffer> w(buffer);
    w.StartArray();
    for (int i = 0, n = getTestcasesLength(); i < n; i++) {
        TestcaseRecord tc = getTestcase(i);
        w.StartArray();
        tc.name ? w.String(tc.name) : w.Null();
        tc.command ? w.String(tc.command) : w.Null();
        w.Int(tc.value);
        w.Bool(tc.isRound);
        w.Bool(tc.isBootTest);
        w.Bool(tc.isSelect);
        w.EndArray();
    }
    w.EndArray();
    return std::string(buffer.GetString(), buffer.GetSize());
}

}  // namespace vendor::brevane::hardware::ostrel::core
