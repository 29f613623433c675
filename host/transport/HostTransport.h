// The host transport's shared pieces: the one bus connection of a service
// process, the D-Bus names derived from the HIDL name, and UTF-8 repair.
#pragma once

#include <sdbus-c++/sdbus-c++.h>

#include <memory>
#include <string>

namespace vendor::brevane::hardware::ostrel::V2_0::host {

constexpr const char* kInterfaceName = "vendor.brevane.hardware.ostrel.V2_0.IOstrel";
constexpr const char* kObjectPathPrefix = "/vendor/brevane/hardware/ostrel/V2_0/IOstrel/";
constexpr const char* kInvalidArgs = "org.freedesktop.DBus.Error.InvalidArgs";

// An instance name must fit both a bus-name element and an object-path element.
bool validInstanceName(const std::string& instance);
std::string busNameFor(const std::string& instance);
std::string objectPathFor(const std::string& instance);

// Returns |text| with every byte sequence that is not valid UTF-8 (and every
// NUL, which a D-Bus string cannot hold) replaced by U+FFFD.
std::string repairUtf8(const char* text, size_t size);

// The connection that exported objects live on and that joinRpcThreadpool
// serves; opened on first use (the system bus, or DBUS_SYSTEM_BUS_ADDRESS).
class ServerConnection {
  public:
    static ServerConnection& get();
    sdbus::IConnection& connection();
    // Keeps an exported object alive for the life of the process.
    void keep(std::shared_ptr<void> object);
    bool hasObjects() const { return !objects.empty(); }
    bool configured = false;

  private:
    std::unique_ptr<sdbus::IConnection> conn;
    std::vector<std::shared_ptr<void>> objects;
};

}  // namespace vendor::brevane::hardware::ostrel::V2_0::host
