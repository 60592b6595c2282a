#include "platform/host/sensor_record.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <string_view>

namespace thermal_host {

namespace {

constexpr std::size_t header_size = 5;
constexpr std::size_t longest_name = 16;
constexpr std::uint8_t controller_address = 0x20;
constexpr std::uint8_t system_board = 0x07;
constexpr std::uint8_t all_six = 0x3F;

struct unit_row {
    std::string_view unit;
    std::uint8_t sensor_type;
    std::uint8_t base_unit;
    bool is_percentage;
};
constexpr std::uint8_t other_units = 0x0B;
constexpr unit_row unit_rows[] = {
    {"°C", 0x01, 1, false}, {"rpm", 0x04, 18, false},    {"W", other_units, 6, false}, {"V", 0x02, 4, false},
    {"A", 0x03, 5, false},  {"%", other_units, 0, true}, {"", other_units, 0, false},  // any other
};

const unit_row& row_of(std::string_view unit) {
    const auto found = std::ranges::find(unit_rows, unit, &unit_row::unit);
    return found != std::end(unit_rows) ? *found : *std::prev(std::end(unit_rows));
}

// digits * 10^exponent
struct decimal {
    long digits = 0;   // 10 bits with sign
    int exponent = 0;  // 4 bits with sign
};

decimal decimal_of(double value) {
    constexpr int most_digits = 511;
    constexpr int lowest_exponent = -8;
    constexpr int highest_exponent = 7;
    if (!std::isfinite(value)) {
        return {};
    }
    int exponent = lowest_exponent;
    double digits = std::round(value / std::pow(10.0, exponent));
    while (std::abs(digits) > most_digits && exponent < highest_exponent) {
        ++exponent;
        digits = std::round(value / std::pow(10.0, exponent));
    }
    decimal result{std::lround(std::clamp<double>(digits, -most_digits, most_digits)), exponent};
    while (result.exponent < 0 && result.digits % 10 == 0) {
        result.digits /= 10;
        ++result.exponent;
    }
    return result;
}

std::uint8_t low_byte(long value) { return static_cast<std::uint8_t>(value & 0xFF); }

// Bits 8 and 9, where a record wants them.
std::uint8_t high_bits(long value) { return static_cast<std::uint8_t>((value >> 8 & 3) << 6); }

void add_name(std::vector<std::uint8_t>& record, std::string_view name) {
    constexpr std::uint8_t eight_bit_characters = 0xC0;
    name = name.substr(0, longest_name);
    record.push_back(static_cast<std::uint8_t>(eight_bit_characters | name.size()));
    for (const char character : name) {
        const bool is_plain = character >= ' ' && character <= '~';
        record.push_back(static_cast<std::uint8_t>(is_plain ? character : '?'));
    }
}

}  // namespace

std::vector<std::uint8_t> sensor_record(std::uint16_t record, sensor_id id, const sensor_definition& about,
                                        const sensor_thresholds& thresholds) {
    const double k2 = static_cast<double>(about.k2);
    const decimal slope = decimal_of(static_cast<double>(about.m) / k2);
    const decimal offset = decimal_of(static_cast<double>(about.b) / k2 / std::pow(10.0, slope.exponent));
    const unit_row& unit = row_of(about.unit);
    const auto threshold = [&thresholds](std::size_t index) { return thresholds[index].value_or(0); };
    std::vector<std::uint8_t> bytes{
        // clang-format off
        low_byte(record), low_byte(record >> 8), 0x51, 0x01, 0,
        controller_address, id.lun, id.number,
        system_board, 1,
        0x01,        // scanning is on from the start
        0x4B,        // alarms end by themselves, thresholds can be read and set, no event messages
        unit.sensor_type, 0x01,
        0x00, 0x70,  // the state tells about all lower thresholds,
        0x00, 0x70,  // about all upper ones,
        all_six, all_six,
        static_cast<std::uint8_t>(unit.is_percentage ? 1 : 0), unit.base_unit, 0,
        0,           // linear
        low_byte(slope.digits), high_bits(slope.digits),
        low_byte(offset.digits), high_bits(offset.digits), 0,
        static_cast<std::uint8_t>((slope.exponent & 15) << 4 | (offset.exponent & 15)),
        0, 0, 0, 0,  // no nominal readings
        0xFF, 0x00,  // highest and lowest reading
        threshold(5), threshold(4), threshold(3), threshold(2), threshold(1), threshold(0),
        0, 0, 0, 0,  // no hysteresis
        0,
        // clang-format on
    };
    add_name(bytes, about.name);
    bytes[header_size - 1] = static_cast<std::uint8_t>(bytes.size() - header_size);
    return bytes;
}

}  // namespace thermal_host
