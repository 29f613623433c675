#include "LastLine.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace vendor::brevane::hardware::ostrel::core {

LastLine readLastLine(int fd) {
    LastLine last;
    struct stat st;
    if (fstat(fd, &st) != 0 || st.st_size <= 0) return last;
    size_t want = static_cast<size_t>(std::min<off_t>(st.st_size, kLastLineWindow));
    off_t from = st.st_size - static_cast<off_t>(want);
    std::string window(want, '\0');
    size_t got = 0;
    while (got < want) {
        ssize_t n = pread(fd, &window[got], want - got, from + static_cast<off_t>(got));
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return last;
        if (n == 0) break;  // cut short meanwhile: what was read is the file's end
        got += static_cast<size_t>(n);
    }
    size_t end = got;
    if (end > 0 && window[end - 1] == '\n') end--;
    const void* newline = end > 0 ? memrchr(window.data(), '\n', end) : nullptr;
    size_t start = newline ? static_cast<const char*>(newline) - window.data() + 1 : 0;
    // Without a newline in a window that does not reach the file's start, the
    // line is longer than the window and so longer than the bound.
    if (end - start > kLastLineBound) {
        // Continuation bytes of a UTF-8 sequence begun before the cut go too.
        const auto* bytes = reinterpret_cast<const unsigned char*>(window.data());
        start = end - kLastLineBound;
        for (int i = 0; i < 3 && start < end && (bytes[start] & 0xC0) == 0x80; i++) start++;
        last.cut = true;
    }
    window.resize(end);
    window.erase(0, start);
    last.text = std::move(window);
    return last;
}

}  // namespace vendor::brevane::hardware::ostrel::core
