// Fuzz target: any output of the config tool's list command through the listing
// parser, then the merged list serialized as clients get it.
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "ConfigBridge.h"

namespace core = vendor::brevane::hardware::ostrel::core;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    // The parser gets the tool's bytes as captured: writable and terminated.
    std::vector<char> text(bytes, bytes + size);
    text.push_back('\0');
    core::parseSilletList(nullptr, text.data(), static_cast<int>(size));
    int length = core::serializeConfigList(nullptr, nullptr);
    if (length > 0) {
        char* list = static_cast<char*>(malloc(length));
        core::serializeConfigList(nullptr, &list);
        free(list);
    }
    return 0;
}
