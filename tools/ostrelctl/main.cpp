// ostrelctl: the command-line client of the Ostrel HAL service. It talks to the
// service only through IOstrel::getService("default"), so the same source
// builds for Android (HIDL) and for a Linux host (D-Bus).
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <set>
#include <string>
#include <vector>

#include "Client.h"

namespace {

const char kHelp[] = R"(usage: ostrelctl [--json] [--log] [--interval S] [--reconnect S] COMMAND [ARG...]

Talks to the Ostrel HAL service (vendor.brevane.hardware.ostrel@2.0::IOstrel/default),
which plans and runs hardware experiments on this device.

Commands (one IOstrel method each):
  get-config            print the device's configuration list (JSON)
  set-config [FILE|-]   apply the selection in an edited configuration list
  clear-config          clear the applied configuration
  state                 print the planner's state: IDLE, PREPARING, RUNNING, COMPLETING
  run-start             start a run of the plan's selected test cases
  run-abort             abort the current run
  run-finished          end the current run as finished
  boot-completed        tell the planner that the device has finished booting
  install-testers FILE [NAME]
                        hand the planner a tester file (at most 65536 bytes)
  get-test              print the stored plan (JSON)
  set-test [--force] [FILE|-]
                        store a plan (JSON) from FILE or standard input; a plan
                        with problems (see check-plan) is refused with exit 2
                        unless --force; the stored plan is read back
  get-result            pack the last run and print its archive and crash-history
                        copy; may take minutes, there is no time-out
  watch                 show the state and a progress bar per selected test case
                        (hours with what is left, boots; rounds are the
                        executor's) with the time of each update, until the run
                        leaves RUNNING (exit 0; 1 when there was no run); waits
                        for a service that restarts

Checking a plan (offline: no service, no bus):
  check-plan FILE|-     every problem of a plan that the service would store but
                        run wrong, one line each with its JSON path and what to
                        write instead (a missing key the planner writes into, a
                        value of the wrong type, a near-miss key such as
                        isround, a size of 0, no test case selected, two test
                        cases of one name, ...), then warnings (keys the planner
                        does not know, which it keeps). Exit status: 0 no
                        problem, 1 problems found, 2 not readable or not JSON.

Reporting a result (offline: no service, no bus; a result pulled off a device
can be reported anywhere):
  report [--format text|json|junit|lava] ARCHIVE
                        read a QAV<stamp>.zip that get-result made (and the
                        QAV<stamp>.db_history beside it, when present): each
                        selected test case with its target, what was reached
                        and a verdict, the crash-history lines and the end of
                        the executor's log. text is a table (default), json
                        one document (also with --json), junit JUnit XML, lava
                        one lava-test-case line per test case. Exit status:
                        0 every verdict pass (or unknown: rounds the planner
                        does not count), 1 any fail, 2 bad command line or an
                        archive that cannot be read.

Options:
  --json                print each answer as one JSON object (with the reply log)
  --log                 print the service's reply log on standard error
  --interval SECONDS    watch: seconds between polls (default 2)
  --reconnect SECONDS   watch: how long to wait for a service that went away (a
                        reboot, a restart) before giving up with exit 3 (120)
  -h, --help            this text

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

const std::set<std::string> kCommands = {
        "get-config",     "set-config", "clear-config", "state",   "run-start",
        "run-abort",      "run-finished", "boot-completed", "install-testers",
        "get-test",       "set-test",   "get-result",   "watch",       "report", "check-plan"};

}  // namespace

int main(int argc, char** argv) {
    ostrelctl::Options options;
    std::vector<std::string> args;
    for (int i = 1; i < argc; i++) {
        std::string arg = argv[i];
        if (!args.empty()) {
            args.push_back(arg);
        } else if (arg == "-h" || arg == "--help" || arg == "help") {
            std::cout << kHelp;
            return ostrelctl::kOk;
        } else if (arg == "--json") {
            options.json = true;
        } else if (arg == "--log") {
            options.showLog = true;
        } else if (arg == "--reconnect" && i + 1 < argc) {
            char* end = nullptr;
            options.reconnect = strtod(argv[++i], &end);
            if (*end != '\0' || !(options.reconnect >= 0 && options.reconnect <= 86400)) {
                std::cerr << "ostrelctl: --reconnect wants seconds from 0 to 86400\n";
                return ostrelctl::kUsage;
            }
        } else if (arg == "--interval" && i + 1 < argc) {
            char* end = nullptr;
            options.interval = strtod(argv[++i], &end);
            if (*end != '\0' || !(options.interval > 0 && options.interval <= 3600)) {
                std::cerr << "ostrelctl: --interval wants seconds above 0 and at most 3600\n";
                return ostrelctl::kUsage;
            }
        } else if (arg.size() > 1 && arg[0] == '-') {
            std::cerr << "ostrelctl: unknown option " << arg << " (see ostrelctl --help)\n";
            return ostrelctl::kUsage;
        } else {
            args.push_back(arg);
        }
    }
    if (args.empty()) {
        std::cerr << "ostrelctl: no command given (see ostrelctl --help)\n";
        return ostrelctl::kUsage;
    }
    if (kCommands.count(args[0]) == 0) {
        std::cerr << "ostrelctl: unknown command \"" << args[0] << "\" (see ostrelctl --help)\n";
        return ostrelctl::kUsage;
    }
    // A report reads files only: no bus connection is made.
    if (args[0] == "report") return ostrelctl::runReport(args, options.json);
    if (args[0] == "check-plan") return ostrelctl::checkPlanCommand(args);
    auto service = ostrelctl::IOstrel::getService("default");
    if (service == nullptr) {
        std::cerr << "ostrelctl: the Ostrel service (IOstrel/default) is not running or cannot "
                     "be reached\n";
        return ostrelctl::kTransport;
    }
    return ostrelctl::runCommand(service, args, options);
}
