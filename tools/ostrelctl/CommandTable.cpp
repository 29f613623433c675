// The command table: one row per command makes both the help and the dispatch.
#include <cstdio>
#include <cstring>
#include <iterator>
#include <ostream>
#include <string>

#include "Client.h"

namespace ostrelctl {

namespace {

constexpr size_t kMany = 1000;

// Every option, the global ones first; a command's usage lists its own in this order.
const Flag kFlags[] = {
        {Flag::kJson, "json", nullptr, "print each answer as one JSON object (with the reply log)\n"},
        {Flag::kLog, "log", nullptr,
         "print the service's reply log on standard error; an echo\n"
         "of more than 40 lines shows its first 20 and last 10\n"
         "lines, a line of more than 400 bytes its first 400\n"},
        {Flag::kVerbose, "verbose", nullptr, "with --log: the reply log whole\n"},
        {Flag::kInterval, "interval", "SECONDS", "watch: seconds between polls (default 2)\n"},
        {Flag::kReconnect, "reconnect", "SECONDS",
         "watch: how long to wait for a service that went away (a\n"
         "reboot, a restart) before giving up with exit 3 (120)\n"},
        {Flag::kHelp, "help", nullptr, "this text; COMMAND --help: that command's (offline)\n"},
        {Flag::kForce, "force", nullptr, "send the input as it is, unchecked\n"},
        {Flag::kFailedOnly, "failed-only", nullptr, "rerun just the test cases that failed (fail, error)\n"},
        {Flag::kPlain, "plain", nullptr, "plain lines, no cursor codes (for a log)\n"},
        {Flag::kFormat, "format", "text|json|junit|lava|html", "the output's format (default text)\n"},
        {Flag::kExec, "exec", nullptr, "with --format lava: run each line as a command\n"},
        {Flag::kDevice, "device", "LABEL",
         "the device's name in every format (the ARCHIVE or\n"
         "FOLDER after it)\n"},
};
static_assert(sizeof(kFlags) / sizeof(kFlags[0]) == Flag::kIdCount, "a row per option");

const Command kCommands[] = {
        {"get-config", 0, "", "print the device's configuration list (JSON)\n", Command::kService, 0, 0,
         getConfigCommand},
        {"set-config", flagBit(Flag::kForce), "[FILE|-]",
         "apply the selection in an edited configuration list (a\n"
         "file that is not a JSON object is refused with exit 2\n"
         "unless --force)\n",
         Command::kService, 0, 1, setConfigCommand},
        {"clear-config", 0, "", "clear the applied configuration\n", Command::kService, 0, 0,
         clearConfigCommand},
        {"state", 0, "", "print the planner's state: IDLE, PREPARING, RUNNING, COMPLETING\n",
         Command::kService, 0, 0, stateCommand},
        {"run-start", 0, "", "start a run of the plan's selected test cases\n", Command::kService, 0, 0,
         runStartCommand},
        {"run-abort", 0, "", "abort the current run\n", Command::kService, 0, 0, runAbortCommand},
        {"run-finished", 0, "", "end the current run as finished\n", Command::kService, 0, 0,
         runFinishedCommand},
        {"boot-completed", 0, "", "tell the planner that the device has finished booting\n",
         Command::kService, 0, 0, bootCompletedCommand},
        {"install-testers", 0, "FILE [NAME]", "hand the planner a tester file (at most 65536 bytes)\n",
         Command::kService, 1, 2, installTestersCommand},
        {"get-test", 0, "", "print the stored plan (JSON)\n", Command::kService, 0, 0, getTestCommand},
        {"set-test", flagBit(Flag::kForce), "[FILE|-]",
         "store a plan (JSON) from FILE or standard input; a plan\n"
         "with problems (see check-plan) is refused with exit 2\n"
         "unless --force; the stored plan is read back\n",
         Command::kService, 0, 1, setTestCommand},
        {"get-result", 0, "",
         "pack the last run and print its archive, crash-history\n"
         "copy and run record (the three files a lab copies); may\n"
         "take minutes, there is no time-out\n",
         Command::kService, 0, 0, getResultCommand},
        {"retry", flagBit(Flag::kFailedOnly), "RESULT",
         "from a run's result (QAV<stamp>.zip and the run record\n"
         "beside it), store the plan again with only the test\n"
         "cases that did not pass selected (fail, error, aborted,\n"
         "unknown; with --failed-only just fail and error), each\n"
         "listed with its verdict, and their counters reset\n"
         "(checked as set-test does), and apply again the\n"
         "configuration that run applied; refused for a result of\n"
         "another device. Then run-start runs them.\n",
         Command::kService, 1, 1, retryCommand},
        {"watch", flagBit(Flag::kPlain), "",
         "show the state and a progress bar per selected test case\n"
         "(hours with what is left and when they end, about, at a\n"
         "tick of 10 s every 10 s; boots; rounds are the\n"
         "executor's) with the time of each update and the run's\n"
         "time so far, until the run leaves RUNNING or is found\n"
         "ended in COMPLETING (exit 0; 1 when there is no run:\n"
         "IDLE or PREPARING); waits for a service that restarts.\n"
         "On a terminal the block is redrawn in place; --plain\n"
         "prints a new block at each change instead, with no\n"
         "cursor codes (for a log, e.g. a LAVA test shell)\n",
         Command::kService, 0, 0, watchCommand},
        {"plan-template", 0, "",
         "print a plan to start from (JSON) with one test case of\n"
         "each kind: 3 rounds run by the executor, 1 hour counted\n"
         "by the planner's ticks, a boot test of 3 boots; the\n"
         "commands are the executor stand-in's words (stress,\n"
         "sleep): put your executor's, then check-plan and\n"
         "set-test it, e.g. ostrelctl plan-template > plan.json\n",
         Command::kCheck, 0, 0, planTemplateCommand},
        {"check-plan", 0, "FILE|-",
         "every problem of a plan that the service would store but\n"
         "run wrong, one line each with its JSON path and what to\n"
         "write instead (a missing key the planner writes into, a\n"
         "value of the wrong type, a near-miss key such as\n"
         "isround, a size of 0, no test case selected, two test\n"
         "cases of one name, ...), then warnings (keys the planner\n"
         "does not know, which it keeps). Exit status: 0 no\n"
         "problem, 1 problems found, 2 not readable or not JSON.\n",
         Command::kCheck, 0, 1, checkPlanCommand},
        {"report", flagBit(Flag::kFormat) | flagBit(Flag::kExec) | flagBit(Flag::kDevice), "ARCHIVE|FOLDER...",
         "read a QAV<stamp>.zip that get-result made (and the\n"
         "QAV<stamp>.db_history and QAV<stamp>.run.json beside it,\n"
         "when present): each selected test case with its target,\n"
         "what was reached and a verdict, the crash-history lines\n"
         "and the end of the executor's log. text is a table\n"
         "(default), json one document (also with --json), junit\n"
         "JUnit XML, lava one lava-test-case line per test case;\n"
         "with --exec each lava line is run as a command with its\n"
         "words as arguments (never through a shell), as a LAVA\n"
         "test shell does with the device's result pulled to it.\n"
         "Several archives, or folders (searched for QAV*.zip), make\n"
         "a summary of many runs: a row per run, per test case\n"
         "across runs and per crash signature (numbers, addresses\n"
         "and hex ids masked), archives that cannot be read listed\n"
         "with why; html is one self-contained page of it.\n"
         "--device LABEL names the device (a lab's name or serial)\n"
         "in every format instead of the record's host name or model;\n"
         "in a summary each ARCHIVE or FOLDER takes the last --device\n"
         "before it (those before the first take the first).\n"
         "Exit status: 0 every run passed, 1 a run failed (fail,\n"
         "error or aborted), 2 bad command line or no archive that\n"
         "can be read, 4 no run failed but one is unknown or some\n"
         "input could not be read (not proven).\n",
         Command::kReport, 0, kMany, reportCommand},
};

const char kIntro[] = R"(Talks to the Ostrel HAL service (vendor.brevane.hardware.ostrel@2.0::IOstrel/default),
which plans and runs hardware experiments on this device.
)";

const char* const kHeadings[] = {
        "Commands (one IOstrel method each):",
        "Writing and checking a plan (offline: no service, no bus):",
        ("Reporting a result (offline: no service, no bus; a result pulled off a device\n"
         "can be reported anywhere):"),
};

const char kRest[] = R"(
The life of a run:
  1. After the device boots, boot-completed moves the planner from IDLE to
     PREPARING (or back into a run that a reboot interrupted).
  2. In PREPARING, store a plan with set-test and, if wanted, select a
     configuration with get-config / set-config.
  3. run-start moves to RUNNING: the selected test cases run through the test
     executor; each counts rounds or hours. Boot tests count boots: after each
     reboot, boot-completed counts one and starts the executor again.
  4. Reaching every target stops the counting; the run ends, and the planner
     moves to COMPLETING, when the executor ends (seen at the next tick, every
     10 s), or on run-abort or run-finished.
  5. get-result packs the run's output into a zip archive beside a copy of the
     crash-history lines collected during the run, prints both paths and
     returns the planner to PREPARING for the next plan.

The reply log: every call writes lines to the service's reply log; each answer
that carries text or a callback (get-config, set-config, clear-config,
install-testers, get-test, set-test, get-result) hands over the whole log and
empties it, so lines of plain calls (state, run-*, boot-completed) arrive with
the next such answer. Use --log to see it.

Changes are confirmed from the service afterwards (getState, getTest, whose
lines join the reply log): run-start must leave the planner RUNNING,
run-abort and run-finished COMPLETING, boot-completed out of IDLE (in
PREPARING or COMPLETING it has nothing to do and says so), set-test must read
back the plan sent (current_state aside). A change answered true that did not
happen exits 1 with a line that says what the planner did instead.

Exit status: 0 success; 1 the service refused (false, or no text in its
current state) or nothing changed; 2 bad command line or input file (or a plan
with problems); 3 the service could not be reached or the call failed (the
D-Bus error is printed).
)";

// |text|'s lines, the first after |first|, the others indented by |indent|.
void indented(std::ostream& out, const std::string& first, const char* text, size_t indent) {
    std::string lines = text;
    size_t start = 0;
    bool firstLine = true;
    while (start < lines.size()) {
        size_t end = lines.find('\n', start);
        std::string line = lines.substr(start, end - start);
        out << (firstLine ? first : std::string(indent, ' ')) << line << "\n";
        firstLine = false;
        start = end == std::string::npos ? lines.size() : end + 1;
    }
}

// One entry of the help: |head|, then |help| from column 24 (on the next line
// when the head leaves no room).
void entry(std::ostream& out, const std::string& head, const char* help) {
    if (head.size() < 22) {
        indented(out, head + std::string(24 - head.size(), ' '), help, 24);
    } else {
        out << head << "\n";
        indented(out, std::string(24, ' '), help, 24);
    }
}

// "--NAME VALUE" or "--NAME".
std::string flagText(const Flag& flag) {
    return std::string("--") + flag.name + (flag.value ? std::string(" ") + flag.value : "");
}

// The options whose bits are in |flags|, each with its help.
void printFlags(std::ostream& out, unsigned flags) {
    for (const Flag& flag : kFlags) {
        if (!(flags & flagBit(flag.id))) continue;
        entry(out, (flag.id == Flag::kHelp ? "  -h, " : "  ") + flagText(flag), flag.help);
    }
}

}  // namespace

const Flag& findFlag(Flag::Id id) {
    return kFlags[id];
}

const Flag* flagsBegin() {
    return std::begin(kFlags);
}

const Flag* flagsEnd() {
    return std::end(kFlags);
}

std::string usageOf(const Command& command) {
    std::string usage = std::string("ostrelctl ") + command.name;
    for (const Flag& flag : kFlags) {
        if (command.flags & flagBit(flag.id)) usage += " [" + flagText(flag) + "]";
    }
    return usage + (*command.synopsis ? " " : "") + command.synopsis;
}

void printCompletion(const Command* command, std::ostream& out) {
    unsigned flags = command == nullptr ? kGlobalFlags : command->flags | kGlobalFlags;
    if (command == nullptr) {
        for (const Command& c : kCommands) out << c.name << "\n";
    }
    for (const Flag& flag : kFlags) {
        if (flags & flagBit(flag.id)) out << "--" << flag.name << "\n";
    }
}

const Command* findCommand(const std::string& name) {
    for (const Command& c : kCommands) {
        if (name == c.name) return &c;
    }
    return nullptr;
}

void printHelp(std::ostream& out) {
    out << "usage: ostrelctl [OPTION...] COMMAND [ARG...]\n\n" << kIntro;
    for (int group = Command::kService; group <= Command::kReport; group++) {
        out << "\n" << kHeadings[group] << "\n";
        for (const Command& c : kCommands) {
            if (c.group != group) continue;
            entry(out, "  " + usageOf(c).substr(strlen("ostrelctl ")), c.help);
        }
    }
    out << "\nOptions (before or after the command):\n";
    printFlags(out, kGlobalFlags);
    out << kRest;
}

void printCommandHelp(const Command& command, std::ostream& out) {
    out << "usage: " << usageOf(command) << "\n\n";
    indented(out, "", command.help, 0);
    if (command.flags != 0) {
        out << "\nOptions:\n";
        printFlags(out, command.flags);
    }
    out << "\n" << (command.group == Command::kService ? "Talks to the service" : "Offline: no service, no bus")
        << "; the options of every command are in ostrelctl --help.\n";
}

}  // namespace ostrelctl
