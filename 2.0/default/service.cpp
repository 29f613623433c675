// The Ostrel HAL service process: create the service object, register it as
// "default" and serve calls on this thread. The process only ever ends through
// a failure, so it always exits with status 1.
#define LOG_TAG "vendor.brevane.hardware.ostrel@2.0-service"

#include <hidl/HidlTransportSupport.h>
#include <log/log.h>
#include <utils/Errors.h>
#include <utils/StrongPointer.h>

#include "OstrelImpl.h"

using ::android::sp;
using ::android::hardware::configureRpcThreadpool;
using ::android::hardware::joinRpcThreadpool;
using ::vendor::brevane::hardware::ostrel::V2_0::IOstrel;
using ::vendor::brevane::hardware::ostrel::V2_0::implementation::Ostrel;

int main() {
    sp<IOstrel> service = new Ostrel();
    configureRpcThreadpool(1, true /* callerWillJoin */);
    if (service->registerAsService("default") == ::android::OK) {
        __android_log_print(ANDROID_LOG_INFO, LOG_TAG, "Ostrel HAL service is ready.");
        joinRpcThreadpool();
        __android_log_print(ANDROID_LOG_WARN, LOG_TAG, "Ostrel HAL failed to join thread pool.");
    } else {
        __android_log_print(ANDROID_LOG_WARN, LOG_TAG, "Cannot register Ostrel HAL service");
    }
    service = nullptr;
    return 1;
}
