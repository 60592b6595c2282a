#include "device/chip_reads.hpp"

#include <array>

#include "foundation/float_conversion.hpp"
#include "foundation/log_masks.hpp"

namespace {

struct chip_row {
    const char* label;      // in log lines
    const char* not_bound;  // log line
    bool logs_both_bytes;
    int (*degrees)(std::uint8_t high, std::uint8_t low);
};

// In the order of the chips' numbers.
// clang-format off
constexpr std::array<chip_row, 4> chips{{
    {"tmp75",    "Therm Dev tmp75  - Device Port not bound \n", true,  tmp75_degrees},
    {"",         "LMP7 Therm Dev  - Device Port not bound \n",  false, first_byte_degrees},
    {"",         "LM92 Therm Dev  - Device Port not bound \n",  true,  lm92_degrees},
    {"emc1001 ", "Therm Dev emc1001  - Port not bound",         false, first_byte_degrees},
}};
// clang-format on

float read_chip(common_thermal_utils& port, const chip_row& chip) {
    if (!port.is_bound()) {
        LOG::log(log_source, log_mask::life_cycle, "%s", chip.not_bound);
        return no_chip_reading;
    }
    constexpr std::uint8_t temperature_register = 0;
    std::array<std::uint8_t, 2> raw{};
    if (!port.write_read_port_block(&temperature_register, 1, raw.data(), raw.size())) {
        LOG::log(log_source, log_mask::sensor, "Thermal Dev %s - Block Port Read Failed : Status %d\n", chip.label, 0);
        return no_chip_reading;
    }
    const auto degrees = static_cast<float>(chip.degrees(raw[0], raw[1]));
    if (chip.logs_both_bytes) {
        LOG::log(log_source, log_mask::life_cycle, "Therm Dev %s - rawRead = 0x%x:0x%x\n", chip.label, +raw[0],
                 +raw[1]);
    } else {
        LOG::log(log_source, log_mask::life_cycle, "Therm Dev %s - rawRead = 0x%x\n", chip.label, +raw[0]);
    }
    LOG::log(log_source, log_mask::life_cycle, "Thermal Dev %s - Temperature = %3.1fC\n", chip.label, shown(degrees));
    return degrees;
}

}  // namespace

float read_temperature_chip(common_thermal_utils& port, temperature_chip chip) {
    return read_chip(port, chips[static_cast<std::size_t>(chip) - 1]);
}

bool read_chip_by_number(common_thermal_utils& port, std::uint32_t chip_number, float& reading) {
    if (chip_number < 1 || chip_number > chips.size()) {
        LOG::log(log_source, log_mask::sensor, "Thermal Dev - Unknown Port Type : %d\n", static_cast<int>(chip_number));
        return false;
    }
    reading = read_chip(port, chips[chip_number - 1]);
    return true;
}
