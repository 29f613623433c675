// COMPLETING: a finished run waits for GET_RESULT, which names the result files,
// packs the archive, saves the crash history, answers both names, resets the
// counters and returns to PREPARING.
#include <linux/limits.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "OstrelFSM.h"

namespace vendor::brevane::hardware::ostrel::core {

#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wformat-zero-length"
bool OstrelFSM::completing(PlannerEvent event, char*, char*, int, long buf_fp) {
    if (data.getState() != COMPLETING) return true;
    FILE* out = reinterpret_cast<FILE*>(buf_fp);

    if (event == GET_TEST) {
        char* buf = data.getJSON();
        if (buf == nullptr) return false;
        int n = out ? fprintf(out, "%s", buf) : 0;
        OSTREL_CHECK(n > 0, "fprintf(buf_fp, \"%s\", buf) > 0", 460);
        free(buf);
        return true;
    }
    if (event != GET_RESULT) return true;

    char zipfilename[PATH_MAX + 1];
    char hisfilename[PATH_MAX + 1];
    memset(zipfilename, 0, sizeof(zipfilename));
    memset(hisfilename, 0, sizeof(hisfilename));

    time_t now = timeSource(nullptr);
    struct tm tmBuf;
    struct tm* ltm = localtime_r(&now, &tmBuf);
    if (ltm != nullptr && now != static_cast<time_t>(-1)) {
        int n = snprintf(zipfilename, PATH_MAX, "%s/QAV%04d%02d%02d_%02d%02d%02d.zip",
                         FSM_RESULT_DIR, 1900 + ltm->tm_year, ltm->tm_mon + 1, ltm->tm_mday,
                         ltm->tm_hour, ltm->tm_min, ltm->tm_sec);
        OSTREL_CHECK(n > 0,
                     "snprintf(zipfilename, PATH_MAX, \"%s/QAV%04d%02d%02d_%02d%02d%02d.zip\", "
                     "FSM_RESULT_DIR, 1900+ltm->tm_year, ltm->tm_mon+1, ltm->tm_mday, "
                     "ltm->tm_hour, ltm->tm_min, ltm->tm_sec) > 0",
                     476);
        n = snprintf(hisfilename, PATH_MAX, "%s/QAV%04d%02d%02d_%02d%02d%02d.db_history",
                     FSM_RESULT_DIR, 1900 + ltm->tm_year, ltm->tm_mon + 1, ltm->tm_mday,
                     ltm->tm_hour, ltm->tm_min, ltm->tm_sec);
        OSTREL_CHECK(n > 0,
                     "snprintf(hisfilename, PATH_MAX, "
                     "\"%s/QAV%04d%02d%02d_%02d%02d%02d.db_history\", FSM_RESULT_DIR, "
                     "1900+ltm->tm_year, ltm->tm_mon+1, ltm->tm_mday, ltm->tm_hour, "
                     "ltm->tm_min, ltm->tm_sec) > 0",
                     477);
    } else {
        // No clock: a random stamp of 8 upper-case hex digits names both files.
        char str[9];
        memset(str, 0, sizeof(str));
        int n = snprintf(str, 9, "%08lX", random() % 0xFFFFFFFF);
        OSTREL_CHECK(n > 0, "snprintf(str, 9, \"%08lX\", random()%0xFFFFFFFF) > 0", 480);
        n = snprintf(zipfilename, PATH_MAX, "%s/QAV%s.zip", FSM_RESULT_DIR, str);
        OSTREL_CHECK(n > 0, "snprintf(zipfilename, PATH_MAX, \"%s/QAV%s.zip\", FSM_RESULT_DIR, str) > 0",
                     482);
        n = snprintf(hisfilename, PATH_MAX, "%s/QAV%s.db_history", FSM_RESULT_DIR, str);
        OSTREL_CHECK(n > 0,
                     "snprintf(hisfilename, PATH_MAX, \"%s/QAV%s.db_history\", FSM_RESULT_DIR, "
                     "str) > 0",
                     483);
    }

    // The record first: every archive packed of the run has it beside, also one
    // packed again after a kill.
    record.writeBeside(zipfilename);
    packResults(zipfilename);
    bool saved = saveDBHistory(hisfilename);
    if (out != nullptr && saved) {
        // The archive is named whether or not packing succeeded; the history decides.
        int n = fprintf(out, "%s, %s", zipfilename, hisfilename);
        OSTREL_CHECK(n > 0, "fprintf(buf_fp, \"%s, %s\", zipfilename, hisfilename) > 0", 491);
    } else if (out != nullptr) {
        // Always 0 characters: the assertion line is the record of a result
        // without history.
        int n = fprintf(out, "");
        OSTREL_CHECK(n > 0, "fprintf(buf_fp, \"\") > 0", 493);
    }
    resetRunningTestcasesTick();
    data.setState(PREPARING);
    sendEvent(GET_RESULT, nullptr, nullptr, 0, 0);
    return true;
}
#pragma clang diagnostic pop

}  // namespace vendor::brevane::hardware::ostrel::core
