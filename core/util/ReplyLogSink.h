// The reply log that goes back to a client with every answer. The service keeps
// it; the core appends to it through this interface alone.
#pragma once

#include <cstdio>

namespace vendor::brevane::hardware::ostrel::core {

class ReplyLogSink {
  public:
    virtual ~ReplyLogSink() = default;
    // Appends |text| and a newline; an empty text appends nothing.
    virtual bool addLog(const char* text) = 0;
};

// Writes the formatted text on |stream| and flushes it, and with an owner
// appends the same text to its reply log.
void logText(ReplyLogSink* owner, FILE* stream, const char* format, ...)
        __attribute__((format(printf, 3, 4)));

}  // namespace vendor::brevane::hardware::ostrel::core
