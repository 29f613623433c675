#include "OstrelLog.h"

#include <android/log.h>

#include <cstring>

namespace vendor::brevane::hardware::ostrel::core {

std::string sourceName(const char* file) {
    std::string name(file ? file : "");
    size_t slash = name.rfind('/');
    if (slash != std::string::npos) name.erase(0, slash + 1);
    size_t dot = name.find('.');
    if (dot != std::string::npos && dot > 0) name.erase(dot);
    return name;
}

void writeDiagnostic(const char* tag, const char* file, const char* message) {
    if (message == nullptr || message[0] == '\0') return;
    fprintf(stderr, "Log at %s: %s\n", sourceName(file).c_str(), message);
    __android_log_print(ANDROID_LOG_DEBUG, tag, "%s", message);
}

std::string lineText(int line) {
    return std::to_string(line);
}

}  // namespace vendor::brevane::hardware::ostrel::core
