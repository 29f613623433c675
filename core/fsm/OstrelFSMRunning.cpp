// RUNNING: starts or resumes the test cases, counts ticks, answers GET_TEST, and
// ends the run (endRun) by terminating the executor's process group.
#include <cstdio>
#include <cstdlib>

#include "OstrelFSM.h"

namespace vendor::brevane::hardware::ostrel::core {

bool OstrelFSM::running(PlannerEvent event, char*, char*, int value, long buf_fp) {
    if (data.getState() != RUNNING) return true;
    if (event < BOOT_COMPLETED || event > RUN_FINISHED) return true;

    auto live = [this] { return data.getRunStart() && !data.getRunFinished(); };
    switch (event) {
        case BOOT_COMPLETED:
            // A run restored after a reboot or a restart has no executor yet.
            if (executorProcessId.load() >= 1) return true;
            if (live()) {
                bool planned = bootTestWaiting();
                updateRunningTestcasesTick(0, true);
                record.bootCounted(planned, bootRoundsCounted());
                sendEvent(RUN_START, nullptr, nullptr, 0, 0);
            } else if (data.getRunStart() && data.getRunFinished()) {
                // A restart came between the end's two writes: the run had ended.
                data.setState(COMPLETING);
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
            endRun(event == RUN_ABORT ? "runAbort" : "runFinished");
            return true;
        default:
            return true;
    }
}

void OstrelFSM::endRun(const char* cause) {
    record.runEnded(cause);
    // The flag is written to disk before any signal, so a restart during
    // termination resumes in COMPLETING.
    if (data.getRunStart() && !data.getRunFinished()) data.setRunFinished(true);
    data.commitWrites();
    int32_t supervisor = executorProcessId.load();
    // SIGTERM to the group, and SIGKILL when it is still there shortly after.
    executors.terminate(supervisor);
    executorProcessId.store(-1);
    // Reaped once the whole termination is done: an unreaped leader still
    // answers the group probes above. What has not ended yet is reaped later.
    if (supervisor >= 1) executors.retire(supervisor);
    reapEndedSupervisors();
    threads.stop();
    data.setState(COMPLETING);
    sendEvent(RUN_FINISHED, nullptr, nullptr, 0, 0);
}

}  // namespace vendor::brevane::hardware::ostrel::core
