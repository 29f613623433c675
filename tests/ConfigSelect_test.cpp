#include <gtest/gtest.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <string>

#include "ConfigBridge.h"
#include "TestSupport.h"

using namespace vendor::brevane::hardware::ostrel::core;
using namespace ostrel_test;

TEST(ConfigSelect, ClientsEditedListGivesTheToolsExactSetWords) {
    std::string bin = useSilletStandIn();
    ReplyLog log;
    Ostrel* service = log.get();
    ASSERT_TRUE(service->machine().sendEvent(BOOT_COMPLETED, nullptr, nullptr, 0, 0));
    std::string handedOut, reply;
    service->getConfig([&](const auto& config, const auto&) { handedOut = config; });
    rapidjson::Document list;
    ASSERT_FALSE(list.Parse(handedOut.c_str()).HasParseError()) << handedOut;
    auto& config = list["config"];

    // Past the catalogue's entries come the features it does not know, each a line of
    // the listing under its own number, in listing order.
    rapidjson::Document catalogue;
    catalogue.Parse(readFile(sourcePath("core/config/ConfigCatalogue.json")).c_str());
    ASSERT_GT(config.Size(), catalogue["config"].Size());
    std::string listing = "\n" + runTool(bin + " list");
    for (unsigned i = catalogue["config"].Size(), at = 0; i < config.Size(); i++) {
        std::string line = "\n" + std::to_string(config[i]["num"].GetInt()) + " " +
                           config[i]["name"].GetString() + "\n";
        at = listing.find(line, at);
        ASSERT_NE(at, std::string::npos) << line;
    }

    // Switches on and off, one of them in a group, another level of a rail, a custom
    // level with its value, and the last of the unknown features.
    auto edit = [&](const char* name, bool select, int value = -1) {
        auto* entry = const_cast<rapidjson::Value*>(findEntry(list, name));
        ASSERT_NE(entry, nullptr) << name;
        ASSERT_TRUE(value < 0 || entry->HasMember("value")) << name;
        (*entry)["select"] = select;
        if (value >= 0) (*entry)["value"] = value;
    };
    edit("thermal_mitigation", false);
    edit("random_hotplug", true);
    edit("gpu_dcvs", false);
    edit("vdd_gpu NV", false);
    edit("vdd_gpu LV", true);
    edit("vdd_cpu_big customization", true, 850);
    edit(config[config.Size() - 1]["name"].GetString(), true, 900);

    // A switch passes its enable or disable number by its selection, a group member
    // its level number; a missing number is -1 and a negative one leaves the item
    // out; a value of 0 or more follows as "a<value>".
    std::string words = "set";
    auto addWords = [&](rapidjson::Value& item, bool member) {
        std::string key = item["select"].GetBool() ? "enable-num" : "disable-num";
        if (member && item.HasMember("num")) key = "num";
        int number = item.HasMember(key.c_str()) ? item[key.c_str()].GetInt() : -1;
        if (item.HasMember(key.c_str()) && number < 0) return;
        int value = item.HasMember("value") ? item["value"].GetInt() : -1;
        words += " " + std::to_string(number) + (value >= 0 ? " a" + std::to_string(value) : "");
    };
    for (auto& entry : config.GetArray()) {
        if (entry.HasMember("multi")) {
            for (auto& member : entry["content"].GetArray()) addWords(member, true);
        } else {
            addWords(entry, false);
        }
    }
    rapidjson::StringBuffer edited;
    rapidjson::Writer<rapidjson::StringBuffer> writer(edited);
    list.Accept(writer);
    bool ok = false;
    service->setConfig(edited.GetString(), [&](bool result, const auto& replyLog) {
        ok = result;
        reply = replyLog;
    });
    EXPECT_TRUE(ok) << reply;
    EXPECT_EQ(readFile(kSilletState), words + "\n");
    EXPECT_TRUE(contains(reply, "argv = " + bin + " " + words + " \n")) << reply;
    service->clearConfig([&](bool result, const auto&) { ok = result; });
    EXPECT_TRUE(ok);
    EXPECT_EQ(readFile(kSilletState), words + "\nclear\n");
}

TEST(ConfigSelect, NumberRulesOfTheWalk) {
    const std::pair<std::string, std::string> cases[] = {
            {"", "set"},
            // A member's "num" replaces its switch number, unless the switch is not offered.
            {R"({"multi":false,"content":[{"select":true,"enable-num":4,"num":11},)"
             R"({"select":true,"enable-num":-1,"num":12}]})",
             "set 11"},
            // Groups without members are skipped; only the boolean true selects; a
            // negative value adds no value word.
            {R"({"multi":true},{"multi":1,"content":[]},)"
             R"({"select":1,"enable-num":1,"disable-num":2,"value":-1})",
             "set 2"},
            // Wrong types read as missing.
            {R"({"name":7,"select":"yes","enable-num":"4","disable-num":[1],"value":{}},)"
             R"({"name":"g","multi":true,"content":{"name":"x"}},)"
             R"({"multi":null,"content":[{"select":true,"num":2.5,"value":"850"}]})",
             "set -1 -1"},
            // Huge client text still runs the tool.
            {R"({"name":")" + std::string(10 << 20, 'x') + R"(","select":true,"enable-num":4})",
             "set 4"},
    };
    for (auto& [entries, words] : cases) {
        useSilletStandIn();
        EXPECT_EQ(selectSilletConfig(nullptr, (R"({"config":[)" + entries + "]}").c_str()), 0);
        EXPECT_EQ(readFile(kSilletState), words + "\n") << entries.substr(0, 200);
    }
}

TEST(ConfigSelect, UnreadableListsAreRefusedWithoutRunningTheTool) {
    const std::string refused = "\n\nCannot parse the given JSON: exit_select_qav\n\n";
    const std::string notObject = "Cannot parse the given JSON: is not object\n\n";
    const std::string noArray = "Cannot parse the given JSON: no configs array\n\n";
    const std::pair<std::string, std::string> cases[] = {
            {"{}", noArray},
            {R"({"config":{"name":"x"}})", noArray},
            {"[]", notObject},
            {R"({"config":[)", notObject},
            {std::string(1000000, '['), notObject},
            {R"({"config":[{"name":"hw_watchdog","enable-num":1}]})",
             "exit: name:hw_watchdog" + refused},
            {R"({"config":[{"name":"a","select":true},{}]})", "exit: name:(null)" + refused},
            {R"({"config":[{"name":"a","select":true},7]})", "exit: name:(null)" + refused},
            {R"({"config":[{"name":"g","multi":true,"content":[{"name":"m","num":3}]}]})",
             "exit: name:m" + refused},
            {R"({"config":[{"name":"g","multi":true,"content":[[{"select":true}]]}]})",
             "exit: name:(null)" + refused},
    };
    for (auto& [json, expected] : cases) {
        SCOPED_TRACE(json.substr(0, 60));
        useSilletStandIn();
        ReplyLog log;
        StderrCapture diagnostics;
        EXPECT_EQ(selectSilletConfig(log.get(), json.c_str()), -1);
        EXPECT_EQ(log.added(), expected);
        EXPECT_FALSE(fileExists(kSilletState));
    }
    EXPECT_EQ(selectSilletConfig(nullptr, nullptr), -1);
}
