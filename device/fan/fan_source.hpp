#pragma once

#include <cstdint>

// Where the hardware of a tachometer or of a PWM output sits.
enum fan_source : std::uint32_t {
    fan_source_fpga = 1,
    fan_source_nrv = 2,  // the controller's own tachometer inputs; no PWM output
    fan_source_psu = 3,
    fan_source_kpl = 4,  // the enclosure manager
    fan_source_fanmax = 5,
};

// The offset of what is not in the FPGA.
constexpr std::uint32_t no_adi_offset = ~std::uint32_t{0};
