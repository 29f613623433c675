// A Linux host's identity: /etc/machine-id, the host name, os-release's
// PRETTY_NAME and the kernel release.
#include <sys/utsname.h>
#include <unistd.h>

#include <fstream>
#include <string>

#include "DeviceIdentity.h"

namespace vendor::brevane::hardware::ostrel::core {

namespace {

std::string firstLine(const char* path) {
    std::ifstream in(path);
    std::string line;
    std::getline(in, line);
    return line;
}

std::string osName() {
    std::ifstream in("/etc/os-release");
    std::string line;
    while (std::getline(in, line)) {
        if (line.rfind("PRETTY_NAME=", 0) != 0) continue;
        std::string value = line.substr(12);
        if (value.size() >= 2 && value.front() == '"' && value.back() == '"') {
            value = value.substr(1, value.size() - 2);
        }
        return value;
    }
    return "";
}

}  // namespace

void describeDevice(rapidjson::Value* device, rapidjson::Document::AllocatorType& a) {
    char host[256] = "";
    gethostname(host, sizeof(host) - 1);
    struct utsname un = {};
    uname(&un);
    device->AddMember("platform", "linux", a);
    device->AddMember("machine_id", rapidjson::Value(firstLine("/etc/machine-id").c_str(), a), a);
    device->AddMember("host_name", rapidjson::Value(host, a), a);
    device->AddMember("os", rapidjson::Value(osName().c_str(), a), a);
    device->AddMember("kernel", rapidjson::Value(un.release, a), a);
}

}  // namespace vendor::brevane::hardware::ostrel::core
