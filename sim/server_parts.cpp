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
constexpr auto by_accelerator = load_kind::accelerator;
constexpr double none = part_kind::no_limit;
constexpr double tjmax = processor_tjmax_c;

// Powers are chosen within the usual range of such parts, limits as makers of such parts state them.
// clang-format off
constexpr part_kind board_kinds[] = {
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
};

constexpr part_kind card_kinds[] = {
    {"gpu",           1,     4, in_main,    by_accelerator, accelerator_300w, 40.0, 300.0,  95.0, card},
    {"nic",           0,     1, in_main,    by_adapter,   raid_card,         10.0,  18.0, 100.0, card,          5},
    {"flash",         0,     1, in_main,    by_storage,   raid_card,          8.0,  15.0,  75.0, card,          6, 0, false},
    {"lan",           0,     1, in_main,    by_adapter,   chipset,            4.0,   8.0, 100.0, card,          7, 0, false},
    {"foreign",       0,     1, in_main,    by_adapter,   raid_card,          8.0,  12.0, 100.0, card,          9, 0, false},
};

constexpr part_kind baseboard_kinds[] = {
    {"gpu",           1,     8, in_main,    by_accelerator, accelerator_300w, 40.0, 250.0,  95.0, card},
};

constexpr part_kind rear_kinds[] = {
    {"psu_inlet",     1,     2, in_power,   by_adapter,   air_sensor,         0.0,   0.0,  none, degrees,       psu_inlet_temperatures, 0, false},
    {"power_vr",      0,     1, in_power,   by_adapter,   voltage_regulator,  6.0,  20.0,  85.0, fpga_record,   fpga_record_block, 6},
    {"battery",       0,     1, in_storage, by_storage,   raid_battery,       0.1,   1.0,  55.0, degrees,       battery_temperature, 0, false},
    {"raid",          0,     1, in_storage, by_storage,   raid_card,          8.0,  15.0, 100.0, degrees,       raid_temperature},
    {"storage",       0,     1, in_storage, by_storage,   board_area,         1.0,   5.0,  60.0, lm92,          storage_chip, 0, false},
    {"m2_air",        0,     1, in_storage, by_storage,   air_sensor,         0.0,   0.0,  none, tmp75,         m2_ambient_chip, 0, false},
    {"m2_",           1,     2, in_storage, by_storage,   nvme_drive,         1.0,   6.0,  75.0, degrees,       m2_temperatures},
    {"boot",          0,     1, in_storage, by_storage,   nvme_drive,         1.0,   5.0,  75.0, boot_record},
};
// clang-format on

// Identities of usual cards; W as their makers state it.
// clang-format off
constexpr slot_plan slots_of_server[] = {
    // slot  card                 asked by             part       vendor  device  subsystem  most W
    {1,  "accelerator",        card_bus::mailbox,   "gpu1",    0x10DE, 0x20B5, 0x1533,    300},
    {2,  "accelerator",        card_bus::mailbox,   "gpu2",    0x10DE, 0x20B5, 0x1533,    300},
    {3,  "accelerator",        card_bus::mailbox,   "gpu3",    0x10DE, 0x20B5, 0x1533,    300},
    {4,  "other accelerator",  card_bus::status,    "gpu4",    0x1002, 0x740F, 0x0C34,    300},
    {5,  "network card",       card_bus::manager,   "nic",     0x15B3, 0x101D, 0x0041,     25},
    {6,  "storage card",       card_bus::drive,     "flash",   0x1179, 0x0110, 0x0001,     25},
    {7,  "gigabit card",       card_bus::network,   "lan",     0x8086, 0x1521, 0x0001,     10},
    {8},
    {9,  "foreign card",       card_bus::none,      "foreign", 0x1AF4, 0x1000, 0x0001,     25},
    {10},
};

constexpr slot_plan slots_of_baseboard[] = {
    {1,  "module",             card_bus::baseboard, "gpu1",    0x10DE, 0x2330, 0x16C0,    250},
    {2,  "module",             card_bus::baseboard, "gpu2",    0x10DE, 0x2330, 0x16C0,    250},
    {3,  "module",             card_bus::baseboard, "gpu3",    0x10DE, 0x2330, 0x16C0,    250},
    {4,  "module",             card_bus::baseboard, "gpu4",    0x10DE, 0x2330, 0x16C0,    250},
    {5,  "module",             card_bus::baseboard, "gpu5",    0x10DE, 0x2330, 0x16C0,    250},
    {6,  "module",             card_bus::baseboard, "gpu6",    0x10DE, 0x2330, 0x16C0,    250},
    {7,  "module",             card_bus::baseboard, "gpu7",    0x10DE, 0x2330, 0x16C0,    250},
    {8,  "module",             card_bus::baseboard, "gpu8",    0x10DE, 0x2330, 0x16C0,    250},
};
// clang-format on

}  // namespace

machine_plan::machine_plan(const char* name, std::initializer_list<std::span<const part_kind>> kinds,
                           std::span<const slot_plan> slots)
    : _name(name), _slots(slots) {
    for (const auto& some : kinds) {
        for (const part_kind& kind : some) {
            for (unsigned i = 0; i < kind.count; ++i) {
                const unsigned number = std::max(kind.first, 1u) + i;
                const std::string suffix = kind.first != 0 ? std::to_string(number) : std::string();
                _parts.push_back({kind, kind.name + suffix, number});
            }
        }
    }
    for (std::size_t index = 0; index < _parts.size(); ++index) {
        const server_part& part = _parts[index];
        auto group = std::ranges::find(_groups, std::string_view(part.name),
                                       [](const part_group& row) { return std::string_view(row.name); });
        if (group == _groups.end()) {
            group = _groups.insert(group, {part.name, {}, part.limit_c, part.in_table});
        }
        group->parts.push_back(index);
    }
}

std::span<const std::size_t> machine_plan::find(std::string_view name) const {
    for (const part_group& group : _groups) {
        if (name == group.name) {
            return group.parts;
        }
        const auto part = std::ranges::find(
            group.parts, name, [this](std::size_t index) { return std::string_view(_parts[index].full_name); });
        if (part != group.parts.end()) {
            return {part, 1};
        }
    }
    return {};
}

std::size_t machine_plan::part(std::string_view name) const {
    const auto found = find(name);
    if (found.size() != 1) {
        throw std::out_of_range("no single part: " + std::string(name));
    }
    return found.front();
}

const machine_plan& socket_server() {
    static const machine_plan plan("server", {board_kinds, card_kinds, rear_kinds}, slots_of_server);
    return plan;
}

const machine_plan& baseboard_server() {
    static const machine_plan plan("baseboard", {board_kinds, baseboard_kinds, rear_kinds}, slots_of_baseboard);
    return plan;
}

}  // namespace sim
