// What the state machine asks of the config tool: the configuration list, a
// client's selection applied, every setting cleared. Messages go to standard
// output or error and, with an owner, to its reply log.
#pragma once

#include <string>
#include <vector>

#include "ReplyLogSink.h"

namespace vendor::brevane::hardware::ostrel::core {

// Runs "sillet list" and rebuilds the configuration list: 0 on success, -1 on failure.
int querySilletList(ReplyLogSink* owner);
// Size of the list's text with its terminator; copies it to *dest when given.
int serializeConfigList(ReplyLogSink* owner, char** dest);

// What a selection or a clearing asked of the tool: its words and exit status
// (-1 when it did not run or did not exit).
struct ToolApplied {
    std::vector<std::string> words;
    int exitStatus = -1;
};

// Selection and clearing: 0 on success, -1 on failure. |applied|, when given,
// receives what was asked of the tool.
int selectSilletConfig(ReplyLogSink* owner, const char* json, ToolApplied* applied = nullptr);
int clearSilletConfig(ReplyLogSink* owner, ToolApplied* applied = nullptr);

}  // namespace vendor::brevane::hardware::ostrel::core
