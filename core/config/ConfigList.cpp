// The configuration list: the built-in catalogue of the SoC's configurable features
// (ConfigCatalogue.json, embedded at build time as kDefaultConfigList), and the
// parser that merges "sillet list" output into it. Every number in the catalogue
// is -1 (not offered by the tool) until a listing fills it in. Names are matched
// literally, so "vdd_dram LV" keeps the spelling the tool uses for that rail.
#include <rapidjson/stringbuffer.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "ConfigBridge.h"
#include "ConfigCatalogue.h"
#include "JsonText.h"

namespace vendor::brevane::hardware::ostrel::core {

// Pool chunks of 64 KiB, a parse stack of 1 KiB.
ConfigDocument configList(nullptr, kConfigParseStack);

namespace {

// Whether |entry| (a plain item or a group member) takes |num| from a line with
// |text|: an "enable-num" entry takes it from an "Enable" or "Disable" line,
// a level entry ("num") from any line.
bool takeNumber(ReplyLogSink* owner, rapidjson::Value& entry, int num, char* text) {
    if (!entry.IsObject()) return false;
    auto name = entry.FindMember("name");
    if (name == entry.MemberEnd() || !name->value.IsString()) return false;
    if (!matchConfigName(owner, text, name->value.GetString())) return false;
    auto enable = entry.FindMember("enable-num");
    if (enable != entry.MemberEnd()) {
        if (strcasestr(text, "Enable") != nullptr) {
            enable->value.SetInt(num);
            return true;
        }
        auto disable = entry.FindMember("disable-num");
        if (strcasestr(text, "Disable") != nullptr && disable != entry.MemberEnd()) {
            disable->value.SetInt(num);
            return true;
        }
        return false;
    }
    auto level = entry.FindMember("num");
    if (level == entry.MemberEnd()) return false;
    level->value.SetInt(num);
    return true;
}

// Parses one listing line in place: "<number> <text>". False when malformed.
bool splitListLine(char* line, int* num, char** text) {
    char* end = nullptr;
    long value = strtol(line, &end, 10);
    if (static_cast<int32_t>(value) < 0 || end == line || *end != ' ' || end[1] == '\0') {
        return false;
    }
    *num = static_cast<int32_t>(value);
    *text = end + 1;
    return true;
}

}  // namespace

int parseSilletList(ReplyLogSink* owner, char* text, int length) {
    // A fresh document replaces the old one, and the old pool goes with it.
    ConfigDocument fresh(nullptr, kConfigParseStack);
    parseJsonText(fresh, kDefaultConfigList, sizeof(kDefaultConfigList) - 1);
    configList.Swap(fresh);
    if (!configList.IsObject()) {
        logText(owner, stderr, "Cannot parse the default JSON\n");
        return -1;
    }
    auto config = configList.FindMember("config");
    if (config == configList.MemberEnd() || !config->value.IsArray()) {
        logText(owner, stderr, "Cannot parse the default JSON\n");
        return -1;
    }
    FILE* in = fmemopen(text, length > 0 ? length : 0, "r");
    if (in == nullptr) {
        logText(owner, stderr, "Cannot fmemopen (errno:%d)\n", errno);
        return -1;
    }
    auto& allocator = configList.GetAllocator();
    char* line = nullptr;
    size_t lineSize = 0;
    int result = 0;
    ssize_t n;
    while ((n = getline(&line, &lineSize, in)) != -1) {
        if (strstr(line, "QAV config list") != nullptr) continue;
        // Meant for the newline; a last line without one loses its last character.
        line[n - 1] = '\0';
        int num = 0;
        char* name = nullptr;
        if (!splitListLine(line, &num, &name)) {
            logText(owner, stderr, "Invalid format\n");
            result = -1;
            break;
        }
        if (mergeListLine(owner, num, name)) continue;
        rapidjson::Value entry(rapidjson::kObjectType);
        entry.AddMember("name", rapidjson::Value(name, allocator), allocator);
        entry.AddMember("select", false, allocator);
        entry.AddMember("num", num, allocator);
        if (strcasestr(name, "customization") != nullptr) entry.AddMember("value", 0, allocator);
        config->value.PushBack(entry, allocator);
    }
    free(line);
    fclose(in);
    return result;
}

bool mergeListLine(ReplyLogSink* owner, int num, char* text) {
    if (!configList.IsObject()) return false;
    auto config = configList.FindMember("config");
    if (config == configList.MemberEnd() || !config->value.IsArray()) return false;
    for (auto& entry : config->value.GetArray()) {
        if (!entry.IsObject()) continue;
        if (!entry.HasMember("multi")) {
            if (takeNumber(owner, entry, num, text)) return true;
            continue;
        }
        auto content = entry.FindMember("content");
        if (content == entry.MemberEnd() || !content->value.IsArray()) continue;
        for (auto& member : content->value.GetArray()) {
            if (takeNumber(owner, member, num, text)) return true;
        }
    }
    return false;
}

bool matchConfigName(ReplyLogSink*, char* text, const char* name) {
    const char* found = strcasestr(text, name);
    if (found == nullptr) return false;
    char* copy = strdup(found);
    if (copy == nullptr) return false;
    // Only the first occurrence counts; it must end the text or be followed by a blank.
    size_t length = strlen(name);
    if (copy[length] == ' ') copy[length] = '\0';
    bool match = strcasecmp(copy, name) == 0;
    free(copy);
    return match;
}

}  // namespace vendor::brevane::hardware::ostrel::core
