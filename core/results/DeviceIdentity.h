// The device a run was made on, as the platform tells it: on Android the build
// fingerprint and model (a vendor service may not read the serial number; a lab
// gives it to the report as a device label), on a Linux host the host name, OS
// and kernel. Each platform adds an id of its own for Ostrel ("device_id"),
// never the machine's own: the machine id is confidential.
#pragma once

#include <rapidjson/document.h>

#include <string>

namespace vendor::brevane::hardware::ostrel::core {

// Adds the platform's identity members to |device|, an object.
void describeDevice(rapidjson::Value* device, rapidjson::Document::AllocatorType& a);

// The id kept in |path|, made of 16 random bytes (32 hex digits) and kept there
// on first use (a device without a machine id keeps its own in kDeviceIdFile); "" when it can be neither read nor made.
std::string keptDeviceId(const char* path);

}  // namespace vendor::brevane::hardware::ostrel::core
