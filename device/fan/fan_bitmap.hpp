#pragma once

#include <cstddef>
#include <cstdint>

// Where a fan stands in a pair of 32-bit properties, a bit for each fan.
struct fan_bit {
    std::size_t bitmap;  // 0 for fans 1 to 32, 1 for fans 33 to 64
    std::uint32_t mask;  // 0 for a fan that has no bit
};

constexpr fan_bit fan_bit_of(std::uint32_t fan) {
    constexpr std::uint32_t width = 32;
    if (fan < 1 || fan > 2 * width) {
        return {0, 0};
    }
    return {(fan - 1) / width, std::uint32_t{1} << (fan - 1) % width};
}
