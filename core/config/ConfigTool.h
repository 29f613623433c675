// What the state machine asks of the config tool: the configuration list, a
// client's selection applied, every setting cleared. Messages go to standard
// output or error and, with an owner, to its reply log.
#pragma once

#include "ReplyLogSink.h"

namespace vendor::brevane::hardware::ostrel::core {

// Runs "sillet list" and rebuilds the configuration list: 0 on success, -1 on failure.
int querySilletList(ReplyLogSink* owner);
// Size of the list's text with its terminator; copies it to *dest when given.
int serializeConfigList(ReplyLogSink* owner, char** dest);

// Selection and clearing: 0 on success, -1 on failure.
int selectSilletConfig(ReplyLogSink* owner, const char* json);
int clearSilletConfig(ReplyLogSink* owner);

}  // namespace vendor::brevane::hardware::ostrel::core
