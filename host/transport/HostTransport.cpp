// The host transport's bus connection, name mapping, UTF-8 repair and the
// thread-pool entry points of HidlTransportSupport.h.
#include "HostTransport.h"

#include <hidl/HidlTransportSupport.h>

#include <cctype>

namespace vendor::brevane::hardware::ostrel::V2_0::host {

bool validInstanceName(const std::string& instance) {
    if (instance.empty() || isdigit(static_cast<unsigned char>(instance[0]))) return false;
    for (char c : instance) {
        if (!isalnum(static_cast<unsigned char>(c)) && c != '_') return false;
    }
    return true;
}

std::string busNameFor(const std::string& instance) {
    return std::string(kInterfaceName) + "." + instance;
}

std::string objectPathFor(const std::string& instance) {
    return std::string(kObjectPathPrefix) + instance;
}

namespace {

// Length of the well-formed sequence at |p| (at most |left| bytes), or 0. Also
// refuses what sd-bus refuses in a string: NUL, surrogates, code points past
// U+10FFFF and the noncharacters U+FDD0..U+FDEF and U+xxFFFE/U+xxFFFF.
size_t sequenceLength(const unsigned char* p, size_t left) {
    unsigned char c = p[0];
    if (c == 0) return 0;
    if (c < 0x80) return 1;
    size_t n;
    char32_t cp;
    if (c >= 0xC2 && c <= 0xDF) {
        n = 2;
        cp = c & 0x1F;
    } else if (c >= 0xE0 && c <= 0xEF) {
        n = 3;
        cp = c & 0x0F;
    } else if (c >= 0xF0 && c <= 0xF4) {
        n = 4;
        cp = c & 0x07;
    } else {
        return 0;
    }
    if (left < n) return 0;
    for (size_t i = 1; i < n; i++) {
        if ((p[i] & 0xC0) != 0x80) return 0;
        cp = (cp << 6) | (p[i] & 0x3F);
    }
    static const char32_t kMinimum[5] = {0, 0, 0x80, 0x800, 0x10000};
    if (cp < kMinimum[n] || cp > 0x10FFFF) return 0;
    if (cp >= 0xD800 && cp <= 0xDFFF) return 0;
    if ((cp >= 0xFDD0 && cp <= 0xFDEF) || (cp & 0xFFFE) == 0xFFFE) return 0;
    return n;
}

}  // namespace

std::string repairUtf8(const char* text, size_t size) {
    std::string out;
    if (text == nullptr) return out;
    out.reserve(size);
    const auto* p = reinterpret_cast<const unsigned char*>(text);
    size_t i = 0;
    while (i < size) {
        size_t n = sequenceLength(p + i, size - i);
        if (n == 0) {
            out.append("\xEF\xBF\xBD");
            i++;
        } else {
            out.append(text + i, n);
            i += n;
        }
    }
    return out;
}

ServerConnection& ServerConnection::get() {
    static ServerConnection instance;
    return instance;
}

sdbus::IConnection& ServerConnection::connection() {
    if (!conn) conn = sdbus::createSystemBusConnection();
    return *conn;
}

void ServerConnection::keep(std::shared_ptr<void> object) {
    objects.push_back(std::move(object));
}

}  // namespace vendor::brevane::hardware::ostrel::V2_0::host

namespace android::hardware {

using ::vendor::brevane::hardware::ostrel::V2_0::host::ServerConnection;

bool configureRpcThreadpool(size_t maxThreads, bool callerWillJoin) {
    // One thread, the caller's: the bus loop runs in joinRpcThreadpool.
    if (maxThreads != 1 || !callerWillJoin) return false;
    ServerConnection::get().configured = true;
    return true;
}

void joinRpcThreadpool() {
    ServerConnection& server = ServerConnection::get();
    if (!server.configured || !server.hasObjects()) return;
    try {
        server.connection().enterEventLoop();
    } catch (const sdbus::Error&) {
        // The bus went away: the pool has nothing left to serve.
    }
}

}  // namespace android::hardware
