// What the report and summary fuzz targets share: writing an input's part as a
// file, and the check that an output holds no control character.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <string>

namespace ostrel_fuzz {

inline void writeFile(const std::string& path, const uint8_t* bytes, size_t size) {
    int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (fd < 0) abort();
    while (size > 0) {
        ssize_t n = write(fd, bytes, size);
        if (n <= 0) abort();
        bytes += n;
        size -= static_cast<size_t>(n);
    }
    close(fd);
}

// No C0 control but '\n', no DEL, no C1 control (U+0080..U+009F in UTF-8).
inline void checkClean(const std::string& text) {
    for (size_t i = 0; i < text.size(); i++) {
        auto c = static_cast<unsigned char>(text[i]);
        bool control = (c < 0x20 && c != '\n') || c == 0x7F ||
                       (c == 0xC2 && i + 1 < text.size() && static_cast<unsigned char>(text[i + 1]) < 0xA0);
        if (control) abort();
    }
}

}  // namespace ostrel_fuzz
