// An Android device's identity from the platform's properties.
#include <sys/system_properties.h>

#include "DeviceIdentity.h"

namespace vendor::brevane::hardware::ostrel::core {

void describeDevice(rapidjson::Value* device, rapidjson::Document::AllocatorType& a) {
    char value[PROP_VALUE_MAX] = "";
    device->AddMember("platform", "android", a);
    __system_property_get("ro.build.fingerprint", value);
    device->AddMember("fingerprint", rapidjson::Value(value, a), a);
    value[0] = '\0';
    __system_property_get("ro.product.model", value);
    device->AddMember("model", rapidjson::Value(value, a), a);
}

}  // namespace vendor::brevane::hardware::ostrel::core
