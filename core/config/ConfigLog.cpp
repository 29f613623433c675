// The config bridge's log sinks: each writes to a standard stream, flushes it, and
// with an owner appends the same text to the reply log.
#include "ConfigBridge.h"
#include "OstrelImpl.h"

namespace vendor::brevane::hardware::ostrel::core {

#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wformat-nonliteral"
#pragma clang diagnostic ignored "-Wformat-security"

void logText(Ostrel* owner, FILE* stream, const char* text) {
    fprintf(stream, "%s", text);
    fflush(stream);
    if (owner != nullptr) owner->addLog(text);
}

void logTextInt(Ostrel* owner, FILE* stream, const char* format, int value) {
    fprintf(stream, format, value);
    fflush(stream);
    if (owner != nullptr) owner->addLog(format, value);
}

void logTextIntStr(Ostrel* owner, FILE* stream, const char* format, int value, const char* text) {
    fprintf(stream, format, value, text);
    fflush(stream);
    if (owner != nullptr) owner->addLog(format, value, text);
}

void logTextStr(Ostrel* owner, FILE* stream, const char* format, const char* text) {
    fprintf(stream, format, text);
    fflush(stream);
    if (owner != nullptr) owner->addLog(format, text);
}

void logTextSize(Ostrel* owner, FILE* stream, const char* format, unsigned long size) {
    fprintf(stream, format, size);
    fflush(stream);
    if (owner != nullptr) owner->addLog(format, size);
}

#pragma clang diagnostic pop

}  // namespace vendor::brevane::hardware::ostrel::core
