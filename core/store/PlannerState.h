// The states of the planner's state machine, persisted in the plan.
#pragma once

#include <cstdint>

namespace vendor::brevane::hardware::ostrel::core {

// Persisted in the plan document as "current_state".
enum PlannerFSMState : int8_t {
    IDLE = 0,
    PREPARING = 1,
    RUNNING = 2,
    COMPLETING = 3,
};

// State names indexed by state value, for the reply log of getState.
extern const char* const kStateNames[4];

}  // namespace vendor::brevane::hardware::ostrel::core
