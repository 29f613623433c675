// ostrelctl's pieces: the command table (name, synopsis, help, handler), the
// output of one answer (plain text, JSON, the reply log) and the commands.
#pragma once

#include <vendor/brevane/hardware/ostrel/2.0/IOstrel.h>

#include <functional>
#include <ostream>
#include <string>
#include <vector>

namespace ostrelctl {

using ::android::sp;
using ::android::hardware::hidl_string;
using ::android::hardware::Return;
using ::vendor::brevane::hardware::ostrel::V2_0::IOstrel;
using ::vendor::brevane::hardware::ostrel::V2_0::OstrelState;

// The exit status of every command.
enum ExitStatus : int {
    kOk = 0,         // success; check-plan: no problem; report: every verdict passes
    kRefused = 1,    // refused, no answer or nothing changed; check-plan: problems; report: a run failed
    kUsage = 2,      // bad command line or input file; report: an archive that cannot be read
    kTransport = 3,  // the service could not be reached or the call failed
    kNotProven = 4,  // report: no run failed, but one is unknown or some inputs could not be read
};

struct Options {
    bool json = false;      // one JSON object per answer on standard output
    bool showLog = false;   // the reply log on standard error
    bool verbose = false;   // the reply log whole, long echoes included
    double interval = 2.0;  // watch: seconds between polls
    double reconnect = 120;  // watch: seconds to wait for a service that went away
};

// One command: its name, what follows it, what it does, and its handler. An
// offline command gets no service (nullptr): it never touches the bus.
struct Command {
    enum Group { kService, kCheck, kReport };
    const char* name;
    const char* synopsis;  // the arguments after the name, "" for none
    const char* help;      // what it does; lines end in '\n'
    Group group;
    size_t minArgs, maxArgs;  // arguments after the name
    ExitStatus (*run)(const sp<IOstrel>& service, const std::vector<std::string>& args,
                      const Options& options);
};

// The command of that name, or nullptr.
const Command* findCommand(const std::string& name);
void printHelp(std::ostream& out);
void printCommandHelp(const Command& command, std::ostream& out);

// The handlers (args[0] is the command's name).
ExitStatus getConfigCommand(const sp<IOstrel>&, const std::vector<std::string>&, const Options&);
ExitStatus setConfigCommand(const sp<IOstrel>&, const std::vector<std::string>&, const Options&);
ExitStatus clearConfigCommand(const sp<IOstrel>&, const std::vector<std::string>&, const Options&);
ExitStatus stateCommand(const sp<IOstrel>&, const std::vector<std::string>&, const Options&);
ExitStatus runStartCommand(const sp<IOstrel>&, const std::vector<std::string>&, const Options&);
ExitStatus runAbortCommand(const sp<IOstrel>&, const std::vector<std::string>&, const Options&);
ExitStatus runFinishedCommand(const sp<IOstrel>&, const std::vector<std::string>&, const Options&);
ExitStatus bootCompletedCommand(const sp<IOstrel>&, const std::vector<std::string>&, const Options&);
ExitStatus installTestersCommand(const sp<IOstrel>&, const std::vector<std::string>&, const Options&);
ExitStatus getTestCommand(const sp<IOstrel>&, const std::vector<std::string>&, const Options&);
ExitStatus setTestCommand(const sp<IOstrel>&, const std::vector<std::string>&, const Options&);
ExitStatus getResultCommand(const sp<IOstrel>&, const std::vector<std::string>&, const Options&);
ExitStatus watchCommand(const sp<IOstrel>&, const std::vector<std::string>&, const Options&);
ExitStatus planTemplateCommand(const sp<IOstrel>&, const std::vector<std::string>&, const Options&);
ExitStatus checkPlanCommand(const sp<IOstrel>&, const std::vector<std::string>&, const Options&);
ExitStatus reportCommand(const sp<IOstrel>&, const std::vector<std::string>&, const Options&);
ExitStatus retryCommand(const sp<IOstrel>&, const std::vector<std::string>&, const Options&);

// The name getState's value stands for ("IDLE", ..., or "UNKNOWN(n)").
std::string stateName(OstrelState state);

// The text of FILE (args[1]) or of standard input ("-" or no FILE); false, with
// a line on standard error, when it cannot be read.
// A plan or a configuration list, from FILE or standard input, at most
// kInputBytes (as a report reads a plan); false, with a line, for more.
constexpr size_t kInputBytes = 16u << 20;
bool readInput(const std::vector<std::string>& args, std::string* text);
// Removes a "--force" that follows the command's name; true when there was one.
bool takeForce(std::vector<std::string>* args);

// Answers (Answers.cpp), printed as plain text or as one JSON object.
ExitStatus transportFailure(const char* method, const std::string& description);
// runStart, runAbort, runFinished, bootCompleted: a plain bool.
ExitStatus valueBool(const char* method, Return<bool> ret, const Options& options);
// The answer line of a method answered |ok| ("runStart: ok"), as valueBool prints it.
ExitStatus answerLine(const char* method, bool ok, const Options& options);
// setConfig, setTest, clearConfig, installTesters: (bool, reply log).
ExitStatus callbackBool(const char* method,
                        const std::function<Return<void>(IOstrel::setTest_cb)>& call,
                        const Options& options);
// getConfig, getTest: (text, reply log); exit 1 when the text is empty.
ExitStatus textAnswer(const char* method, const char* key,
                      const std::function<Return<void>(IOstrel::getTest_cb)>& call,
                      const Options& options);
ExitStatus stateAnswer(OstrelState state, const Options& options);
// getResult's answer split into its archive and history copy.
ExitStatus resultAnswer(const std::string& answer, const std::string& log, const Options& options);
// watch --json: the state and the plan, one object per update.
std::string watchJson(OstrelState state, const std::string& plan);
// The reply log on standard error with --log (not with --json, whose objects
// carry it): a long echo is cut to its first and last lines unless --verbose.
void printLog(const std::string& log, const Options& options);

// set-test's work: |text| checked (unless |force|), stored, read back.
ExitStatus storePlan(const sp<IOstrel>& service, const std::string& text, bool force,
                     const Options& options);
// run-start, run-abort, run-finished, boot-completed, confirmed by the state after.
ExitStatus confirmedValue(const sp<IOstrel>& service, const std::string& cmd, const char* method,
                          const std::function<Return<bool>()>& call, const Options& options);

}  // namespace ostrelctl
