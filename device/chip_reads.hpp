#pragma once

#include <cstdint>

#include "foundation/common_thermal_utils.hpp"

// Temperature chips behind a block port: each reading is a register pointer of one byte out and two bytes in.

// Numbers as board code gives them to set_port_type().
enum class temperature_chip : std::uint32_t { tmp75 = 1, lmp75 = 2, lm92 = 3, emc1001 = 4 };

// What a chip that cannot be read gives.
constexpr float no_chip_reading = -999.0f;

// Whole degrees Celsius from the two register bytes. The fraction is dropped towards zero.
constexpr int tmp75_degrees(std::uint8_t high, std::uint8_t low) {
    const unsigned raw = static_cast<unsigned>(high) << 8 | low;
    return (high & 0x80u) == 0 ? high : -static_cast<int>((0x10000u - raw) >> 8);
}

// Rounds down.
constexpr int lm92_degrees(std::uint8_t high, std::uint8_t low) {
    return static_cast<std::int16_t>(high << 8 | low) >> 7;
}

// The chips without a sign.
constexpr int first_byte_degrees(std::uint8_t high, std::uint8_t) { return high; }

// Degrees Celsius, or `no_chip_reading`.
float read_temperature_chip(common_thermal_utils& port, temperature_chip chip);

// By number. False, with a log line and `reading` as it was, for a number without a chip; a chip that fails is a
// success with `no_chip_reading`.
bool read_chip_by_number(common_thermal_utils& port, std::uint32_t chip_number, float& reading);
