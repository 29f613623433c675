// An Android device's identity: a kept random id and the platform's properties.
#include <sys/system_properties.h>

#include "DeviceIdentity.h"
#include "ResultLayout.h"
#include "RunRecordSchema.h"

namespace vendor::brevane::hardware::ostrel::core {

void describeDevice(rapidjson::Value* device, rapidjson::Document::AllocatorType& a) {
    namespace key = runrecord;
    char value[PROP_VALUE_MAX] = "";
    device->AddMember(rapidjson::StringRef(key::kPlatform), "android", a);
    // No machine id here, and the serial is not the vendor's to read.
    device->AddMember(rapidjson::StringRef(key::kDeviceId),
                      rapidjson::Value(keptDeviceId(kDeviceIdFile).c_str(), a), a);
    __system_property_get("ro.build.fingerprint", value);
    device->AddMember(rapidjson::StringRef(key::kFingerprint), rapidjson::Value(value, a), a);
    value[0] = '\0';
    __system_property_get("ro.product.model", value);
    device->AddMember(rapidjson::StringRef(key::kModel), rapidjson::Value(value, a), a);
}

}  // namespace vendor::brevane::hardware::ostrel::core
