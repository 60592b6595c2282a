#pragma once

#include <cstdint>

#include "platform/api.hpp"

// The enclosure manager of a shared chassis, which drives fans for several servers.
struct PLATFORM_API kpl_logical_device {
    // Asks for a cooling value in percent; 0 for success, non-zero also where there is no enclosure manager.
    static int set_cooling_value(std::uint8_t value);
};
