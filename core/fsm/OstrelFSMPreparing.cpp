// PREPARING: configurations and the plan may be read and changed; RUN_START
// begins a run. The configuration list is handed out as the config tool gives it.

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "ConfigTool.h"
#include "OstrelFSM.h"

namespace vendor::brevane::hardware::ostrel::core {

bool OstrelFSM::preparing(PlannerEvent event, char* input, char*, int, long buf_fp) {
    if (data.getState() != PREPARING) return false;
    if (event < INSTALL_TESTERS || event > RUN_START) return true;

    FILE* out = reinterpret_cast<FILE*>(buf_fp);
    bool result = true;
    switch (event) {
        case INSTALL_TESTERS:
            // Switched off on purpose; the client is still told success.
            error("ostrel: temporary disable installTesters!!!\n");
            break;
        case GET_CONFIG: {
            char* buf = getConfig();
            if (buf == nullptr) {
                result = false;
                break;
            }
            int n = out ? fprintf(out, "%s", buf) : 0;
            OSTREL_CHECK(n > 0, "fprintf(buf_fp, \"%s\", buf) > 0", 263);
            free(buf);
            break;
        }
        case SET_CONFIG: {
            ToolApplied applied;
            if (selectSilletConfig(owner, input, &applied) != 0) {
                error("ostrel: Fail to select QaV");
                result = false;
            }
            if (!applied.words.empty()) record.configurationApplied(input, applied.words, applied.exitStatus);
            break;
        }
        case CLEAR_CONFIG: {
            ToolApplied applied;
            result = clearSilletConfig(owner, &applied) >= 0;
            record.configurationApplied(nullptr, applied.words, applied.exitStatus);
            break;
        }
        case SET_TEST:
            result = data.putJSON(input);
            break;
        case GET_TEST: {
            char* buf = data.getJSON();
            if (buf == nullptr) {
                result = false;
                break;
            }
            int n = out ? fprintf(out, "%s", buf) : 0;
            OSTREL_CHECK(n > 0, "fprintf(buf_fp, \"%s\", buf) > 0", 297);
            free(buf);
            break;
        }
        case RUN_START:
            // The work directory and the history copy are cleaned before the
            // flags change, and the flags are persisted before the state.
            remove_files(kExecutorDir);
            history.startCopy();
            data.setRunStart(true);
            data.setRunFinished(false);
            record.runStarted(data.testcaseDefinitions());
            setRunningTestcasesTick();
            data.setState(RUNNING);
            sendEvent(RUN_START, nullptr, nullptr, 0, 0);
            return true;
        default:
            break;
    }
    data.setState(PREPARING);
    return result;
}

char* OstrelFSM::getConfig() {
    if (querySilletList(owner) != 0) {
        error("ostrel: Fail to prepare the QaV list");
        return nullptr;
    }
    int size = serializeConfigList(owner, nullptr);
    if (size <= 0) {
        error("ostrel: Fail to query the QaV list");
        return nullptr;
    }
    char* buf = static_cast<char*>(malloc(size));
    if (buf == nullptr) {
        int err = errno;
        error("ostrel: Cannot malloc memory (errno:%d, %s)\n", err, strerror(err));
        return nullptr;
    }
    serializeConfigList(owner, &buf);
    return buf;
}

}  // namespace vendor::brevane::hardware::ostrel::core
