#pragma once

#include <cstdint>
#include <limits>

// Truncates toward zero and saturates: NaN and whatever is negative give 0, 4294967296.0 and above all ones.
// Narrower fields keep the low bits of the result, so a duty of 300.0 becomes 44.
constexpr std::uint32_t saturate_to_unsigned(float value) {
    if (!(value > 0.0f)) {
        return 0;
    }
    return value >= 4294967296.0f ? std::numeric_limits<std::uint32_t>::max() : static_cast<std::uint32_t>(value);
}

constexpr std::uint16_t saturate_to_word(float value) {
    return static_cast<std::uint16_t>(saturate_to_unsigned(value));
}

constexpr std::uint8_t saturate_to_byte(float value) { return static_cast<std::uint8_t>(saturate_to_unsigned(value)); }

// A float as a printf argument.
constexpr double shown(float value) { return static_cast<double>(value); }
