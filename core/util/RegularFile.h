// Opening a file that something else may have put at a path: a FIFO, a device or
// a directory there must neither block the caller nor be read as a file.
#pragma once

namespace vendor::brevane::hardware::ostrel::core {

// What openRegular returns for a FIFO, a device or a directory.
constexpr int kNotRegular = -2;

// A read-only descriptor of |path| if it is a regular file, opened without
// blocking; -1 when it cannot be opened, kNotRegular when it is no regular file.
int openRegular(const char* path);

}  // namespace vendor::brevane::hardware::ostrel::core
