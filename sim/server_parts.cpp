#include "sim/server_parts.hpp"

#include <algorithm>
#include <stdexcept>

#include "sim/heat_parts.hpp"

namespace sim {

namespace {

using enum sensor_face;
constexpr auto in_main = air_zone::main;
constexpr auto in_power = air_zone::power;
constexpr auto in_storage = air_zone::storage;
constexpr auto by_processor = load_kind::processor;
constexpr auto by_memory = load_kind::memory;
constexpr auto by_storage = load_kind::storage;
constexpr auto by_adapter = load_kind::adapter;
constexpr double none = part_kind::no_limit;
constexpr double tjmax = processor_tjmax_c;

// Powers are chosen within the usual range of such parts, limits as makers of such parts state them.
// clang-format off
constexpr part_kind kinds[] = {
    // name          first  count zone        load          heat model          idle   full  limit sensor         port                     record in table
    {"ambient",       0,     1, in_main,    by_adapter,   air_sensor,         0.0,   0.0,  none, fpga_record,   fpga_record_block, 0},
    {"sata",          1,     8, in_main,    by_storage,   sata_drive,         3.0,   7.0,  60.0, degrees,       bay_temperatures},
    {"nvme",          1,    16, in_main,    by_storage,   nvme_drive,         4.0,  12.0,  70.0, drive_record},
    {"dimm",          1,     8, in_main,    by_memory,    memory_module_ddr,  1.5,   6.0,  85.0, memory_module},
    {"cpu",           1,     1, in_main,    by_processor, processor_250w,    55.0, 250.0, tjmax, processor},
    {"cpu_vr",        1,     1, in_main,    by_processor, voltage_regulator,  4.0,  18.0, 105.0, fpga_record,   fpga_record_block, 2},
    {"dimm_vr",       1,     1, in_main,    by_memory,    voltage_regulator,  2.0,   8.0, 105.0, fpga_record,   fpga_record_block, 4, false},
    {"dimm",          9,     8, in_main,    by_memory,    memory_module_ddr,  1.5,   6.0,  85.0, memory_module},
    {"cpu",           2,     1, in_main,    by_processor, processor_250w,    55.0, 250.0, tjmax, processor},
    {"cpu_vr",        2,     1, in_main,    by_processor, voltage_regulator,  4.0,  18.0, 105.0, fpga_record,   fpga_record_block_2, 0},
    {"dimm_vr",       2,     1, in_main,    by_memory,    voltage_regulator,  2.0,   8.0, 105.0, fpga_record,   fpga_record_block_2, 2, false},
    {"pch",           0,     1, in_main,    by_adapter,   chipset,            8.0,  14.0,  95.0, degrees,       pch_temperature},
    {"retimer",       0,     1, in_main,    by_adapter,   retimer,            3.0,   7.0,  95.0, degrees,       retimer_temperature, 0, false},
    {"adapter",       0,     1, in_main,    by_adapter,   adapter_200w,      30.0, 200.0,  90.0, tmp75,         adapter_chip},
    {"switch",        0,     1, in_main,    by_adapter,   switch_chip,       40.0,  90.0, 100.0, millidegrees,  switch_temperature},
    {"psu_inlet",     1,     2, in_power,   by_adapter,   air_sensor,         0.0,   0.0,  none, degrees,       psu_inlet_temperatures, 0, false},
    {"power_vr",      0,     1, in_power,   by_adapter,   voltage_regulator,  6.0,  20.0,  85.0, fpga_record,   fpga_record_block, 6},
    {"battery",       0,     1, in_storage, by_storage,   raid_battery,       0.1,   1.0,  55.0, degrees,       battery_temperature},
    {"raid",          0,     1, in_storage, by_storage,   raid_card,          8.0,  15.0, 100.0, degrees,       raid_temperature},
    {"storage",       0,     1, in_storage, by_storage,   board_area,         1.0,   5.0,  60.0, lm92,          storage_chip, 0, false},
    {"m2_air",        0,     1, in_storage, by_storage,   air_sensor,         0.0,   0.0,  none, tmp75,         m2_ambient_chip, 0, false},
    {"m2_",           1,     2, in_storage, by_storage,   nvme_drive,         1.0,   6.0,  75.0, degrees,       m2_temperatures},
    {"boot",          0,     1, in_storage, by_storage,   nvme_drive,         1.0,   5.0,  75.0, boot_record},
};
// clang-format on

std::vector<server_part> make_parts() {
    std::vector<server_part> parts;
    for (const part_kind& kind : kinds) {
        for (unsigned i = 0; i < kind.count; ++i) {
            const unsigned number = std::max(kind.first, 1u) + i;
            parts.push_back({kind, kind.name + (kind.first != 0 ? std::to_string(number) : std::string()), number});
        }
    }
    return parts;
}

std::vector<part_group> make_groups() {
    std::vector<part_group> groups;
    for (std::size_t index = 0; index < server_parts().size(); ++index) {
        const server_part& part = server_parts()[index];
        auto group = std::ranges::find(groups, std::string_view(part.name),
                                       [](const part_group& row) { return std::string_view(row.name); });
        if (group == groups.end()) {
            group = groups.insert(group, {part.name, {}, part.limit_c, part.in_table});
        }
        group->parts.push_back(index);
    }
    return groups;
}

}  // namespace

std::span<const server_part> server_parts() {
    static const std::vector<server_part> parts = make_parts();
    return parts;
}

std::span<const part_group> part_groups() {
    static const std::vector<part_group> groups = make_groups();
    return groups;
}

std::span<const std::size_t> find_server_parts(std::string_view name) {
    for (const part_group& group : part_groups()) {
        if (name == group.name) {
            return group.parts;
        }
        const auto part = std::ranges::find(
            group.parts, name, [](std::size_t index) { return std::string_view(server_parts()[index].full_name); });
        if (part != group.parts.end()) {
            return {part, 1};
        }
    }
    return {};
}

std::size_t find_server_part(std::string_view name) {
    const auto found = find_server_parts(name);
    if (found.size() != 1) {
        throw std::out_of_range("no single part: " + std::string(name));
    }
    return found.front();
}

}  // namespace sim
