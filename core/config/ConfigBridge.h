// The config tool bridge's own part: the process-wide configuration list, the
// built-in catalogue it starts from, and the parser that merges "sillet list"
// output into it.
#pragma once

#include <rapidjson/document.h>

#include "ConfigTool.h"

namespace vendor::brevane::hardware::ostrel::core {

using ConfigDocument =
        rapidjson::GenericDocument<rapidjson::UTF8<>, rapidjson::MemoryPoolAllocator<>,
                                   rapidjson::CrtAllocator>;

// The configuration list, rebuilt by every list query.
extern ConfigDocument configList;
// Parse stack of the configuration documents (their pools grow in 64 KiB chunks).
constexpr size_t kConfigParseStack = 1024;

// Rebuilds configList from the built-in catalogue and merges |length| bytes of
// listing into it: 0, or -1 at the first malformed line (earlier lines stay merged).
int parseSilletList(ReplyLogSink* owner, char* text, int length);
// Gives |num| to the first entry that takes it; false when none did.
bool mergeListLine(ReplyLogSink* owner, int num, char* text);
// Whether |name| (any case), at its first occurrence in |text|, ends |text| or is
// followed by a blank.
bool matchConfigName(ReplyLogSink* owner, char* text, const char* name);

}  // namespace vendor::brevane::hardware::ostrel::core
