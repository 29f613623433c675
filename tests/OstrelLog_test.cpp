// Diagnostic lines and the reply log: exact formats, the 255-character cut, and
// the cases that write nothing.
#include <gtest/gtest.h>

#include <string>

#include "OstrelFSM.h"
#include "OstrelImpl.h"
#include "TestSupport.h"

using namespace vendor::brevane::hardware::ostrel;
using core::OstrelFSM;
using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;
using V2_0::implementation::Ostrel;

TEST(DiagnosticLog, WritesSourceNameAndCutsAt255Characters) {
    OstrelFSM fsm(nullptr);
    std::string longText(300, 'x');
    CaptureStderr();
    fsm.error("ostrel: %s", longText.c_str());
    fsm.error("");
    fsm.error("%s", "");
    fsm.error("ostrel: pid %d set priority (errno:%d, %s)\n", 12, 1, "Operation not permitted");
    std::string out = GetCapturedStderr();
    EXPECT_EQ(out, "Log at OstrelFSM: ostrel: " + std::string(255 - 8, 'x') +
                           "\n"
                           "Log at OstrelFSM: ostrel: pid 12 set priority (errno:1, Operation "
                           "not permitted)\n\n");
}

TEST(DiagnosticLog, AssertionLineNamesExpressionLineAndSignature) {
    OstrelFSM fsm(nullptr);
    CaptureStderr();
    // GET_TEST in COMPLETING writes an empty plan to a stream that takes nothing.
    fsm.planStore().putJSON("{\"current_state\":3}");
    fsm.planStore().setState(core::COMPLETING);
    FILE* full = fopen("/dev/full", "w");
    ASSERT_NE(full, nullptr);
    setvbuf(full, nullptr, _IONBF, 0);
    EXPECT_TRUE(fsm.sendEvent(core::GET_TEST, nullptr, nullptr, 0, reinterpret_cast<long>(full)));
    fclose(full);
    EXPECT_EQ(GetCapturedStderr(),
              "Log at OstrelFSM: ostrel: Exp=fprintf(buf_fp, \"%s\", buf) > 0 Line:460 "
              "Func:bool vendor::brevane::hardware::ostrel::core::OstrelFSM::completing("
              "vendor::brevane::hardware::ostrel::core::PlannerEvent, char *, char *, int, "
              "long)\n");
}

TEST(ReplyLog, AppendsFormattedLinesAndSkipsEmptyOnes) {
    // Held as the service holds it: a RefBase never strongly referenced leaks its
    // reference counts.
    android::sp<Ostrel> owner = new Ostrel();
    Ostrel& service = *owner;
    EXPECT_EQ(service.replyLog(), "ostrel: Ostrel\n");
    EXPECT_TRUE(service.addLog(nullptr, 1, "x"));
    EXPECT_TRUE(service.addLog("%s", ""));
    EXPECT_TRUE(service.addLog(""));
    EXPECT_EQ(service.replyLog(), "ostrel: Ostrel\n");

    std::string big(600, 'y');
    service.addLog("ostrel: test=%s", big.c_str());
    service.addLog("ostrel: open_memstream (errno:%d, %s)\n", 12, "Cannot allocate memory");
    service.addLog("ostrel: %s file=%s len=%d", "installTesters", "t.apk", 4096u);
    service.addLog("plain text");
    EXPECT_EQ(service.replyLog(),
              "ostrel: Ostrel\n"
              "ostrel: test=" + big + "\n"
              "ostrel: open_memstream (errno:12, Cannot allocate memory)\n\n"
              "ostrel: installTesters file=t.apk len=4096\n"
              "plain text\n");
}
