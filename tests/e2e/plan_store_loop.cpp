// plan_store_loop FIRST COUNT: a client that stays connected and stores plans
// one after another, so that a kill of the service lands in the middle of a
// store rather than in a client's start-up. Prints K once the service
// acknowledged the plan "store K"; ends at the first refusal or transport error.
#include <vendor/brevane/hardware/ostrel/2.0/IOstrel.h>

#include <cstdio>
#include <cstdlib>
#include <string>

using ::vendor::brevane::hardware::ostrel::V2_0::IOstrel;

int main(int argc, char** argv) {
    ::android::sp<IOstrel> service = IOstrel::getService("default");
    if (argc != 3 || service == nullptr) return 2;
    for (long k = atol(argv[1]), end = k + atol(argv[2]); k < end; k++) {
        std::string n = std::to_string(k);
        std::string plan = "{\"not_set\":false,\"current_state\":1,\"run_start\":false,"
                           "\"run_finished\":false,\"testcases\":[{\"name\":\"store " + n +
                           "\",\"select\":true,\"command\":\"say " + n + "\",\"testcase_value\":" +
                           n + ",\"isRound\":true,\"testcase_current_time\":0,"
                           "\"testcase_target_time\":0,\"testcase_current_round\":0,"
                           "\"testcase_target_round\":0}]}";
        bool ok = false;
        auto r = service->setTest(plan, [&](bool v, const auto&) { ok = v; });
        if (!r.isOk() || !ok) return 1;
        printf("%ld\n", k);
        fflush(stdout);
    }
    return 0;
}
