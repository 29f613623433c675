// Diagnostic lines: their format, the 255-character cut, the line of a failed check.

#include <regex>

#include "TestSupport.h"

using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

TEST(DiagnosticLog, LinesNameTheSourceAndAreCutAt255Characters) {
    OstrelFSM fsm(nullptr);
    CaptureStderr();
    fsm.error("ostrel: %s", std::string(300, 'x').c_str());
    fsm.error("");
    fsm.error("%s", "");
    fsm.error("ostrel: pid %d (errno:%d, %s)\n", 12, 1, "Operation not permitted");
    EXPECT_EQ(GetCapturedStderr(), "Log at OstrelFSM: ostrel: " + std::string(255 - 8, 'x') +
                                           "\nLog at OstrelFSM: ostrel: pid 12 (errno:1, "
                                           "Operation not permitted)\n\n");

    // A failed check names its expression, line and function: GET_TEST in
    // COMPLETING writing the plan to a stream that takes nothing.
    fsm.planStore().putJSON("{\"current_state\":3}");
    fsm.planStore().setState(COMPLETING);
    FILE* full = fopen("/dev/full", "w");
    setvbuf(full, nullptr, _IONBF, 0);
    CaptureStderr();
    fsm.sendEvent(GET_TEST, nullptr, nullptr, 0, reinterpret_cast<long>(full));
    fclose(full);
    std::string line = GetCapturedStderr();
    EXPECT_TRUE(std::regex_match(line, std::regex(
            "Log at OstrelFSM: ostrel: Exp=fprintf\\(buf_fp, \"%s\", buf\\) > 0 Line:[0-9]+ "
            "Func:bool vendor::brevane::hardware::ostrel::core::OstrelFSM::completing\\(.*\\)\n")))
            << line;
}
