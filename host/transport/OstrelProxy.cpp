// The client side of IOstrel on the bus: IOstrel::getService returns a proxy
// whose methods call the service's object and hand the answers to the caller's
// callbacks, as a HIDL proxy does. A call that fails on the bus returns a
// Return that is not ok (its description is the D-Bus error) and calls no
// callback.
#include <vendor/brevane/hardware/ostrel/2.0/IOstrel.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <thread>
#include <vector>

#include "HostTransport.h"
#include "IOstrelProxy.h"

namespace vendor::brevane::hardware::ostrel::V2_0 {
namespace host {
namespace {

using ::android::hardware::hidl_array;
using ::android::hardware::hidl_string;
using ::android::hardware::Return;
using ::android::hardware::Status;
using ::android::hardware::Void;

Status transportError(const sdbus::Error& e) {
    return Status::fromTransportError(e.getName() + ": " + e.getMessage());
}

class BusOstrel final : public sdbus::ProxyInterfaces<IOstrel_proxy> {
  public:
    // Uses |connection| without an event loop of its own: every call is synchronous.
    BusOstrel(sdbus::IConnection& connection, const std::string& name, const std::string& path)
        : ProxyInterfaces(connection, name, path) {
        registerProxy();
    }
    ~BusOstrel() { unregisterProxy(); }
};

class OstrelClient : public IOstrel {
  public:
    OstrelClient(std::unique_ptr<sdbus::IConnection> connection, const std::string& name,
                 const std::string& path)
        : connection(std::move(connection)),
          bus(std::make_unique<BusOstrel>(*this->connection, name, path)) {}

    bool isRemote() const override { return true; }

    Return<void> getConfig(getConfig_cb cb) override {
        return text([&] { return bus->getConfig(); }, cb);
    }
    Return<void> setConfig(const hidl_string& config, setConfig_cb cb) override {
        return withBool([&] { return bus->setConfig(config); }, cb);
    }
    Return<void> clearConfig(clearConfig_cb cb) override {
        return withBool([&] { return bus->clearConfig(); }, cb);
    }
    Return<OstrelState> getState() override {
        try {
            return static_cast<OstrelState>(bus->getState());
        } catch (const sdbus::Error& e) {
            return transportError(e);
        }
    }
    Return<bool> runStart() override { return value([&] { return bus->runStart(); }); }
    Return<bool> runAbort() override { return value([&] { return bus->runAbort(); }); }
    Return<bool> runFinished() override { return value([&] { return bus->runFinished(); }); }
    Return<bool> bootCompleted() override { return value([&] { return bus->bootCompleted(); }); }
    Return<void> installTesters(const hidl_string& file, const hidl_array<uint8_t, 65536>& data,
                                uint32_t len, installTesters_cb cb) override {
        std::vector<uint8_t> bytes(data.data(), data.data() + data.size());
        return withBool([&] { return bus->installTesters(file, bytes, len); }, cb);
    }
    Return<void> getTest(getTest_cb cb) override {
        return text([&] { return bus->getTest(); }, cb);
    }
    Return<void> setTest(const hidl_string& test, setTest_cb cb) override {
        return withBool([&] { return bus->setTest(test); }, cb);
    }
    Return<void> getResult(getResult_cb cb) override {
        return text([&] { return bus->getResult(); }, cb);
    }

  private:
    template <typename Call, typename Callback>
    Return<void> text(Call call, Callback& cb) {
        std::tuple<std::string, std::string> answer;
        try {
            answer = call();
        } catch (const sdbus::Error& e) {
            return transportError(e);
        }
        cb(hidl_string(std::get<0>(answer)), hidl_string(std::get<1>(answer)));
        return Void();
    }

    template <typename Call, typename Callback>
    Return<void> withBool(Call call, Callback& cb) {
        std::tuple<bool, std::string> answer;
        try {
            answer = call();
        } catch (const sdbus::Error& e) {
            return transportError(e);
        }
        cb(std::get<0>(answer), hidl_string(std::get<1>(answer)));
        return Void();
    }

    template <typename Call>
    Return<bool> value(Call call) {
        try {
            return call();
        } catch (const sdbus::Error& e) {
            return transportError(e);
        }
    }

    std::unique_ptr<sdbus::IConnection> connection;
    std::unique_ptr<BusOstrel> bus;
};

bool nameHasOwner(sdbus::IConnection& connection, const std::string& name) {
    auto bus = sdbus::createProxy(connection, "org.freedesktop.DBus", "/org/freedesktop/DBus");
    bool owned = false;
    bus->callMethod("NameHasOwner")
            .onInterface("org.freedesktop.DBus")
            .withArguments(name)
            .storeResultsTo(owned);
    return owned;
}

// A service that is starting (a restart, a boot) gets a few seconds to take its
// name, as a HIDL client waits for a declared HAL; one line after the first second.
bool waitForOwner(sdbus::IConnection& connection, const std::string& name,
                  const std::string& instance) {
    constexpr auto kPoll = std::chrono::milliseconds(20);
    constexpr int kPollsPerSecond = 50;
    constexpr int kSeconds = 5;
    for (int poll = 0; poll < kSeconds * kPollsPerSecond; poll++) {
        if (nameHasOwner(connection, name)) return true;
        if (poll == kPollsPerSecond) {
            fprintf(stderr, "Waited one second for %s/%s\n", "vendor.brevane.hardware.ostrel@2.0::IOstrel",
                    instance.c_str());
        }
        std::this_thread::sleep_for(kPoll);
    }
    return nameHasOwner(connection, name);
}

}  // namespace
}  // namespace host

::android::sp<IOstrel> IOstrel::getService(const std::string& serviceName, bool /*getStub*/) {
    if (!host::validInstanceName(serviceName)) return nullptr;
    try {
        auto connection = sdbus::createSystemBusConnection();
        // Calls wait for their answer as binder calls do: getResult packs a whole
        // run, and a 10 MB plan on a busy device can take longer than the bus's
        // 25-second default. A service that dies still ends the call with an error.
        connection->setMethodCallTimeout(UINT64_MAX);
        std::string name = host::busNameFor(serviceName);
        if (!host::waitForOwner(*connection, name, serviceName)) return nullptr;
        return new host::OstrelClient(std::move(connection), name,
                                      host::objectPathFor(serviceName));
    } catch (const sdbus::Error&) {
        return nullptr;
    }
}

}  // namespace vendor::brevane::hardware::ostrel::V2_0
