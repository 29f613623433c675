// Fuzz target: a client's configuration selection through the walk that builds the
// tool's "set" command; the tool is a stand-in (SILLET_BIN) that exits at once.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "ConfigBridge.h"

namespace core = vendor::brevane::hardware::ostrel::core;

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    if (getenv("SILLET_BIN") == nullptr) setenv("SILLET_BIN", "/bin/true", 1);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    std::string json(reinterpret_cast<const char*>(bytes), size);
    core::selectSilletConfig(nullptr, json.c_str());
    return 0;
}
