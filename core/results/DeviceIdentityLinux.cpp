// A Linux host's identity: an id of Ostrel's own derived from the machine id
// (as systemd-id128 machine-id --app-specific does), the host name, os-release's
// PRETTY_NAME and the kernel release.
#include <systemd/sd-id128.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <fstream>
#include <string>

#include "DeviceIdentity.h"
#include "ResultLayout.h"
#include "RunRecordSchema.h"

namespace vendor::brevane::hardware::ostrel::core {

namespace {

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

// Ostrel's application id: the machine id keyed with it gives an id that tells
// hosts apart and cannot be turned back into the machine id.
constexpr sd_id128_t kOstrelAppId =
        SD_ID128_MAKE(da, 50, 5f, 40, a6, 73, 4f, f4, aa, b3, 40, 39, c5, 50, 2b, e6);

// The app-specific machine id; a kept random id on a host without a machine id.
std::string deviceId() {
    sd_id128_t id;
    char text[SD_ID128_STRING_MAX];
    if (sd_id128_get_machine_app_specific(kOstrelAppId, &id) == 0) return sd_id128_to_string(id, text);
    return keptDeviceId(kDeviceIdFile);
}

}  // namespace

void describeDevice(rapidjson::Value* device, rapidjson::Document::AllocatorType& a) {
    char host[256] = "";
    gethostname(host, sizeof(host) - 1);
    struct utsname un = {};
    uname(&un);
    namespace key = runrecord;
    device->AddMember(rapidjson::StringRef(key::kPlatform), "linux", a);
    device->AddMember(rapidjson::StringRef(key::kDeviceId), rapidjson::Value(deviceId().c_str(), a), a);
    device->AddMember(rapidjson::StringRef(key::kHostName), rapidjson::Value(host, a), a);
    device->AddMember(rapidjson::StringRef(key::kOs), rapidjson::Value(osName().c_str(), a), a);
    device->AddMember(rapidjson::StringRef(key::kKernel), rapidjson::Value(un.release, a), a);
}

}  // namespace vendor::brevane::hardware::ostrel::core
