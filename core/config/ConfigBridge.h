// The config tool bridge: running "sillet list" and merging its listing into the
// process-wide configuration list, and applying or clearing a client's selection.
#pragma once

#include <rapidjson/document.h>

#include <cstdio>

namespace vendor {
namespace brevane {
namespace hardware {
namespace ostrel {
namespace V2_0 {
namespace implementation {
struct Ostrel;
}  // namespace implementation
}  // namespace V2_0

namespace core {

using V2_0::implementation::Ostrel;

using ConfigDocument =
        rapidjson::GenericDocument<rapidjson::UTF8<>, rapidjson::MemoryPoolAllocator<>,
                                   rapidjson::CrtAllocator>;

// The configuration list, rebuilt by every list query.
extern ConfigDocument configList;
// Parse stack of the configuration documents (their pools grow in 64 KiB chunks).
constexpr size_t kConfigParseStack = 1024;

// List query: 0 on success, -1 on failure.
int querySilletList(Ostrel* owner);
// Size of the list's text with its terminator; copies it to *dest when given.
int serializeConfigList(Ostrel* owner, char** dest);

// Rebuilds configList from the built-in catalogue and merges |length| bytes of
// listing into it: 0, or -1 at the first malformed line (earlier lines stay merged).
int parseSilletList(Ostrel* owner, char* text, int length);
// Gives |num| to the first entry that takes it; false when none did.
bool mergeListLine(Ostrel* owner, int num, char* text);
// Whether |name| (any case), at its first occurrence in |text|, ends |text| or is
// followed by a blank.
bool matchConfigName(Ostrel* owner, char* text, const char* name);

// Selection and clearing: 0 on success, -1 on failure.
int selectSilletConfig(Ostrel* owner, const char* json);
int clearSilletConfig(Ostrel* owner);

// Log sinks: a line on |stream| (flushed) and, with an owner, in the reply log.
void logText(Ostrel* owner, FILE* stream, const char* text);
void logTextInt(Ostrel* owner, FILE* stream, const char* format, int value);
void logTextIntStr(Ostrel* owner, FILE* stream, const char* format, int value, const char* text);
void logTextStr(Ostrel* owner, FILE* stream, const char* format, const char* text);
void logTextSize(Ostrel* owner, FILE* stream, const char* format, unsigned long size);

}  // namespace core
}  // namespace ostrel
}  // namespace hardware
}  // namespace brevane
}  // namespace vendor
