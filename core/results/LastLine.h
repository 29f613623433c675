// The last line of a crash-history file, read from a bounded window at its end:
// a file of any size costs one small read and a few KiB of memory.
#pragma once

#include <cstddef>
#include <string>

namespace vendor::brevane::hardware::ostrel::core {

// A last line is copied whole up to this many bytes.
constexpr size_t kLastLineBound = 65534;
// What a scan reads at most from the end of a file: 64 KiB + 2, room for a line
// of kLastLineBound bytes, its newline and the newline before it, and more.
constexpr size_t kLastLineWindow = 64 * 1024 + 2;

struct LastLine {
    std::string text;  // without its newline
    bool cut = false;  // longer than kLastLineBound: |text| holds its final bytes
};

// The last line of the file open at |fd|, read with pread from at most
// kLastLineWindow bytes at its end. A final newline ends the last line and is not
// part of it; an empty file, a file whose last line is empty and a file that
// cannot be read give an empty text. A longer line is cut to its last
// kLastLineBound bytes, less the continuation bytes (at most 3) of a UTF-8
// sequence that began before the cut, so that the copy starts on a character.
LastLine readLastLine(int fd);

}  // namespace vendor::brevane::hardware::ostrel::core
