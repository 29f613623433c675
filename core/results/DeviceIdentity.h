// The device a run was made on, as the platform tells it: on Android the build
// fingerprint and model (a vendor service may not read the serial number; a lab's
// tooling adds it), on a Linux host the machine id, host name, OS and kernel.
#pragma once

#include <rapidjson/document.h>

namespace vendor::brevane::hardware::ostrel::core {

// Adds the platform's identity members to |device|, an object.
void describeDevice(rapidjson::Value* device, rapidjson::Document::AllocatorType& a);

}  // namespace vendor::brevane::hardware::ostrel::core
