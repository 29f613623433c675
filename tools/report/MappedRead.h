// Reading an archive that libziparchive maps: a file cut short while it is read
// (a device still writing it, a copy in progress) makes the mapped pages past
// its new end raise SIGBUS. A read run through guardMappedRead ends with false
// instead, and the report says so; nothing else is read through a mapping.
#pragma once

#include <functional>

namespace ostrel_report {

// Runs |read| and returns what it returns; false with |cutShort| set when a
// SIGBUS ended it. What |read| had allocated deeper down is not freed then (a
// few KiB, once per archive cut short).
bool guardMappedRead(const std::function<bool()>& read, bool* cutShort);

}  // namespace ostrel_report
