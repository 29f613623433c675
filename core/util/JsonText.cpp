#include "JsonText.h"

namespace vendor::brevane::hardware::ostrel::core {

bool jsonDepthWithinBound(const char* text, size_t length) {
    int depth = 0;
    bool inString = false;
    for (size_t i = 0; i < length; i++) {
        char c = text[i];
        if (inString) {
            if (c == '\\') {
                i++;  // the escaped character cannot end the string
            } else if (c == '"') {
                inString = false;
            }
            continue;
        }
        if (c == '"') {
            inString = true;
        } else if (c == '[' || c == '{') {
            if (++depth > kMaxJsonDepth) return false;
        } else if (c == ']' || c == '}') {
            depth--;
        }
    }
    return true;
}

}  // namespace vendor::brevane::hardware::ostrel::core
