#include "ConfigBridge.h"
#include "TestSupport.h"

namespace {

int parse(const std::string& output, Ostrel* owner = nullptr) {
    std::string copy = output;
    return parseSilletList(owner, copy.data(), static_cast<int>(copy.size()));
}

}  // namespace

TEST(ConfigList, LinesFillTheFirstEntryThatTakesTheirNumber) {
    ASSERT_EQ(parse(""), 0);
    const unsigned known = configList["config"].Size();
    // The last line has no newline and loses its last character ("!").
    const char listing[] =
            "sillet 2.3: QAV config list follows\n5 Enable hw_watchdog\n6 DISABLE hw_watchdog\n"
            "7 hw_watchdog\n31 vdd_gpu NV\n32 Enable vdd_gpu LV\n33 cpu-7\n34 Enable cpu-1x\n"
            "35 Enable \xff\xfe_nvram\n40 \xc3\x28 vdd_npu customization\n41 Enable gpu_dcvs!";
    ASSERT_EQ(parse(std::string(listing, sizeof(listing) - 1)), 0);
    EXPECT_EQ(listNumber("hw_watchdog", "enable-num"), 5);
    EXPECT_EQ(listNumber("hw_watchdog", "disable-num"), 6);
    EXPECT_EQ(listNumber("vdd_gpu NV", "num"), 31);
    // A level takes the number whatever words stand before its name.
    EXPECT_EQ(listNumber("vdd_gpu LV", "num"), 32);
    EXPECT_EQ(listNumber("cpu-7", "num"), 33);
    EXPECT_EQ(listNumber("gpu_dcvs", "enable-num"), 41);
    // Lines that no entry takes follow the catalogue in listing order, bytes that are
    // not UTF-8 kept as they came.
    std::string text(serializeConfigList(nullptr, nullptr) - 1, '\0');
    char* dest = text.data();
    serializeConfigList(nullptr, &dest);
    const std::string tail =
            R"({"name":"hw_watchdog","select":false,"num":7},)"
            R"({"name":"Enable cpu-1x","select":false,"num":34},)"
            "{\"name\":\"Enable \xff\xfe_nvram\",\"select\":false,\"num\":35},"
            "{\"name\":\"\xc3\x28 vdd_npu customization\",\"select\":false,\"num\":40,"
            "\"value\":0}]}";
    ASSERT_EQ(configList["config"].Size(), known + 4);
    EXPECT_EQ(text.substr(text.size() - tail.size()), tail);
    // The next listing starts again from the catalogue.
    ASSERT_EQ(parse("5 Enable hw_watchdog\n"), 0);
    EXPECT_EQ(configList["config"].Size(), known);
    EXPECT_EQ(listNumber("hw_watchdog", "disable-num"), -1);
}

TEST(ConfigList, NameMatchesOnlyAtItsFirstOccurrenceAndAtAWordEnd) {
    const std::pair<const char*, bool> cases[] = {
            {"Enable gpu_dcvs", true}, {"gpu_dcvs (adreno)", true},
            {"ENABLE GPU_DCVS", true}, {"Enable gpu_dcvs_boost", false},
            {"Enable gpu_dcv", false}, {"Enable gpu_dcvs_boost gpu_dcvs", false},
    };
    for (auto [line, match] : cases) {
        std::string text = line;
        EXPECT_EQ(matchConfigName(nullptr, text.data(), "gpu_dcvs"), match) << line;
    }
}

TEST(ConfigList, MalformedLineEndsTheParseKeepingEarlierLines) {
    for (const char* line : {"-3 Enable hw_watchdog\n", "Enable hw_watchdog\n",
                             "5Enable hw_watchdog\n", "5 \n", "\n", "7\n"}) {
        SCOPED_TRACE(line);
        android::sp<Ostrel> service = new Ostrel();
        testing::internal::CaptureStderr();
        std::string text =
                std::string("25 Enable hw_watchdog\n") + line + "26 Disable hw_watchdog\n";
        EXPECT_EQ(parse(text, service.get()), -1);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "Invalid format\n");
        EXPECT_EQ(service->replyLog(), "ostrel: Ostrel\nInvalid format\n\n");
        EXPECT_EQ(listNumber("hw_watchdog", "enable-num"), 25);
        EXPECT_EQ(listNumber("hw_watchdog", "disable-num"), -1);
    }
}
