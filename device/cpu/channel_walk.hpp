#pragma once

#include <cstdint>

#include "foundation/export.hpp"

class common_thermal_device;
class host_cpu_interface;

// The way to a processor, as the last of a device's channels has it. While `active`, the channel is not null.
struct cpu_connection {
    host_cpu_interface* channel = nullptr;
    std::uint8_t address = 0;
    bool active = false;
};

// Not active without a channel.
THERMAL_API cpu_connection last_cpu_connection(const common_thermal_device& device);
