#include "sim/server_parts.hpp"

#include <algorithm>

#include "sim/heat_parts.hpp"

namespace sim {

// Powers are chosen within the usual range of such parts, limits as makers of such parts state them.
// clang-format off
const std::array<server_part, server_part_count> server_parts{{
    // name      zone               heat model          idle   full  limit                  sensor
    {"ambient",  air_zone::main,    air_sensor,           0.0,   0.0, server_part::no_limit, sensor_face::fpga_record,  fpga_record_block, 0},
    {"cpu_vr",   air_zone::main,    voltage_regulator,    4.0,  18.0, 105.0,                 sensor_face::fpga_record,  fpga_record_block, 2},
    {"dimm_vr",  air_zone::main,    voltage_regulator,    2.0,   8.0, 105.0,                 sensor_face::fpga_record,  fpga_record_block, 4},
    {"pch",      air_zone::main,    chipset,              8.0,  14.0,  95.0,                 sensor_face::degrees,      pch_temperature},
    {"retimer",  air_zone::main,    retimer,              3.0,   7.0,  95.0,                 sensor_face::degrees,      retimer_temperature},
    {"adapter",  air_zone::main,    adapter_200w,        30.0, 200.0,  90.0,                 sensor_face::tmp75,        adapter_chip},
    {"switch",   air_zone::main,    switch_chip,         40.0,  90.0, 100.0,                 sensor_face::millidegrees, switch_temperature},
    {"psu_inlet",air_zone::power,   air_sensor,           0.0,   0.0, server_part::no_limit, sensor_face::degrees,      psu_inlet_temperature},
    {"power_vr", air_zone::power,   voltage_regulator,    6.0,  20.0,  85.0,                 sensor_face::fpga_record,  fpga_record_block, 6},
    {"battery",  air_zone::storage, raid_battery,         0.1,   1.0,  55.0,                 sensor_face::degrees,      battery_temperature},
    {"raid",     air_zone::storage, raid_card,            8.0,  15.0, 100.0,                 sensor_face::degrees,      raid_temperature},
    {"storage",  air_zone::storage, board_area,           1.0,   5.0,  60.0,                 sensor_face::lm92,         storage_chip},
}};
// clang-format on

std::optional<std::size_t> find_server_part(std::string_view name) {
    const auto* found = std::ranges::find(server_parts, name, &server_part::name);
    if (found == server_parts.end()) {
        return std::nullopt;
    }
    return static_cast<std::size_t>(found - server_parts.begin());
}

}  // namespace sim
