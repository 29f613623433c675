#include "ReplyLogSink.h"

#include <cstdarg>
#include <vector>

namespace vendor::brevane::hardware::ostrel::core {

void logText(ReplyLogSink* owner, FILE* stream, const char* format, ...) {
    va_list args;
    va_start(args, format);
    va_list again;
    va_copy(again, args);
    int n = vsnprintf(nullptr, 0, format, args);
    va_end(args);
    std::vector<char> text(n > 0 ? static_cast<size_t>(n) + 1 : 1, '\0');
    if (n > 0) vsnprintf(text.data(), text.size(), format, again);
    va_end(again);
    fputs(text.data(), stream);
    fflush(stream);
    if (owner != nullptr) owner->addLog(text.data());
}

}  // namespace vendor::brevane::hardware::ostrel::core
