// Host declaration of vendor.brevane.hardware.ostrel@2.0::IOstrel, written to
// match what hidl-gen generates from 2.0/IOstrel.hal (a CTest check compares the
// two). Methods are in the interface's declaration order.
#pragma once

#include <android/hidl/base/1.0/IBase.h>
#include <hidl/HidlSupport.h>
#include <hidl/Status.h>
#include <utils/Errors.h>
#include <utils/StrongPointer.h>
#include <vendor/brevane/hardware/ostrel/2.0/types.h>

#include <functional>
#include <string>

namespace vendor {
namespace brevane {
namespace hardware {
namespace ostrel {
namespace V2_0 {

struct IOstrel : public ::android::hidl::base::V1_0::IBase {
    using getConfig_cb = std::function<void(const ::android::hardware::hidl_string& config,
                                            const ::android::hardware::hidl_string& log)>;
    virtual ::android::hardware::Return<void> getConfig(getConfig_cb _hidl_cb) = 0;

    using setConfig_cb =
            std::function<void(bool ok, const ::android::hardware::hidl_string& log)>;
    virtual ::android::hardware::Return<void> setConfig(
            const ::android::hardware::hidl_string& config, setConfig_cb _hidl_cb) = 0;

    using clearConfig_cb =
            std::function<void(bool ok, const ::android::hardware::hidl_string& log)>;
    virtual ::android::hardware::Return<void> clearConfig(clearConfig_cb _hidl_cb) = 0;

    virtual ::android::hardware::Return<::vendor::brevane::hardware::ostrel::V2_0::OstrelState>
    getState() = 0;

    virtual ::android::hardware::Return<bool> runStart() = 0;
    virtual ::android::hardware::Return<bool> runAbort() = 0;
    virtual ::android::hardware::Return<bool> runFinished() = 0;
    virtual ::android::hardware::Return<bool> bootCompleted() = 0;

    using installTesters_cb =
            std::function<void(bool ok, const ::android::hardware::hidl_string& log)>;
    virtual ::android::hardware::Return<void> installTesters(
            const ::android::hardware::hidl_string& file,
            const ::android::hardware::hidl_array<uint8_t, 65536>& data, uint32_t len,
            installTesters_cb _hidl_cb) = 0;

    using getTest_cb = std::function<void(const ::android::hardware::hidl_string& test,
                                          const ::android::hardware::hidl_string& log)>;
    virtual ::android::hardware::Return<void> getTest(getTest_cb _hidl_cb) = 0;

    using setTest_cb =
            std::function<void(bool ok, const ::android::hardware::hidl_string& log)>;
    virtual ::android::hardware::Return<void> setTest(const ::android::hardware::hidl_string& test,
                                                      setTest_cb _hidl_cb) = 0;

    using getResult_cb = std::function<void(const ::android::hardware::hidl_string& result,
                                            const ::android::hardware::hidl_string& log)>;
    virtual ::android::hardware::Return<void> getResult(getResult_cb _hidl_cb) = 0;

    // Registration and lookup, provided by the host transport over D-Bus.
    ::android::status_t registerAsService(const std::string& serviceName = "default");
    static ::android::sp<IOstrel> getService(const std::string& serviceName = "default",
                                             bool getStub = false);
};

}  // namespace V2_0
}  // namespace ostrel
}  // namespace hardware
}  // namespace brevane
}  // namespace vendor
