#pragma once

#include <cstdint>

#include "platform/api.hpp"

// What an adapter told last. The firmware's own record may hold more; these three are what the library takes.
struct device_temperature_margin {
    std::int32_t margin = 0;    // degrees Celsius; 255 is no reading
    std::uint32_t reading = 0;  // degrees Celsius
    // Of the reading, in the manager's own unit; one that stands still means a quiet adapter.
    std::uint64_t time_stamp = 0;
};

// The firmware's manager of adapters that speak PLDM. It asks them in its own time; a call answers from what it
// remembers and does not block. `key` names an adapter: 0x01, bus, and 16 bits of device.
struct PLATFORM_API pcie_device_manager {
    // 1 makes the manager ask its adapters at all. It reads this in its own time and without a lock.
    static std::uint32_t polling_mode;
    // How often it asks this adapter. Non-zero for success; 0 for an adapter that it does not know, or not yet.
    static int set_polling_interval(std::uint32_t key, std::uint32_t seconds);
    // Seconds; 0 for an adapter that it does not know.
    static std::uint32_t get_polling_interval(std::uint32_t key);
    // Non-zero for success; otherwise `out` is unchanged.
    static int get_device_temperature_margin(std::uint32_t key, device_temperature_margin& out);
};
