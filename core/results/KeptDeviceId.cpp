// A random id made once for a device that has no machine id of its own, kept
// with an atomic replace so that a kill never leaves half of one.
#include <sys/random.h>
#include <sys/stat.h>

#include <cctype>
#include <fstream>

#include "AtomicFile.h"
#include "DeviceIdentity.h"

namespace vendor::brevane::hardware::ostrel::core {

namespace {

bool isId(const std::string& text) {
    if (text.size() != 32) return false;
    for (char c : text) {
        if (!isxdigit(static_cast<unsigned char>(c)) || isupper(static_cast<unsigned char>(c))) return false;
    }
    return true;
}

}  // namespace

std::string keptDeviceId(const char* path) {
    std::string id;
    std::getline(std::ifstream(path), id);
    if (isId(id)) return id;
    unsigned char bytes[16];
    if (getrandom(bytes, sizeof(bytes), 0) != static_cast<ssize_t>(sizeof(bytes))) return "";
    static const char* kHex = "0123456789abcdef";
    id.clear();
    for (unsigned char b : bytes) {
        id.push_back(kHex[b >> 4]);
        id.push_back(kHex[b & 15]);
    }
    std::string temp = std::string(path) + ".new";
    return replaceFileAtomically(temp.c_str(), path, id + "\n", 0600) ? id : "";
}

}  // namespace vendor::brevane::hardware::ostrel::core
