#pragma once

#include <cstdint>

#include "foundation/export.hpp"

// A sleep in whole seconds of the monotonic clock. The end second still sleeps. A clock that cannot be read counts as
// awake, and set() then leaves no nap. `sleeper` and `now` only show up in log lines.
class THERMAL_API nap {
public:
    void set(const char* sleeper, unsigned long now, std::uint8_t seconds);
    bool check(const char* sleeper, unsigned long now);

private:
    std::uint32_t _until = 0;  // 0: awake
};
