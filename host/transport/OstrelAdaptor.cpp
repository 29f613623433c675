// The service side of IOstrel on the bus: an object exported at the instance's
// path that forwards each D-Bus method to the registered IOstrel, and
// IOstrel::registerAsService, which exports it and then requests the bus name.
#include <vendor/brevane/hardware/ostrel/2.0/IOstrel.h>

#include <utils/Errors.h>

#include <exception>
#include <tuple>
#include <vector>

#include "HostTransport.h"
#include "IOstrelAdaptor.h"

namespace vendor::brevane::hardware::ostrel::V2_0 {
namespace host {
namespace {

using ::android::sp;
using ::android::hardware::hidl_array;
using ::android::hardware::hidl_string;

using TextAnswer = std::tuple<std::string, std::string>;
using BoolAnswer = std::tuple<bool, std::string>;

std::string repaired(const hidl_string& s) {
    return repairUtf8(s.c_str(), s.size());
}

class OstrelAdaptor final : public sdbus::AdaptorInterfaces<IOstrel_adaptor> {
  public:
    OstrelAdaptor(sdbus::IConnection& connection, const std::string& path, sp<IOstrel> service)
        : AdaptorInterfaces(connection, path), service(std::move(service)) {
        registerAdaptor();
    }
    ~OstrelAdaptor() { unregisterAdaptor(); }

  private:
    // Runs one call into the service. A failure that is not the bus's own
    // becomes a D-Bus error for this call; the service keeps serving.
    template <typename Result, typename Call>
    Result serve(const char* method, Call call) {
        try {
            Result result{};
            auto status = call(result);
            if (!status.isOk()) {
                throw sdbus::Error("org.freedesktop.DBus.Error.Failed",
                                   std::string(method) + ": " + status.description());
            }
            return result;
        } catch (const sdbus::Error&) {
            throw;
        } catch (const std::exception& e) {
            throw sdbus::Error("org.freedesktop.DBus.Error.Failed",
                               std::string(method) + ": " + e.what());
        }
    }

    template <typename Method>
    TextAnswer text(const char* name, Method method) {
        return serve<TextAnswer>(name, [&](TextAnswer& out) {
            return ((*service).*method)([&](const hidl_string& answer, const hidl_string& log) {
                out = TextAnswer(repaired(answer), repaired(log));
            });
        });
    }

    template <typename Method>
    bool value(const char* name, Method method) {
        return serve<bool>(name, [&](bool& out) {
            auto ret = ((*service).*method)();
            out = ret.withDefault(false);
            return ret;
        });
    }

    BoolAnswer withBool(const char* name, const std::function<::android::hardware::Return<void>(
                                                  const std::function<void(bool, const hidl_string&)>&)>& call) {
        return serve<BoolAnswer>(name, [&](BoolAnswer& out) {
            return call([&](bool ok, const hidl_string& log) { out = BoolAnswer(ok, repaired(log)); });
        });
    }

    TextAnswer getConfig() override { return text("getConfig", &IOstrel::getConfig); }
    BoolAnswer setConfig(const std::string& config) override {
        hidl_string in(config);
        return withBool("setConfig", [&](const auto& cb) { return service->setConfig(in, cb); });
    }
    BoolAnswer clearConfig() override {
        return withBool("clearConfig", [&](const auto& cb) { return service->clearConfig(cb); });
    }
    uint8_t getState() override {
        return serve<uint8_t>("getState", [&](uint8_t& out) {
            auto ret = service->getState();
            out = static_cast<uint8_t>(static_cast<OstrelState>(ret));
            return ret;
        });
    }
    bool runStart() override { return value("runStart", &IOstrel::runStart); }
    bool runAbort() override { return value("runAbort", &IOstrel::runAbort); }
    bool runFinished() override { return value("runFinished", &IOstrel::runFinished); }
    bool bootCompleted() override { return value("bootCompleted", &IOstrel::bootCompleted); }
    BoolAnswer installTesters(const std::string& file, const std::vector<uint8_t>& data,
                              const uint32_t& len) override {
        // HIDL refuses an array of the wrong size before the service sees it.
        if (data.size() != 65536) {
            throw sdbus::Error(kInvalidArgs,
                               "installTesters: data must hold exactly 65536 bytes, got " +
                                       std::to_string(data.size()));
        }
        hidl_string name(file);
        auto array = std::make_unique<hidl_array<uint8_t, 65536>>();
        std::copy(data.begin(), data.end(), array->data());
        return withBool("installTesters", [&](const auto& cb) {
            return service->installTesters(name, *array, len, cb);
        });
    }
    TextAnswer getTest() override { return text("getTest", &IOstrel::getTest); }
    BoolAnswer setTest(const std::string& test) override {
        hidl_string in(test);
        return withBool("setTest", [&](const auto& cb) { return service->setTest(in, cb); });
    }
    TextAnswer getResult() override { return text("getResult", &IOstrel::getResult); }

    sp<IOstrel> service;
};

}  // namespace

// Asks for the name without queueing: a second service with the same instance
// name is refused instead of silently waiting behind the first.
bool requestName(sdbus::IConnection& connection, const std::string& name) {
    constexpr uint32_t kDoNotQueue = 4;
    constexpr uint32_t kPrimaryOwner = 1;
    constexpr uint32_t kAlreadyOwner = 4;
    auto bus = sdbus::createProxy(connection, "org.freedesktop.DBus", "/org/freedesktop/DBus");
    uint32_t reply = 0;
    bus->callMethod("RequestName")
            .onInterface("org.freedesktop.DBus")
            .withArguments(name, kDoNotQueue)
            .storeResultsTo(reply);
    return reply == kPrimaryOwner || reply == kAlreadyOwner;
}

}  // namespace host

::android::status_t IOstrel::registerAsService(const std::string& serviceName) {
    if (!host::validInstanceName(serviceName)) return ::android::BAD_VALUE;
    try {
        auto& server = host::ServerConnection::get();
        auto& connection = server.connection();
        // Export the object first, so that a client that sees the name can call it.
        auto adaptor = std::make_shared<host::OstrelAdaptor>(
                connection, host::objectPathFor(serviceName), ::android::sp<IOstrel>(this));
        if (!host::requestName(connection, host::busNameFor(serviceName))) {
            return ::android::ALREADY_EXISTS;
        }
        server.keep(adaptor);
    } catch (const sdbus::Error&) {
        return ::android::UNKNOWN_ERROR;
    }
    return ::android::OK;
}

}  // namespace vendor::brevane::hardware::ostrel::V2_0
