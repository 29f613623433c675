// A client that stays connected and stores plans one after another, so that a
// kill of the service lands in the middle of a store rather than in a client's
// start-up. Prints K after the service acknowledged the plan "store K", and
// ends at the first refusal or transport error.
//   plan_store_loop FIRST COUNT
#include <vendor/brevane/hardware/ostrel/2.0/IOstrel.h>

#include <cstdio>
#include <cstdlib>
#include <string>

using ::android::sp;
using ::android::hardware::hidl_string;
using ::vendor::brevane::hardware::ostrel::V2_0::IOstrel;

int main(int argc, char** argv) {
    if (argc != 3) {
        fprintf(stderr, "usage: plan_store_loop FIRST COUNT\n");
        return 2;
    }
    sp<IOstrel> service = IOstrel::getService("default");
    if (service == nullptr) return 3;
    long first = atol(argv[1]), count = atol(argv[2]);
    for (long k = first; k < first + count; k++) {
        std::string n = std::to_string(k);
        std::string plan =
                "{\"not_set\":false,\"current_state\":1,\"run_start\":false,\"run_finished\":false,"
                "\"testcases\":[{\"name\":\"store " + n + "\",\"select\":true,\"command\":\"say " + n +
                "\",\"testcase_value\":" + n + ",\"isRound\":true,\"testcase_current_time\":0,"
                "\"testcase_target_time\":0,\"testcase_current_round\":0,"
                "\"testcase_target_round\":0}]}";
        bool ok = false;
        auto r = service->setTest(plan, [&](bool v, const hidl_string&) { ok = v; });
        if (!r.isOk() || !ok) return 1;
        printf("%ld\n", k);
        fflush(stdout);
    }
    return 0;
}
