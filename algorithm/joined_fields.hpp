#pragma once

#include <algorithm>
#include <array>

#include "algorithm/parameter_table.hpp"

// One table of several, for lines that records of several kinds share.
template <class Record, std::size_t... sizes>
constexpr auto joined_fields(const std::array<parameter<Record>, sizes>&... parts) {
    std::array<parameter<Record>, (sizes + ...)> all;
    auto end = all.begin();
    ((end = std::ranges::copy(parts, end).out), ...);
    return all;
}
