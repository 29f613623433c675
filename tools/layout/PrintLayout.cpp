// ostrel-layout: prints the result layout (ResultLayout.h) as shell assignments,
// one a line, for the scripts that fetch, clean or show a run's results. The
// build runs it once to make result-layout.sh, which scripts source; it is the
// same header that the service and the report use, so the names cannot drift.
#include <cstdio>
#include <cstring>

#include "ResultLayout.h"

namespace layout = ::vendor::brevane::hardware::ostrel::core;

namespace {

struct Name {
    const char* variable;
    const char* value;
};

constexpr Name kNames[] = {
    {"OSTREL_PLAN_DATA_DIR", layout::kPlanDataDir},
    {"OSTREL_EXECUTOR_DIR", layout::kExecutorDir},
    {"OSTREL_HISTORY_COPY", layout::kHistoryCopy},
    {"OSTREL_EXECUTOR_LOG", layout::kExecutorLogFile},
    {"OSTREL_PLAN_ENTRY", layout::kPlanEntry},
    {"OSTREL_HISTORY_ENTRY", layout::kHistoryEntry},
    {"OSTREL_EXECUTOR_LOG_ENTRY", layout::kExecutorLogEntry},
    {"OSTREL_RESULT_DIR", layout::kResultDir},
    {"OSTREL_RESULT_STEM", layout::kResultStem},
    {"OSTREL_ARCHIVE_SUFFIX", layout::kArchiveSuffix},
    {"OSTREL_HISTORY_SUFFIX", layout::kHistorySuffix},
    {"OSTREL_RECORD_SUFFIX", layout::kRecordSuffix},
    {"OSTREL_RUN_DIR", layout::kRunRecordDir},
    {"OSTREL_RUN_JOURNAL", layout::kRunJournalFile},
    {"OSTREL_SIDE_FILE_PREFIX", layout::kSideFilePrefix},
    {"OSTREL_SIDE_FILE_SUFFIX", layout::kSideFileSuffix},
};

}  // namespace

int main() {
    for (const Name& n : kNames) {
        // Single quotes hold any name but one with a quote, which the layout has not.
        if (strchr(n.value, '\'') != nullptr) return 1;
        printf("%s='%s'\n", n.variable, n.value);
    }
    return ferror(stdout) ? 1 : 0;
}
