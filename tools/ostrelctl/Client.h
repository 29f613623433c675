// ostrelctl's pieces: the command table (name, synopsis, help, handler), the
// output of one answer (plain text, JSON, the reply log) and the commands.
#pragma once

#include <vendor/brevane/hardware/ostrel/2.0/IOstrel.h>

#include <functional>
#include <ostream>
#include <string>
#include <utility>
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

// An option of the command line. The global ones (json ... help) go with every
// command; the others with the commands whose table row names them. Any option
// may stand before or after the command's name.
struct Flag {
    enum Id { kJson, kLog, kVerbose, kInterval, kReconnect, kHelp, kForce, kFailedOnly, kPlain, kFormat, kExec,
              kDevice, kIdCount };
    Id id;
    const char* name;   // without "--"
    const char* value;  // the value's name ("SECONDS"), nullptr for a switch
    const char* help;   // lines end in '\n'
};
constexpr unsigned flagBit(Flag::Id id) { return 1u << id; }
constexpr unsigned kGlobalFlags = flagBit(Flag::kJson) | flagBit(Flag::kLog) | flagBit(Flag::kVerbose) |
                                  flagBit(Flag::kInterval) | flagBit(Flag::kReconnect) | flagBit(Flag::kHelp);

struct Options {
    bool json = false;      // one JSON object per answer on standard output
    bool showLog = false;   // the reply log on standard error
    bool verbose = false;   // the reply log whole, long echoes included
    double interval = 2.0;  // watch: seconds between polls
    double reconnect = 120;  // watch: seconds to wait for a service that went away
    bool force = false;       // set-test, set-config: send the input unchecked
    bool failedOnly = false;  // retry: just fail and error
    bool plain = false;       // watch: plain lines, no cursor codes
    bool exec = false;        // report --format lava: run each call
    std::string format;       // report: "" for the default (text, or json with --json)
    // report: each --device label with the number of arguments before it.
    std::vector<std::pair<size_t, std::string>> devices;
};

// One command: its name, its options, what follows them, what it does, and its
// handler. An offline command gets no service (nullptr): it never touches the bus.
struct Command {
    enum Group { kService, kCheck, kReport };
    const char* name;
    unsigned flags;        // its own options (flagBit of each)
    const char* synopsis;  // the arguments after the options, "" for none
    const char* help;      // what it does; lines end in '\n'
    Group group;
    size_t minArgs, maxArgs;  // arguments after the name, options aside
    ExitStatus (*run)(const sp<IOstrel>& service, const std::vector<std::string>& args,
                      const Options& options);
};

// A command line taken apart: the command, its arguments (args[0] is its name)
// and every option, wherever it stood.
struct CommandLine {
    const Command* command = nullptr;
    std::vector<std::string> args;
    Options options;
};
// Parses |argv| with getopt_long from the table. Returns -1 when |line| is ready
// to run; else the exit status, after the help or a line on standard error.
int parseCommandLine(int argc, char** argv, CommandLine* line);

// The command of that name, or nullptr.
const Command* findCommand(const std::string& name);
const Flag& findFlag(Flag::Id id);
// Every option of the table, in the table's order.
const Flag* flagsBegin();
const Flag* flagsEnd();
void printHelp(std::ostream& out);
void printCommandHelp(const Command& command, std::ostream& out);
// "ostrelctl report [--format text|...] ARCHIVE|FOLDER...": the options and
// arguments a command takes, from its row.
std::string usageOf(const Command& command);
// The words a shell completes after "ostrelctl" (|command| null) or after a
// command's name: the commands and global options, or that command's options.
void printCompletion(const Command* command, std::ostream& out);

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
