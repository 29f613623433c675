// RUNNING: starts or resumes the test cases, counts ticks, answers GET_TEST, and
// ends the run by terminating the executor's process group.
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "OstrelFSM.h"

namespace vendor::brevane::hardware::ostrel::core {

namespace {

bool groupExists(int32_t pgid) {
    return kill(-pgid, 0) == 0;
}

}  // namespace

bool OstrelFSM::running(PlannerEvent event, char*, char*, int value, long buf_fp) {
    if (data.getState() != RUNNING) return true;
    if (event < BOOT_COMPLETED || event > RUN_FINISHED) return true;

    auto live = [this] { return data.getRunStart() && !data.getRunFinished(); };
    switch (event) {
        case BOOT_COMPLETED:
            // A run restored after a reboot or a restart has no executor yet.
            if (live() && executorProcessId.load() < 1) {
                updateRunningTestcasesTick(0, true);
                sendEvent(RUN_START, nullptr, nullptr, 0, 0);
            }
            return true;
        case GET_TEST: {
            char* buf = data.getJSON();
            if (buf == nullptr) return false;
            FILE* out = reinterpret_cast<FILE*>(buf_fp);
            int n = out ? fprintf(out, "%s", buf) : 0;
            OSTREL_CHECK(n > 0, "fprintf(buf_fp, \"%s\", buf) > 0", 347);
            free(buf);
            return true;
        }
        case RUN_START:
            if (live()) runTestcases();
            return true;
        case TICK:
            if (live() && !checkRunningTestcasesTickToTarget()) {
                updateRunningTestcasesTick(value, false);
            }
            return true;
        case RUN_ABORT:
        case RUN_FINISHED:
            break;
        default:
            return true;
    }

    // End of the run. The flag is persisted before any signal, so a restart
    // during termination resumes in COMPLETING.
    if (live()) data.setRunFinished(true);
    int32_t p = executorProcessId.load();
    if (p >= 1) {
        if (groupExists(p)) {
            error("ostrel: terminate process group: -%d", p);
            if (kill(-p, SIGTERM) == -1) {
                error("ostrel: terminate process group: -%d, (errno:%d, %s)\n", p, errno,
                      strerror(errno));
            }
            // The group gets about 200 microseconds to honour SIGTERM.
            bool present = groupExists(p);
            if (present) {
                usleep(100);
                present = groupExists(p);
                if (present) {
                    usleep(100);
                    present = groupExists(p);
                }
            }
            if (present) {
                error("ostrel: delete process group again: -%d", p);
                if (kill(-p, SIGKILL) == -1) {
                    error("ostrel: delete process group again: -%d, (errno:%d, %s)\n", p, errno,
                          strerror(errno));
                }
            }
        }
    }
    executorProcessId.store(-1);
    if (tickThreadHandle != nullptr) {
        // Both threads end by themselves when they next see the flag; neither is
        // joined. When this runs on the tick thread it releases its own handle.
        threadsRunning.store(false);
        tickThreadHandle->detach();
        monitorThreadHandle->detach();
        delete tickThreadHandle;
        delete monitorThreadHandle;
        // The next run overwrites both; clearing them keeps a second end of the
        // same run from releasing them twice.
        tickThreadHandle = nullptr;
        monitorThreadHandle = nullptr;
    }
    data.setState(COMPLETING);
    sendEvent(RUN_FINISHED, nullptr, nullptr, 0, 0);
    return true;
}

}  // namespace vendor::brevane::hardware::ostrel::core
