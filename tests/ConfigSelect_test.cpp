#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include "ConfigBridge.h"
#include "TestSupport.h"

TEST(ConfigSelect, ClientsEditedListGivesTheToolsExactSetWords) {
    std::string bin = useSilletStandIn();
    android::sp<Ostrel> service = new Ostrel();
    ASSERT_TRUE(service->machine().sendEvent(BOOT_COMPLETED, nullptr, nullptr, 0, 0));
    std::string handedOut, reply;
    service->getConfig([&](const auto& config, const auto&) { handedOut = config; });
    rapidjson::Document list;
    ASSERT_FALSE(list.Parse(handedOut.c_str()).HasParseError()) << handedOut;
    auto& config = list["config"];

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

    // The catalogue's switches by selection (enable or disable number; -1 leaves one
    // out), every level of a rail by its number, a custom level with "a<value>", then
    // the features that the catalogue does not know (no enable or disable number: -1).
    const std::string words =
            "set 1 2 3 5 7 9 11 13 16 17 19 21 23 25 27 28 29 30 a0 31 32 33 34 a850 35 36 37 38 "
            "a0 39 40 41 42 a0 43 44 45 46 47 48 49 50 51 52 53 54 56 -1 -1 -1 -1 -1 a900";
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
        android::sp<Ostrel> service = new Ostrel();
        StderrCapture diagnostics;
        EXPECT_EQ(selectSilletConfig(service.get(), json.c_str()), -1);
        EXPECT_EQ(service->replyLog(), "ostrel: Ostrel\n" + expected);
        EXPECT_FALSE(fileExists(kSilletState));
    }
    EXPECT_EQ(selectSilletConfig(nullptr, nullptr), -1);
}
