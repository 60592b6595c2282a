#pragma once

#include <cstdint>

#include "platform/devices.hpp"

// What the memory modules tell about themselves, as the firmware read it when the host started. `index` counts the
// board's modules from 0. 0 means not known: no module, not read yet, or no such index. No call blocks.
class PLATFORM_API dimm_spd_logical_device : public logical_device {
public:
    // Where DM::find_logical_device_instance() finds the board's only one.
    static constexpr const char* path = ".planar_controller.system_board.spd";

    using logical_device::logical_device;
    ~dimm_spd_logical_device() override;

    // The module's size; the unit is the firmware's.
    virtual std::uint32_t get_dimm_size(unsigned index) const = 0;
    // Bits that tell the kind of memory; the encoding is the firmware's.
    virtual std::uint32_t get_dimm_type_detail(unsigned index) const = 0;
};
