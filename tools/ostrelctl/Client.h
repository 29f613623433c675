// ostrelctl's pieces: the output of one answer (plain text, JSON, the reply
// log) and the commands, each a call of one IOstrel method.
#pragma once

#include <vendor/brevane/hardware/ostrel/2.0/IOstrel.h>

#include <functional>
#include <string>
#include <vector>

namespace ostrelctl {

using ::android::sp;
using ::android::hardware::hidl_string;
using ::android::hardware::Return;
using ::vendor::brevane::hardware::ostrel::V2_0::IOstrel;
using ::vendor::brevane::hardware::ostrel::V2_0::OstrelState;

// Exit statuses.
constexpr int kOk = 0;
constexpr int kRefused = 1;    // the service answered false or an empty text
constexpr int kUsage = 2;      // bad command line or unreadable input file
constexpr int kTransport = 3;  // the service could not be reached or the call failed

struct Options {
    bool json = false;      // one JSON object per answer on standard output
    bool showLog = false;   // the reply log on standard error
    double interval = 2.0;  // watch: seconds between polls
    double reconnect = 120;  // watch: seconds to wait for a service that went away
};

// The name getState's value stands for ("IDLE", ..., or "UNKNOWN(n)").
std::string stateName(OstrelState state);

// Runs the subcommand |args[0]| with its arguments against |service|.
int runCommand(const sp<IOstrel>& service, const std::vector<std::string>& args,
               const Options& options);

// Watches the run until it leaves RUNNING (watch.cpp).
int watchRun(const sp<IOstrel>& service, const Options& options);
// The text of FILE (args[1]) or of standard input ("-" or no FILE); false, with
// a line on standard error, when it cannot be read.
bool readInput(const std::vector<std::string>& args, std::string* text);
// Answers of the service, printed as plain text or JSON: 0, 1 (refused) or 3.
int valueBool(const char* method, Return<bool> ret, const Options& options);
int callbackBool(const char* method, const std::function<Return<void>(IOstrel::setTest_cb)>& call,
                 const Options& options);
int transportFailure(const char* method, const std::string& description);
// run-start, run-abort, run-finished, boot-completed, confirmed by the state after.
int confirmedValue(const sp<IOstrel>& service, const std::string& cmd, const char* method,
                   const std::function<Return<bool>()>& call, const Options& options);
// set-test [--force] FILE|-: checked first, confirmed by reading the plan back.
int checkedSetTest(const sp<IOstrel>& service, std::vector<std::string> args, const Options& options);
// ostrelctl check-plan FILE|-: offline, no bus.
int checkPlanCommand(const std::vector<std::string>& args);
// ostrelctl report [--format text|json|junit|lava] ARCHIVE; |args[0]| is "report".
int runReport(const std::vector<std::string>& args, bool jsonDefault);

// Escapes |text| as a JSON string literal.
std::string jsonString(const std::string& text);

}  // namespace ostrelctl
