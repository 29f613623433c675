// Durable file writes. A file is replaced atomically: the text goes to |temp|
// (in the same directory), is flushed to disk and renamed over |path|, so that a
// kill or a power cut leaves the old text or the new, never a torn one. A
// journal grows by durable appends, each costing the size of what it adds.
#pragma once

#include <string>

namespace vendor::brevane::hardware::ostrel::core {

// False, with errno telling why, when the text could not be put in place; the
// temporary file is then removed.
bool replaceFileAtomically(const char* temp, const char* path, const std::string& text, int mode);

// Appends |text| to |path| (made with |mode| if missing) and flushes it to disk
// before returning: one write and one fsync, whatever the file's size. False
// with errno set when any step fails.
bool appendDurably(const char* path, const std::string& text, int mode);

}  // namespace vendor::brevane::hardware::ostrel::core
