// Diagnostic lines shared by every class: "Log at <source>: <message>\n" on
// standard error and the message at debug priority in the platform log under the
// class's tag. Messages are cut to 255 characters; an empty message writes nothing.
#pragma once

#include <cstdio>
#include <string>

namespace vendor::brevane::hardware::ostrel::core {

constexpr size_t kDiagnosticSize = 256;

// The name printed for a compiled-in source path: the part after the last "/",
// without its extension ("/x/OstrelFSM.h" prints as "OstrelFSM").
std::string sourceName(const char* file);

// Writes an already formatted, non-empty message to both outputs.
void writeDiagnostic(const char* tag, const char* file, const char* message);

#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wformat-security"
#pragma clang diagnostic ignored "-Wformat-nonliteral"
template <typename... Args>
void formatDiagnostic(const char* tag, const char* file, const char* fmt, Args... args) {
    char buf[kDiagnosticSize] = {};
    if (fmt == nullptr) return;
    int n = snprintf(buf, sizeof(buf), fmt, args...);
    if (n < 1) return;
    writeDiagnostic(tag, file, buf);
}

// A class's diagnostic writer as a value: its platform-log tag and the compiled-in
// source path whose name its lines carry. An owner hands its own to the parts it
// is made of, so that their lines read exactly as the owner's.
struct Diagnostics {
    const char* tag;
    const char* file;

    template <typename... Args>
    void error(const char* fmt, Args... args) const {
        formatDiagnostic(tag, file, fmt, args...);
    }
};
#pragma clang diagnostic pop

// Text of the line number for an assertion line's "Line:%s" field.
std::string lineText(int line);

}  // namespace vendor::brevane::hardware::ostrel::core

// Reports a check that did not hold, as "ostrel: Exp=<expr> Line:<line> Func:<signature>",
// through the enclosing class's error writer, and goes on. |line| is the fixed line
// number that identifies the check in the device logs.
#define OSTREL_CHECK(cond, exprText, line)                                        \
    do {                                                                          \
        if (!(cond)) {                                                            \
            error("ostrel: Exp=%s Line:%s Func:%s", exprText,                     \
                  ::vendor::brevane::hardware::ostrel::core::lineText(line).c_str(), \
                  __PRETTY_FUNCTION__);                                           \
        }                                                                         \
    } while (0)
