// Helpers shared by the tests: they run inside the device sandbox (scripts/devsandbox),
// where the fixed paths are a private, fresh data partition.
#pragma once

#include <string>

namespace ostrel_test {

// Whole contents of |path|, or an empty string when it cannot be read.
std::string readFile(const std::string& path);
// Replaces |path| with |text|.
void writeFile(const std::string& path, const std::string& text);
bool fileExists(const std::string& path);
// The stand-ins and other files of the project's source tree.
std::string sourcePath(const std::string& relative);

}  // namespace ostrel_test
