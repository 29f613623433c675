#include <gtest/gtest.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <string>
#include <vector>

#include "ConfigBridge.h"
#include "TestSupport.h"

using namespace vendor::brevane::hardware::ostrel::core;
using ostrel_test::Ostrel;
using ostrel_test::findEntry;
using ostrel_test::listNumber;
using ostrel_test::ReplyLog;

namespace {

int parse(const std::string& output, Ostrel* owner = nullptr) {
    std::string copy = output;
    return parseSilletList(owner, copy.data(), static_cast<int>(copy.size()));
}

std::string json(const rapidjson::Value& value) {
    rapidjson::StringBuffer text;
    rapidjson::Writer<rapidjson::StringBuffer> writer(text);
    value.Accept(writer);
    return text.GetString();
}

const rapidjson::Value& entries() {
    return configList["config"];
}

// True when every number in |v| is -1 and every "value" is 0.
bool untouched(const rapidjson::Value& v) {
    if (v.IsArray()) {
        for (auto& item : v.GetArray()) {
            if (!untouched(item)) return false;
        }
    } else if (v.IsObject()) {
        for (auto& m : v.GetObject()) {
            std::string key = m.name.GetString();
            if (m.value.IsInt() && m.value.GetInt() != (key == "value" ? 0 : -1)) return false;
            if (!untouched(m.value)) return false;
        }
    }
    return true;
}

// One letter per entry or member, from its keys in order: S switch (name, select,
// enable-num, disable-num), L level (name, select, num), C custom level (name, select,
// value, num); then its default selection; groups as G<multi>[...].
std::string shape(const rapidjson::Value& entry) {
    std::string keys;
    for (auto& m : entry.GetObject()) keys += std::string(m.name.GetString()) + ",";
    if (entry.HasMember("content")) {
        std::string members;
        for (auto& member : entry["content"].GetArray()) members += shape(member);
        return (keys == "name,multi,content," ? "G" : "?") +
               std::to_string(entry["multi"].GetBool()) + "[" + members + "]";
    }
    const char* kind = keys == "name,select,enable-num,disable-num," ? "S"
                       : keys == "name,select,num,"                  ? "L"
                       : keys == "name,select,value,num,"            ? "C"
                                                                     : "?";
    return kind + std::string(entry["select"].GetBool() ? "t" : "f");
}

}  // namespace

TEST(ConfigList, BuiltInCatalogueHasTheListShape) {
    ASSERT_EQ(parse(""), 0);
    EXPECT_STREQ(configList["id"].GetString(), "default");
    EXPECT_TRUE(untouched(configList));
    std::string rail = "G0[LfLtLfCf]", switches, cores;
    for (int i = 0; i < 11; i++) switches += "St";
    for (int i = 0; i < 8; i++) cores += "Lt";
    std::vector<std::string> expected = {
            "St", "Sf", "G1[" + switches + "]", "G1[StSf]", "St", rail, rail, rail,
            rail, rail, "G1[" + cores + "]",    "St",       "St", "St"};
    std::vector<std::string> shapes;
    for (auto& entry : entries().GetArray()) shapes.push_back(shape(entry));
    EXPECT_EQ(shapes, expected);
    // Levels are "<rail> XX" and "<rail> customization", with one rail prefix spelled
    // otherwise; cores end in -0 to -7.
    int oddPrefixes = 0;
    for (unsigned i = 5; i < 11 && i < entries().Size(); i++) {
        std::string group = entries()[i]["name"].GetString();
        auto& content = entries()[i]["content"];
        for (unsigned m = 0; m < content.Size(); m++) {
            std::string name = content[m]["name"].GetString();
            if (i == 10) {
                EXPECT_EQ(name.substr(name.size() - 2), "-" + std::to_string(m));
            } else if (m == 3) {
                EXPECT_EQ(name, group + " customization");
            } else {
                EXPECT_EQ(name.size() - name.rfind(' '), 3u) << name;
                oddPrefixes += name.compare(0, group.size() + 1, group + " ") != 0;
            }
        }
    }
    EXPECT_EQ(oddPrefixes, 1);
    // A header alone changes nothing.
    ASSERT_EQ(parse("== QAV config list ==\n"), 0);
    EXPECT_TRUE(untouched(configList));
}

TEST(ConfigList, LinesFillTheFirstEntryThatTakesTheirNumber) {
    ASSERT_EQ(parse("sillet 2.3: QAV config list\n"
                    "5 Enable hw_watchdog\n"
                    "6 DISABLE hw_watchdog\n"
                    "7 hw_watchdog\n"
                    "12 QAV config list follows\n"
                    "31 vdd_gpu NV\n"
                    "32 Enable vdd_gpu LV\n"
                    "33 cpu-7\n"
                    "34 Enable cpu-1x\n"
                    "40 vdd_npu customization\n"
                    "41 Enable  pcie_aspm\n"),
              0);
    EXPECT_EQ(listNumber("hw_watchdog", "enable-num"), 5);
    EXPECT_EQ(listNumber("hw_watchdog", "disable-num"), 6);
    EXPECT_EQ(listNumber("vdd_gpu NV", "num"), 31);
    // A level takes the number whatever words stand before its name.
    EXPECT_EQ(listNumber("vdd_gpu LV", "num"), 32);
    EXPECT_EQ(listNumber("cpu-7", "num"), 33);
    EXPECT_EQ(listNumber("cpu-1", "num"), -1);
    ASSERT_EQ(entries().Size(), 18u);
    EXPECT_EQ(json(entries()[14]), R"({"name":"hw_watchdog","select":false,"num":7})");
    EXPECT_EQ(json(entries()[15]), R"({"name":"Enable cpu-1x","select":false,"num":34})");
    EXPECT_EQ(json(entries()[16]),
              R"({"name":"vdd_npu customization","select":false,"num":40,"value":0})");
    EXPECT_EQ(json(entries()[17]), R"({"name":"Enable  pcie_aspm","select":false,"num":41})");
    // The next listing starts again from the catalogue.
    ASSERT_EQ(parse("5 Enable hw_watchdog\n"), 0);
    EXPECT_EQ(entries().Size(), 14u);
    EXPECT_EQ(listNumber("hw_watchdog", "disable-num"), -1);
}

TEST(ConfigList, NameMatchesOnlyAtItsFirstOccurrenceAndAtAWordEnd) {
    char atEnd[] = "Enable gpu_dcvs";
    char beforeBlank[] = "gpu_dcvs (adreno)";
    char anyCase[] = "ENABLE GPU_DCVS";
    char longer[] = "Enable gpu_dcvs_boost";
    char earlier[] = "Enable gpu_dcvs_boost gpu_dcvs";
    EXPECT_TRUE(matchConfigName(nullptr, atEnd, "gpu_dcvs"));
    EXPECT_TRUE(matchConfigName(nullptr, beforeBlank, "gpu_dcvs"));
    EXPECT_TRUE(matchConfigName(nullptr, anyCase, "gpu_dcvs"));
    EXPECT_FALSE(matchConfigName(nullptr, longer, "gpu_dcvs"));
    EXPECT_FALSE(matchConfigName(nullptr, earlier, "gpu_dcvs"));
    // "na" first occurs inside "Enable".
    char insideWord[] = "Enable na";
    EXPECT_FALSE(matchConfigName(nullptr, insideWord, "na"));

    ASSERT_EQ(parse(""), 0);
    char unmatched[] = "Enable gpu_dcvs_boost";
    EXPECT_FALSE(mergeListLine(nullptr, 3, unmatched));
    char level[] = "Disable cpu-3";
    EXPECT_TRUE(mergeListLine(nullptr, 3, level));
    EXPECT_EQ(listNumber("cpu-3", "num"), 3);
}

TEST(ConfigList, MalformedLineEndsTheParseKeepingEarlierLines) {
    const char* malformed[] = {"-3 Enable hw_watchdog\n",
                               "Enable hw_watchdog\n",
                               "5Enable hw_watchdog\n",
                               "5 \n",
                               "\n",
                               "7\n"};
    for (const char* line : malformed) {
        SCOPED_TRACE(line);
        ReplyLog log;
        testing::internal::CaptureStderr();
        EXPECT_EQ(parse(std::string("25 Enable hw_watchdog\n") + line + "26 Disable hw_watchdog\n",
                        log.get()),
                  -1);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "Invalid format\n");
        EXPECT_EQ(log.added(), "Invalid format\n\n");
        EXPECT_EQ(listNumber("hw_watchdog", "enable-num"), 25);
        EXPECT_EQ(listNumber("hw_watchdog", "disable-num"), -1);
    }
}

TEST(ConfigList, FinalLineWithoutNewlineLosesItsLastCharacter) {
    ASSERT_EQ(parse("25 Enable hw_watchdogs"), 0);
    EXPECT_EQ(listNumber("hw_watchdog", "enable-num"), 25);
    ASSERT_EQ(parse("25 Enable hw_watchdog"), 0);
    EXPECT_EQ(listNumber("hw_watchdog", "enable-num"), -1);
    EXPECT_STREQ(entries()[14]["name"].GetString(), "Enable hw_watchdo");
}

TEST(ConfigList, BytesThatAreNotUtf8AreKeptAsTheyCame) {
    const char raw[] = "7 Enable \xff\xfe_nvram\n8 \xc3\x28 vdd_x customization\n";
    std::string output(raw, sizeof(raw) - 1);
    ASSERT_EQ(parse(output), 0);
    ASSERT_EQ(entries().Size(), 16u);
    EXPECT_EQ(json(entries()[14]),
              "{\"name\":\"Enable \xff\xfe_nvram\",\"select\":false,\"num\":7}");
    EXPECT_EQ(json(entries()[15]),
              "{\"name\":\"\xc3\x28 vdd_x customization\",\"select\":false,\"num\":8,\"value\":0}");
}
