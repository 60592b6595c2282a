#pragma once

#include "platform/api.hpp"

// Events for the firmware's other parts, which log them or pass them on to an operator.
constexpr unsigned fan_policy_event = 254;            // carries a fan_policy_change
constexpr unsigned power_limit_exceeded_event = 328;  // an operator allows a card more than the machine's own data
constexpr unsigned power_limit_within_event = 329;    // no card is allowed more any longer

// Names of two fan policies, each ended by a zero byte. A policy without a name is empty.
struct fan_policy_change {
    char old_name[64];
    char new_name[64];
};
static_assert(sizeof(fan_policy_change) == 128);

// Raises the event and returns at once, 0 for success. The payload is good for the call only, and null where the event
// carries nothing.
PLATFORM_API int sw_msg_dispatcher(unsigned id, const void* payload);
