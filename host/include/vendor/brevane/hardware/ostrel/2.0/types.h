// Host declaration of vendor.brevane.hardware.ostrel@2.0 types.hal.
#pragma once

#include <cstdint>

namespace vendor {
namespace brevane {
namespace hardware {
namespace ostrel {
namespace V2_0 {

enum class OstrelState : uint8_t {
    IDLE = 0,
    PREPARING = 1,
    RUNNING = 2,
    COMPLETING = 3,
};

}  // namespace V2_0
}  // namespace ostrel
}  // namespace hardware
}  // namespace brevane
}  // namespace vendor
