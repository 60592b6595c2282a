#pragma once

#include <cstdint>

#include "platform/api.hpp"

// The two clocks. Neither call blocks.
namespace platform_clock {

// Nanoseconds since 1970; may jump when somebody sets the time. Stamps readings and records, never measures a wait.
PLATFORM_API std::int64_t wall_nanoseconds();

// Whole seconds of a clock that is never set; naps and hold times run on it.
// False if the clock cannot be read; `seconds` is then unchanged.
PLATFORM_API bool monotonic_seconds(std::uint64_t& seconds);

}  // namespace platform_clock
