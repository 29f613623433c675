#include <fcntl.h>
#include <gtest/gtest.h>
#include <rapidjson/document.h>
#include <sanitizer/allocator_interface.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "ConfigBridge.h"
#include "TestSupport.h"
#include "OstrelFSM.h"

using namespace vendor::brevane::hardware::ostrel::core;
using ostrel_test::Ostrel;
using ostrel_test::listNumber;
using ostrel_test::ReplyLog;
using ostrel_test::writeFile;

namespace {

// What the stand-in prints for "list".
std::string standInListing(const std::string& bin) {
    std::string text;
    FILE* p = popen((bin + " list").c_str(), "r");
    char buf[4096];
    size_t n;
    while ((n = fread(buf, 1, sizeof(buf), p)) > 0) text.append(buf, n);
    pclose(p);
    return text;
}

std::string listText(Ostrel* owner) {
    int size = serializeConfigList(owner, nullptr);
    if (size <= 0) return "";
    std::string text(size, '\0');
    char* dest = text.data();
    serializeConfigList(owner, &dest);
    text.resize(size - 1);
    return text;
}

// Runs a query of the stand-in printing exactly |output|.
int queryPrinting(const std::string& output, Ostrel* owner = nullptr) {
    writeFile("/tmp/sillet-output", output);
    setenv("SILLET_OUTPUT_FILE", "/tmp/sillet-output", 1);
    return querySilletList(owner);
}

}  // namespace

TEST(ConfigQuery, ListingIsMergedIntoTheCatalogueAndLogged) {
    std::string listing = standInListing(ostrel_test::useSilletStandIn());
    ReplyLog log;
    ASSERT_EQ(querySilletList(log.get()), 0);
    EXPECT_EQ(log.added(),
              "Preparing the QaV list\n\n"
              "collect sillet out_buf size=" +
                      std::to_string(listing.size()) + "\n\n" + listing +
                      "\ncollect sillet err_buf size=0\n\n"
                      "Have the QaV list ready\n\n");
    std::string text = listText(log.get());
    EXPECT_EQ(log.added(), "Query the QaV list\n\n");
    EXPECT_EQ(listNumber("thermal_mitigation", "enable-num"), 0);
    EXPECT_EQ(listNumber("thermal_mitigation", "disable-num"), 1);
    EXPECT_EQ(listNumber("random_hotplug", "disable-num"), -1);
    EXPECT_EQ(listNumber("ddr_ecc_injection", "enable-num"), -1);
    EXPECT_EQ(listNumber("power_gating", "disable-num"), 22);
    EXPECT_EQ(listNumber("vdd_dram LV", "num"), 41);
    EXPECT_EQ(listNumber("vdd_ddr customization", "num"), 42);
    EXPECT_EQ(listNumber("vdd_core customization", "num"), -1);
    EXPECT_EQ(listNumber("cpu-7", "num"), 53);
    EXPECT_EQ(listNumber("adaptive_voltage_scaling", "enable-num"), -1);
    // Compact text; features the catalogue does not know come last.
    EXPECT_EQ(text.find_first_of(" \n\t", text.find("\"config\"")), text.find(" HV"));
    const std::string tail =
            R"({"name":"Enable pcie_aspm","select":false,"num":58},)"
            R"({"name":"Disable pcie_aspm","select":false,"num":59},)"
            R"({"name":"Enable usb_lpm","select":false,"num":60},)"
            R"({"name":"Disable usb_lpm","select":false,"num":61},)"
            R"({"name":"vdd_npu customization","select":false,"num":62,"value":0}]})";
    ASSERT_GT(text.size(), tail.size());
    EXPECT_EQ(text.substr(text.size() - tail.size()), tail);
    EXPECT_EQ(text.compare(0, 34, R"({"id":"default","config":[{"name":)"), 0);
}

TEST(ConfigQuery, ToolIsFoundAlongPathWithoutSilletBin) {
    std::string bin = ostrel_test::useSilletStandIn();
    unsetenv("SILLET_BIN");
    std::string path = bin.substr(0, bin.rfind('/')) + ":" + getenv("PATH");
    setenv("PATH", path.c_str(), 1);
    EXPECT_EQ(querySilletList(nullptr), 0);
    EXPECT_EQ(listNumber("cpu-0", "num"), 46);
}

TEST(ConfigQuery, MissingFailingKilledAndGarbledToolsAreReported) {
    struct Case {
        const char* variable;
        const char* value;
        std::string messages;
    } cases[] = {
            {"SILLET_BIN", "/vendor/bin/no-such-sillet",
             "collect sillet err_buf size=24\n\nCannot execvp (errno:2)\n\n"
             "sillet returns error (errno:1, Cannot execvp (errno:2)\n)\n\n"},
            {"SILLET_EXIT", "3",
             "collect sillet err_buf size=44\n\nsillet: failing with exit code 3 on request\n\n"
             "sillet returns error (errno:3, sillet: failing with exit code 3 on request\n)\n\n"},
            {"SILLET_SIGNAL", "KILL",
             "collect sillet err_buf size=0\n\nsillet abnormally existed\n\n"},
            {"SILLET_OUTPUT", "25 Enable hw_watchdog\nEnable hw_watchdog\n",
             "collect sillet err_buf size=0\n\nInvalid format\n\nCannot parse outputs of "
             "sillet\n\n"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.variable);
        ostrel_test::useSilletStandIn();
        setenv("SILLET_OUTPUT", "", 1);
        setenv(c.variable, c.value, 1);
        ReplyLog log;
        EXPECT_EQ(querySilletList(log.get()), -1);
        std::string added = log.added();
        EXPECT_EQ(added.substr(added.find("collect sillet err_buf")), c.messages);
    }
}

TEST(ConfigQuery, ToolSilentForFiveSecondsTimesOut) {
    ostrel_test::useSilletStandIn();
    setenv("SILLET_HANG", "8", 1);
    ReplyLog log;
    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(querySilletList(log.get()), -1);
    std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start;
    EXPECT_GE(seconds.count(), 4.9);
    EXPECT_LT(seconds.count(), 7.5);
    EXPECT_EQ(log.added(), "Preparing the QaV list\n\nCannot poll (errno:0)\n\n");
}

TEST(ConfigQuery, OutputOfEverySizeIsCollectedWhole) {
    ostrel_test::useSilletStandIn();
    // Nothing: the catalogue as it stands.
    ReplyLog log;
    ASSERT_EQ(queryPrinting("", log.get()), 0);
    EXPECT_NE(log.added().find("collect sillet out_buf size=0\n"), std::string::npos);
    std::string empty = listText(nullptr);
    EXPECT_EQ(empty.find("\"enable-num\":0"), std::string::npos);
    EXPECT_EQ(configList["config"].Size(), 14u);

    // Exactly one buffer's worth, and a megabyte.
    for (size_t size : {256u, 1u << 20}) {
        std::string output;
        while (output.size() + 22 + 16 <= size) output += "25 Enable hw_watchdog\n";
        output += std::string(size - output.size() - 16, '=') + "QAV config list\n";
        ASSERT_EQ(output.size(), size);
        ASSERT_EQ(queryPrinting(output, log.get()), 0);
        std::string added = log.added();
        std::string start =
                "Preparing the QaV list\n\ncollect sillet out_buf size=" + std::to_string(size) +
                "\n\n25 Enable";
        EXPECT_TRUE(added.compare(0, start.size(), start) == 0) << added.substr(0, 100);
        EXPECT_EQ(listNumber("hw_watchdog", "enable-num"), 25);
    }

    // Bytes that are not UTF-8 reach the client's text as they came.
    ASSERT_EQ(queryPrinting("7 Enable \xff\xfe_nvram\n", nullptr), 0);
    EXPECT_NE(listText(nullptr).find("\"name\":\"Enable \xff\xfe_nvram\""), std::string::npos);
}

namespace {

#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define OSTREL_SANITIZED_ALLOCATOR 1
#endif
#endif

#ifdef OSTREL_SANITIZED_ALLOCATOR
// A sanitizer's resident size holds its shadow and quarantine; its live heap is
// what a kept pool would grow, and 900 more queries (~9 MiB kept) show it.
long residentKiB() {
    return static_cast<long>(__sanitizer_get_current_allocated_bytes() / 1024);
}
constexpr int kMoreQueries = 900;
#else
long residentKiB() {
    std::string status = ostrel_test::readFile("/proc/self/status");
    size_t at = status.find("VmRSS:");
    return at == std::string::npos ? -1 : std::stol(status.substr(at + 6));
}
// 1,900 more queries (~19 MiB kept) show it and stay within the time-out on a
// busy 2-core machine.
constexpr int kMoreQueries = 1900;
#endif

// Runs |count| getConfig calls of the service with both standard streams muted.
void queryList(Ostrel* service, int count, size_t* answerSize) {
    fflush(stdout);
    fflush(stderr);
    int savedOut = dup(STDOUT_FILENO);
    int savedErr = dup(STDERR_FILENO);
    int null = open("/dev/null", O_WRONLY);
    dup2(null, STDOUT_FILENO);
    dup2(null, STDERR_FILENO);
    for (int i = 0; i < count; i++) {
        service->getConfig(
                [answerSize](const auto& config, const auto&) { *answerSize = config.size(); });
    }
    fflush(stdout);
    fflush(stderr);
    dup2(savedOut, STDOUT_FILENO);
    dup2(savedErr, STDERR_FILENO);
    close(savedOut);
    close(savedErr);
    close(null);
}

}  // namespace

TEST(ConfigQuery, ListMemoryDoesNotGrowFromQueryToQuery) {
    ostrel_test::useSilletStandIn();
    ReplyLog log;
    Ostrel* service = log.get();
    ASSERT_TRUE(service->machine().sendEvent(BOOT_COMPLETED, nullptr, nullptr, 0, 0));
    ASSERT_EQ(service->machine().getState(), PREPARING);
    size_t answerSize = 0;
    queryList(service, 100, &answerSize);
    ASSERT_GT(answerSize, 3000u);
    long after100 = residentKiB();
    queryList(service, kMoreQueries, &answerSize);
    long afterMore = residentKiB();
    printf("resident size after 100 list queries: %ld KiB, after %d: %ld KiB\n", after100,
           100 + kMoreQueries, afterMore);
    RecordProperty("rss_kib_after_100", std::to_string(after100));
    RecordProperty("rss_kib_after_more", std::to_string(afterMore));
    // Each query's list takes some 10 KiB of pool: kept, they would add megabytes.
    EXPECT_LE(afterMore - after100, 512);
}
