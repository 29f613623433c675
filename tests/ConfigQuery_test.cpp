#include <sanitizer/allocator_interface.h>

#include <cstdlib>
#include <tuple>

#include "ConfigBridge.h"
#include "TestSupport.h"

// Rows: the stand-in's own listing, the tool named by SILLET_BIN (-2) or found along
// PATH (-1); then chosen output of no bytes, exactly one capture buffer and a megabyte,
// each line numbering the switch anew so that the last line shows in the list.
TEST(ConfigQuery, OutputIsCollectedWholeAndLogged) {
    const std::string path = getenv("PATH");
    for (int size : {-2, -1, 0, 256, 1 << 20}) {
        SCOPED_TRACE(size);
        std::string bin = useSilletStandIn(), chosen;
        int last = -1;
        while (static_cast<int>(chosen.size()) + 40 <= size) {
            chosen += std::to_string(++last) + " Enable hw_watchdog\n";
        }
        if (size > 0) chosen += std::string(size - chosen.size() - 16, '=') + "QAV config list\n";
        writeFile("/tmp/sillet-output", chosen);
        if (size >= 0) setenv("SILLET_OUTPUT_FILE", "/tmp/sillet-output", 1);
        std::string output = runTool(bin + " list");
        if (size == -1) {
            unsetenv("SILLET_BIN");
            setenv("PATH", (bin.substr(0, bin.rfind('/')) + ":" + path).c_str(), 1);
        }
        android::sp<Ostrel> service = new Ostrel();
        EXPECT_EQ(querySilletList(service.get()), 0);
        setenv("PATH", path.c_str(), 1);
        std::string added = service->replyLog();
        std::string expected = "ostrel: Ostrel\nPreparing the QaV list\n\ncollect sillet out_buf size=" +
                               std::to_string(output.size()) + "\n\n" +
                               (output.empty() ? "" : output + "\n") +
                               "collect sillet err_buf size=0\n\nHave the QaV list ready\n\n";
        EXPECT_TRUE(added == expected) << added.size() << " bytes: " << added.substr(0, 300);
        if (size >= 0) EXPECT_EQ(listNumber("hw_watchdog", "enable-num"), last);
    }
}

// One row per run and failure: "list" and "set" report in the reply log, "clear" on
// standard error alone. A message that the runs share is checked in one row.
TEST(ConfigQuery, ToolFailuresOfListSetAndClearAreReported) {
    const char* missing = "/vendor/bin/no-such-sillet";
    const std::string timedOut = "Cannot poll (errno:0)\n\n";
    const std::tuple<const char*, const char*, const char*, std::string> cases[] = {
            {"list", "SILLET_EXIT", "3",
             "sillet returns error (errno:3, sillet: failing with exit code 3 on request\n)\n\n"},
            {"list", "SILLET_SIGNAL", "KILL", "sillet abnormally existed\n\n"},
            {"list", "SILLET_OUTPUT", "25 Enable hw_watchdog\nEnable hw_watchdog\n",
             "Invalid format\n\nCannot parse outputs of sillet\n\n"},
            // Silent with both streams open, or with only its error stream left open.
            {"list", "SILLET_HANG", "8", "Preparing the QaV list\n\n" + timedOut},
            {"set", "SILLET_QUIET_HANG", "8", timedOut},
            {"set", "SILLET_BIN", missing, "Cannot execvp (errno:2)\n\nsillet returns error(1)\n\n"},
            {"set", "SILLET_EXIT", "4", "sillet returns error(4)\n\n"},
            {"clear", "SILLET_BIN", missing, ""},
            {"clear", "SILLET_EXIT", "5", "sillet returns error(5)\n"},
            {"clear", "SILLET_SIGNAL", "KILL", ""},
    };
    for (auto& [runName, variable, value, tail] : cases) {
        SCOPED_TRACE(std::string(runName) + " " + variable);
        useSilletStandIn();
        setenv(variable, value, 1);
        android::sp<Ostrel> service = new Ostrel();
        StderrCapture diagnostics;
        std::string run = runName;
        auto start = std::chrono::steady_clock::now();
        int result = run == "list"  ? querySilletList(service.get())
                     : run == "set" ? selectSilletConfig(service.get(), R"({"config":[]})")
                                    : clearSilletConfig(service.get());
        std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start;
        diagnostics.restore();
        EXPECT_EQ(result, -1);
        std::string said = run == "clear" ? diagnostics.text() : service->replyLog();
        ASSERT_GE(said.size(), tail.size()) << said;
        EXPECT_EQ(said.substr(said.size() - tail.size()), tail);
        // The time-out is five seconds; the tool itself would sleep for eight.
        EXPECT_NEAR(seconds.count(), contains(tail, timedOut) ? 6 : 1, 1.1);
    }
}

namespace {

// What a kept pool would grow: the resident size, or under a sanitizer (whose
// resident size holds its shadow and quarantine) the live heap.
long memoryKiB() {
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
    return static_cast<long>(__sanitizer_get_current_allocated_bytes() / 1024);
#else
    return numberAfter(readFile("/proc/self/status"), "VmRSS:");
#endif
}

}  // namespace

TEST(ConfigQuery, ListMemoryDoesNotGrowFromQueryToQuery) {
    useSilletStandIn();
    android::sp<Ostrel> service = new Ostrel();
    ASSERT_TRUE(service->machine().sendEvent(BOOT_COMPLETED, nullptr, nullptr, 0, 0));
    ASSERT_EQ(service->machine().getState(), PREPARING);
    size_t answerSize = 0;
    // Runs |count| getConfig calls with both standard streams sent away.
    auto queryList = [&](int count) {
        StderrCapture out(STDOUT_FILENO), err(STDERR_FILENO);
        for (int i = 0; i < count; i++) {
            service->getConfig([&](const auto& config, const auto&) { answerSize = config.size(); });
        }
    };
    queryList(100);
    ASSERT_GT(answerSize, 3000u);
    long after100 = memoryKiB();
    queryList(900);
    long after1000 = memoryKiB();
    // Each query's list takes some 10 KiB of pool: kept, 900 would add 9 MiB.
    EXPECT_LE(after1000 - after100, 512)
            << "after 100 list queries: " << after100 << " KiB, after 1000: " << after1000;
}
