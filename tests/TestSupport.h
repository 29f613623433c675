// Helpers shared by the unit tests, with the headers that every test uses. They run
// inside the device sandbox (scripts/devsandbox), where the fixed paths are a
// private, fresh data partition.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <rapidjson/document.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utils/StrongPointer.h>

#include <chrono>
#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "OstrelFSM.h"
#include "OstrelImpl.h"

namespace vendor::brevane::hardware::ostrel::core {
// A state in a failed comparison prints as its name.
void PrintTo(PlannerFSMState state, std::ostream* os);
}  // namespace vendor::brevane::hardware::ostrel::core

namespace ostrel_test {

using vendor::brevane::hardware::ostrel::V2_0::implementation::Ostrel;
using vendor::brevane::hardware::ostrel::core::OstrelFSM;
using vendor::brevane::hardware::ostrel::core::PlannerEvent;

// Files. readFile gives "" for a file that cannot be read; a /proc file of a
// process that exits meanwhile reads as ended.
std::string readFile(const std::string& path);
void writeFile(const std::string& path, const std::string& text);
void appendFile(const std::string& path, const std::string& text);
bool fileExists(const std::string& path);
// |n| letters in a fixed pseudo-random order, without a newline: any part of them
// shows where it was taken from.
std::string letters(size_t n);
// A file of |size| bytes that ends with |tail|; the rest is a hole (zero bytes).
void writeSparseFile(const std::string& path, off_t size, const std::string& tail);

// Standard error (or another descriptor) of this process and of every child
// started meanwhile, sent to a file while the object lives; readable afterwards.
class StderrCapture {
  public:
    explicit StderrCapture(int target = STDERR_FILENO);
    ~StderrCapture() { restore(); }
    void restore();
    std::string text() const { return readFile(path_); }

  private:
    int target_;
    std::string path_;
    int saved_ = -1;
};

inline bool contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}
// The diagnostic line that the machine writes for |message| (cut at 255).
inline std::string diagnostic(const std::string& message) {
    return "Log at OstrelFSM: " + message.substr(0, 255) + "\n";
}
int numberAfter(const std::string& text, const std::string& prefix);
// How many times |part| occurs in |text|.
int occurrences(const std::string& text, const std::string& part);

bool waitFor(const std::function<bool()>& done, double seconds);

// Processes. A process that has gone reads as gone (state 0), never as an error.
char processState(pid_t pid);
bool isLive(pid_t pid);
// How many processes of group |pgid| have not ended (zombies excluded).
int liveInGroup(pid_t pgid);
std::string runTool(const std::string& command);
// Entry names of a zip in archive order, and one entry's bytes, as unzip reads them.
std::vector<std::string> zipEntries(const std::string& zip);
std::string zipContent(const std::string& zip, const std::string& entry);

// One test case of a plan; |command| is JSON text, or empty for no "command" key.
struct Testcase {
    std::string command;
    bool isRound = true;
    int value = 1;
    bool isBootTest = false;
    bool select = true;
    int currentTime = 0, targetTime = 0, currentRound = 0, targetRound = 0;
};
Testcase rounds(const std::string& command, int value);
Testcase hours(const std::string& command, int value);
Testcase bootTest(const std::string& command, int value);  // rounds that count boots
std::string planJson(int state, bool runStart, bool runFinished,
                     const std::vector<Testcase>& testcases);

// A machine that lives until the process ends (its threads may outlive the test).
OstrelFSM& newMachine();
// A machine whose runs tick every |tick| and look for a missing crash-history file
// every |retry|.
std::unique_ptr<OstrelFSM> timedMachine(std::chrono::milliseconds tick,
                                        std::chrono::milliseconds retry = std::chrono::milliseconds(20));
// Sends |event| (with |input|, when not empty) and a memory stream; returns what
// the handler wrote, and its result through |result|.
std::string answer(OstrelFSM& m, PlannerEvent event, bool* result = nullptr,
                   std::string input = "");

std::string executorLog();

// The config tool's stand-in, chosen through SILLET_BIN, with no failure switch
// set and an empty state file (the words of its last "set" or "clear").
constexpr const char* kSilletState = "/tmp/sillet-state";
std::string useSilletStandIn();

// The plain item or group member called |name| in |list|, or null.
const rapidjson::Value* findEntry(const rapidjson::Value& list, const std::string& name);
// The integer |key| of entry |name| in the process-wide list (-100 when absent).
int listNumber(const std::string& name, const char* key);

}  // namespace ostrel_test

// Every test reads the core's names and these helpers unqualified.
using namespace vendor::brevane::hardware::ostrel::core;
using namespace ostrel_test;
