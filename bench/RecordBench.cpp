// In-process bench of the run record, inside the device sandbox:
//   ostrel_bench_record BOOTS...   bytes the record writes per boot (an executor
//                                  start and a boot counted) for runs of BOOTS
//                                  boots, against the first run's; bytes per tick
//                                  of a live run; the fold at getResult.
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "BenchSupport.h"
#include "OstrelFSM.h"
#include "RunRecord.h"

using namespace ostrel_bench;
using namespace vendor::brevane::hardware::ostrel::core;

namespace {

long long sizeOf(const char* path) {
    struct stat st = {};
    return stat(path, &st) == 0 ? static_cast<long long>(st.st_size) : 0;
}

// The words a boot test's executor is started with after each boot.
const std::vector<std::string> kWords = {"/vendor/bin/kelbrun", "sleep 600", "99999", "stress 60", "3"};

int bootsBench(int argc, char** argv) {
    double firstPerBoot = 0;
    for (int a = 0; a < argc; a++) {
        int boots = atoi(argv[a]);
        if (boots < 1) {
            fprintf(stderr, "ostrel_bench_record: bad BOOTS '%s'\n", argv[a]);
            return 2;
        }
        unlink(kRunJournalFile);
        RunRecord record;
        record.runStarted("plan");
        sync();
        long long file0 = sizeOf(kRunJournalFile), disk0 = selfIoField("write_bytes");
        double wall0 = nowSeconds();
        for (int b = 0; b < boots; b++) {
            record.executorStarted(1000 + b % 30000, kWords);
            record.bootCounted(true, b + 1);
        }
        double wall = nowSeconds() - wall0;
        long long file = sizeOf(kRunJournalFile) - file0, disk = selfIoField("write_bytes") - disk0;
        double perBoot = double(file) / boots;
        if (firstPerBoot == 0) firstPerBoot = perBoot;
        row("run record per boot, a run of " + std::to_string(boots) + " boots",
            fmt("%.0f bytes appended", perBoot) + " (" + fmt("%.1f KiB to disk", disk / 1024.0 / boots) + ", " +
                    fmt("%.2f ms", wall / boots * 1e3) + ")",
            fmt("%.0f bytes at the first size", firstPerBoot), fmt("x%.2f", perBoot / firstPerBoot));
        double fold0 = nowSeconds();
        std::string folded = foldJournal(kRunJournalFile);
        row("run record handed out at getResult, " + std::to_string(boots) + " boots",
            fmt("%.1f KiB", folded.size() / 1024.0) + ", " + fmt("%.1f ms to fold", (nowSeconds() - fold0) * 1e3),
            fmt("%.1f KiB journal", sizeOf(kRunJournalFile) / 1024.0),
            fmt("x%.3f of the journal", double(folded.size()) / sizeOf(kRunJournalFile)));
    }
    return 0;
}

// A live run's ticks: the plan is written each tick, the record never.
int ticksBench(int ticks) {
    std::unique_ptr<OstrelFSM> fsm(new OstrelFSM(nullptr));
    fsm->planStore().putJSON(
            "{\"not_set\":false,\"current_state\":1,\"run_start\":false,\"run_finished\":false,\"testcases\":"
            "[{\"name\":\"soak\",\"select\":true,\"command\":\"sleep 600 1\",\"testcase_value\":1000,"
            "\"isRound\":false,\"testcase_current_time\":0,\"testcase_target_time\":0,"
            "\"testcase_current_round\":0,\"testcase_target_round\":0}]}");
    fsm->planStore().writeFSMData();
    fsm->sendEvent(RUN_START, nullptr, nullptr, 0, 0);
    long long journal0 = sizeOf(kRunJournalFile), plan0 = selfIoField("wchar");
    for (int t = 0; t < ticks; t++) fsm->sendEvent(TICK, nullptr, nullptr, 10, 0);
    long long journal = sizeOf(kRunJournalFile) - journal0, written = selfIoField("wchar") - plan0;
    fsm->sendEvent(RUN_ABORT, nullptr, nullptr, 0, 0);
    row("run record per tick of a live run (" + std::to_string(ticks) + " ticks)",
        fmt("%.0f bytes appended", double(journal) / ticks),
        fmt("%.0f bytes of plan a tick", double(written) / ticks), journal == 0 ? "none" : "some");
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc >= 2) {
        int status = bootsBench(argc - 1, argv + 1);
        return status != 0 ? status : ticksBench(100);
    }
    fprintf(stderr, "usage: ostrel_bench_record BOOTS...\n");
    return 2;
}
