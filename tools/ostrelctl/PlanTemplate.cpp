// ostrelctl plan-template: a plan to start from, with one test case of each kind
// the planner knows, to edit and store with set-test. Offline: nothing is sent.
#include <iostream>
#include <string>
#include <vector>

#include "Client.h"

namespace ostrelctl {

namespace {

// Rounds run out by the executor, hours counted by ticks, boots counted by
// completed boots. The commands are the executor stand-in's words
// (fakes/kelbrun): the executor is started once with every selected test case's
// command followed by what is left of it, so the time-based one keeps it busy
// for the hours left and the boot test waits for the next reboot.
const char kTemplate[] = R"({"not_set": false, "current_state": 1, "run_start": false, "run_finished": false,
 "testcases": [
  {"name": "cpu load", "select": true, "command": "stress 60", "testcase_value": 3,
   "isRound": true, "isBootTest": false,
   "testcase_current_time": 0, "testcase_target_time": 0,
   "testcase_current_round": 0, "testcase_target_round": 0},
  {"name": "soak", "select": true, "command": "stress 3600", "testcase_value": 1,
   "isRound": false, "isBootTest": false,
   "testcase_current_time": 0, "testcase_target_time": 0,
   "testcase_current_round": 0, "testcase_target_round": 0},
  {"name": "reboots", "select": true, "command": "sleep 3600", "testcase_value": 3,
   "isRound": true, "isBootTest": true,
   "testcase_current_time": 0, "testcase_target_time": 0,
   "testcase_current_round": 0, "testcase_target_round": 0}]}
)";

}  // namespace

ExitStatus planTemplateCommand(const sp<IOstrel>&, const std::vector<std::string>&, const Options&) {
    std::cout << kTemplate;
    return kOk;
}

}  // namespace ostrelctl
