#include "SilletCmd.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <climits>
#include <string>
#include <vector>

#include "TestSupport.h"

using namespace vendor::brevane::hardware::ostrel::core;
using ostrel_test::Ostrel;
using ostrel_test::ReplyLog;

namespace {

using Command = SilletCmd;

std::vector<std::string> words(const Command& cmd) {
    std::vector<std::string> result;
    for (int i = 0; i < cmd.argc; i++) result.push_back(cmd.argv[i]);
    return result;
}

// Bytes of address space in use (VmSize).
unsigned long virtualSize() {
    std::string status = ostrel_test::readFile("/proc/self/status");
    size_t at = status.find("VmSize:");
    return at == std::string::npos ? 0 : std::stoul(status.substr(at + 7)) * 1024;
}

void release(Command& cmd) {
    for (int i = 2; i < cmd.argc; i++) free(cmd.argv[i]);
    free(cmd.argv);
}

}  // namespace

TEST(SilletCmd, ProgramPathComesFromSilletBinElseBareName) {
    unsetenv("SILLET_BIN");
    Command bare(nullptr);
    EXPECT_EQ(words(bare), (std::vector<std::string>{"sillet", "set"}));
    EXPECT_EQ(bare.argv[2], nullptr);
    setenv("SILLET_BIN", "/opt/tools/sillet", 1);
    Command fromEnv(nullptr);
    EXPECT_EQ(words(fromEnv), (std::vector<std::string>{"/opt/tools/sillet", "set"}));
    setenv("SILLET_BIN", "", 1);
    Command empty(nullptr);
    EXPECT_STREQ(empty.argv[0], "");
    release(bare);
    release(fromEnv);
    release(empty);
}

TEST(SilletCmd, GrowsByTenBeforeTheVectorIsFull) {
    setenv("SILLET_BIN", "sillet", 1);
    Command cmd(nullptr);
    EXPECT_EQ(cmd.capacity, 10);
    for (int i = 0; i < 3; i++) ASSERT_EQ(cmd.addArg(nullptr, i, 100 + i), 0);
    EXPECT_EQ(cmd.argc, 8);
    EXPECT_EQ(cmd.capacity, 10);
    ASSERT_EQ(cmd.addArg(nullptr, 3, 0), 0);
    EXPECT_EQ(cmd.capacity, 20);
    ASSERT_EQ(cmd.addArg(nullptr, 7, -1), 0);
    ASSERT_EQ(cmd.addArg(nullptr, -1, 850), 0);
    EXPECT_EQ(words(cmd), (std::vector<std::string>{"sillet", "set", "0", "a100", "1", "a101", "2",
                                                    "a102", "3", "a0", "7", "-1", "a850"}));
    EXPECT_EQ(cmd.argv[cmd.argc], nullptr);
    release(cmd);
}

TEST(SilletCmd, StdoutCmdPrintsEachWordWithATrailingBlank) {
    setenv("SILLET_BIN", "/vendor/bin/sillet", 1);
    Command cmd(nullptr);
    testing::internal::CaptureStdout();
    cmd.stdoutCmd();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "/vendor/bin/sillet set \n");
    cmd.addArg(nullptr, 12, 5);
    testing::internal::CaptureStdout();
    cmd.stdoutCmd();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "/vendor/bin/sillet set 12 a5 \n");
    release(cmd);
}

#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define OSTREL_SANITIZED_ALLOCATOR 1
#endif
#endif

TEST(SilletCmd, FailedGrowthIsReportedAndDropsTheVector) {
#ifdef OSTREL_SANITIZED_ALLOCATOR
    GTEST_SKIP() << "the sanitizer's allocator aborts instead of failing a huge realloc";
#endif
    ReplyLog log;
    Command cmd(log.get());
    ASSERT_EQ(cmd.addArg(log.get(), 1, 2), 0);
    // A growth of 16 GiB against an address space limited to 1 GiB more than in use.
    cmd.growStep = INT_MAX - cmd.capacity;
    cmd.argc = cmd.capacity - 3;
    char* first = cmd.argv[2];
    char* second = cmd.argv[3];
    struct rlimit saved;
    ASSERT_EQ(getrlimit(RLIMIT_AS, &saved), 0);
    struct rlimit limited = saved;
    limited.rlim_cur = virtualSize() + (1UL << 30);
    ASSERT_EQ(setrlimit(RLIMIT_AS, &limited), 0);
    testing::internal::CaptureStderr();
    int result = cmd.addArg(log.get(), 3, 4);
    setrlimit(RLIMIT_AS, &saved);
    EXPECT_EQ(result, -1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Cannot realloc memory (errno:12)\n");
    EXPECT_EQ(log.added(), "Cannot realloc memory (errno:12)\n\n");
    EXPECT_EQ(cmd.argv, nullptr);
    free(first);
    free(second);
}
