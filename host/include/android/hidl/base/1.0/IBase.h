// Host stand-in for android.hidl.base@1.0::IBase: the reference-counted root of
// every HIDL interface.
#pragma once

#include <utils/RefBase.h>

namespace android {
namespace hidl {
namespace base {
namespace V1_0 {

struct IBase : virtual public ::android::RefBase {
    virtual bool isRemote() const { return false; }
};

}  // namespace V1_0
}  // namespace base
}  // namespace hidl
}  // namespace android
