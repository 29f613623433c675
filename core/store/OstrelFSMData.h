// The plan store: one JSON document (state, run flags, test cases and their
// progress counters) mirrored into the plan file after every change, so that a
// run survives a restart of the service or a reboot of the device. While writes
// are held (one event of the machine), the changes are collected and the plan
// is written once when the outermost hold is released.
#pragma once

#include <rapidjson/document.h>

#include <string>

#include "PlanSchema.h"
#include "PlannerState.h"

namespace vendor::brevane::hardware::ostrel::core {

constexpr const char* kPlanFile = "/data/vendor/qav/data/ostreldata.txt";

class OstrelFSMData {
  public:
    // Loads the plan file, or replaces a missing or invalid one with the
    // built-in default document.
    OstrelFSMData();
    ~OstrelFSMData() = default;

    bool isFSMDataExist();
    bool loadFSMData();
    // Writes the plan now, or marks it to be written when writes are held.
    bool writeFSMData();

    // Holds writes until the matching releaseWrites (holds nest). The outermost
    // release writes the plan once if a change was made, unless the text is the
    // one last written and the file is still there.
    void holdWrites();
    void releaseWrites();
    // Writes what a held change left, before a step that must find it on disk.
    void commitWrites();
    // Plan files written so far by this store (for measurements).
    unsigned long writeCount() const { return writes; }

    PlannerFSMState getState();
    bool setState(PlannerFSMState state);
    bool getRunStart();
    bool setRunStart(bool value);
    bool getRunFinished();
    bool setRunFinished(bool value);

    // One test case's fields, read together, as the plan's schema reads them.
    using TestcaseRecord = core::TestcaseRecord;

    // Test-case records, indexed from 0 in the order of "testcases".
    int getTestcasesLength();
    // Test case |i| with one lookup of its object.
    TestcaseRecord getTestcase(int i);
    const char* getTestcaseCommand(int i);
    int getTestcaseValue(int i);
    bool getTestcaseIsBootTest(int i);
    bool getTestcaseIsRound(int i);
    bool getTestcaseIsSelect(int i);
    int getTestcaseCurrentTime(int i);
    bool setTestcaseCurrentTime(int i, int value);
    int getTestcaseTargetTime(int i);
    bool setTestcaseTargetTime(int i, int value);
    int getTestcaseCurrentRound(int i);
    bool setTestcaseCurrentRound(int i, int value);
    int getTestcaseTargetRound(int i);
    bool setTestcaseTargetRound(int i, int value);

    // The test cases' definitions (name, command, value, isRound, isBootTest,
    // select, in plan order, read as the getters read them) as compact JSON:
    // the same plan gives the same text whatever its counters.
    std::string testcaseDefinitions();

    // Whole-plan exchange with clients. getJSON's result is released with free().
    bool putJSON(const char* json);
    char* getJSON();

    void error(const char* message);

  private:
    // The member |key| of the root object, or null.
    rapidjson::Value* rootMember(const char* key);
    // Test case |i| when it is an object, or null.
    rapidjson::Value* testcaseObject(int i, bool* haveTestcases = nullptr);
    // The member |key| of test case |i|. |haveTestcases| tells whether the root
    // has "testcases" at all (the setters' result depends on it).
    rapidjson::Value* testcaseMember(int i, const char* key, bool* haveTestcases = nullptr);
    bool setTestcaseInt(int i, const char* key, int value);
    int getTestcaseInt(int i, const char* key);
    bool getTestcaseBool(int i, const char* key);
    std::string documentText();
    // The atomic replace of the plan file with |text|.
    bool replacePlanFile(const std::string& text);

    rapidjson::Document document;
    int writeHolds = 0;
    bool changed = false;
    // The text of the plan file as this store last read or wrote it.
    std::string lastWritten;
    unsigned long writes = 0;
};

}  // namespace vendor::brevane::hardware::ostrel::core
