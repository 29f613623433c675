// Running a program as a child with its standard output and standard error on
// two pipes, collecting both to their end. The child must produce output or close
// its pipes within kToolPollMs of each previous event.
#pragma once

#include <cstdint>
#include <functional>

#include "ReplyLogSink.h"

namespace vendor::brevane::hardware::ostrel::core {

constexpr int kToolPollMs = 5000;
// Capture buffers start at this size and grow by it whenever they are full.
constexpr int32_t kToolBufferStep = 256;

// One collected stream; |data| is NUL-terminated after a completed capture.
struct ToolOutput {
    char* data = nullptr;
    int32_t size = 0;
    int32_t length = 0;
};

enum ToolRunResult {
    TOOL_DONE = 0,     // the child ran and was waited for; its status is set
    TOOL_NO_PIPE = 1,  // the pipes could not be made (reported)
    TOOL_FAILED = 2,   // fork, buffers, poll, read or wait failed (reported)
};

// Forks; the child gets the pipes as descriptors 1 and 2 and runs |child|, which
// must not return. Messages go to standard error and, with an owner, to its reply
// log. Both outputs are freed by the caller with releaseToolOutput, whatever the
// result.
ToolRunResult runToolCaptured(ReplyLogSink* owner, const std::function<void()>& child,
                              ToolOutput* out, ToolOutput* err, int* status);
void releaseToolOutput(ToolOutput* output);

// Reports a child that exec could not start (on the child's standard error) and
// leaves the child with exit code 1.
[[noreturn]] void failExec();

}  // namespace vendor::brevane::hardware::ostrel::core
