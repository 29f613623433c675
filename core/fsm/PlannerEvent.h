// The events of the planner's state machine.
#pragma once

#include <cstdint>

namespace vendor::brevane::hardware::ostrel::core {

// Held and compared as a signed 8-bit value; 0 and values above 12 are never
// sent and have no effect in any state.
enum PlannerEvent : int8_t {
    BOOT_COMPLETED = 1,
    INSTALL_TESTERS = 2,
    GET_CONFIG = 3,
    SET_CONFIG = 4,
    CLEAR_CONFIG = 5,
    SET_TEST = 6,
    GET_TEST = 7,
    RUN_START = 8,
    TICK = 9,
    RUN_ABORT = 10,
    RUN_FINISHED = 11,
    GET_RESULT = 12,
};

}  // namespace vendor::brevane::hardware::ostrel::core
