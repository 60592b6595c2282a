#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <limits>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "sim/heat_model.hpp"
#include "sim/server_slots.hpp"

// What the simulated server is made of: the ports that its firmware offers, its parts and its fans. The board binds
// devices to the ports, the physics stands behind them.
namespace sim {

constexpr unsigned fpga_capability_block = 10;
constexpr unsigned fpga_record_block = 11;  // records of two bytes, at 5 + the record's offset
constexpr unsigned fan_block = 12;          // five bytes a fan: duty, tachometer, five-byte records counted from 0
constexpr unsigned fan_info_number = 13;
constexpr unsigned system_power_number = 14;  // W
constexpr unsigned fpga_record_block_2 = 16;  // of the second socket
constexpr unsigned exhaust_volume_number = 17;
constexpr unsigned exhaust_factor_number = 18;
constexpr unsigned airflow_block = 19;  // write-read: a status and a count of 16 bits, high byte first
constexpr unsigned pch_present_bit = 20;
constexpr unsigned retimer_present_bit = 22;
constexpr unsigned raid_present_bit = 23;
constexpr unsigned baseboard_present_bit = 24;  // carries the link switch
constexpr unsigned power_permission_bit = 25;   // this controller's vote for host power
constexpr unsigned backplane_present_bit = 26;
constexpr unsigned m2_ambient_present_bit = 27;
constexpr unsigned pch_temperature = 30;
constexpr unsigned retimer_temperature = 32;
constexpr unsigned raid_temperature = 33;
constexpr unsigned battery_temperature = 34;
constexpr unsigned switch_temperature = 35;
constexpr unsigned adapter_chip = 40;
constexpr unsigned storage_chip = 41;
constexpr unsigned m2_ambient_chip = 42;
constexpr unsigned backplane_block = 43;
constexpr const char* storage_fan_duty_key = "storage_fan.duty";
constexpr const char* storage_fan_tach_key = "storage_fan.tach";
// The requester of dust filter measurements leaves its request here and finds the answer.
constexpr const char* dust_filter_key = "CIO_AIRFLOW_MEASUREMENT_STATUS";

// Of several alike: the port of the first, which counts from 1, is one above.
constexpr unsigned psu_present_bits = 50;
constexpr unsigned psu_inlet_temperatures = 52;
constexpr unsigned psu_tach_numbers = 54;  // rpm
constexpr unsigned m2_present_bits = 56;
constexpr unsigned m2_temperatures = 58;
constexpr unsigned m2_thresholds = 60;
constexpr unsigned socket_registers = 62;
constexpr unsigned socket_throttle_bits = 64;  // the pin of the FPGA
constexpr unsigned socket_throttle_outputs = 66;
constexpr unsigned module_present_bits = 1000;
constexpr unsigned bay_temperatures = 1100;

constexpr unsigned sockets = 2;
constexpr unsigned memory_channels = 8;  // four a processor
constexpr unsigned channels_a_socket = memory_channels / sockets;
constexpr unsigned modules_a_channel = 2;
constexpr unsigned memory_modules = memory_channels * modules_a_channel;
constexpr unsigned sata_bays = 8;  // the first ones; in all others are NVMe drives
constexpr unsigned nvme_bays = 16;
constexpr unsigned drive_bays = sata_bays + nvme_bays;
constexpr unsigned m2_drives = 2;
constexpr unsigned power_supplies = 2;

// Where a module sits, both channel and index counted from 0.
struct memory_place {
    unsigned socket;
    std::uint8_t channel;
    std::uint8_t index;
};
constexpr memory_place place_of_module(unsigned module) {
    const unsigned channel = (module - 1) / modules_a_channel;
    return {1 + channel / channels_a_socket, static_cast<std::uint8_t>(channel % channels_a_socket),
            static_cast<std::uint8_t>((module - 1) % modules_a_channel)};
}

constexpr double processor_tjmax_c = 95.0;
constexpr double processor_tdp_w = 250.0;

// How a part's temperature is read.
enum class sensor_face {
    degrees,
    millidegrees,
    fpga_record,
    tmp75,
    lm92,
    processor,
    memory_module,
    drive_record,
    boot_record,
    card  // through the bus of its slot, whose number stands as its port
};

// What a load profile drives on its own. Parts that serve all are with the adapters.
enum class load_kind { processor, memory, storage, adapter, accelerator };
constexpr std::array<const char*, 5> load_names{"processor", "memory", "storage", "adapter", "accelerator"};

// Air channels of the server, each with its own fans.
enum class air_zone { main, power, storage };
constexpr std::array<const char*, 3> air_zone_names{"main", "power", "storage"};

// Parts that are alike and stand one behind the other.
struct part_kind {
    static constexpr double no_limit = std::numeric_limits<double>::infinity();

    const char* name = "";  // of a part where there is one; otherwise its number is appended, "cpu2"
    unsigned first = 0;     // number of the first, 0 for a part that is the only one
    unsigned count = 1;
    air_zone zone = air_zone::main;
    load_kind load = load_kind::adapter;
    part_parameters (*make)(std::string name) = nullptr;
    double idle_w = 0.0;
    double full_w = 0.0;
    double limit_c = no_limit;  // hotter than that the part throttles or ages
    sensor_face face = sensor_face::degrees;
    unsigned port = 0;
    int record = 0;  // offset of an FPGA record
    bool in_table = true;
};

struct server_part : part_kind {
    std::string full_name;
    unsigned number = 1;  // among those of its name

    unsigned port_number() const { return first != 0 ? port + number : port; }
};

// Of a drive.
inline unsigned bay_of(const server_part& drive) {
    return drive.face == sensor_face::drive_record ? sata_bays + drive.number : drive.number;
}

// All parts of one name.
struct part_group {
    const char* name;
    std::vector<std::size_t> parts;
    double limit_c;
    bool in_table;
};

// What a machine is made of.
class machine_plan {
public:
    machine_plan(const char* name, std::initializer_list<std::span<const part_kind>> kinds,
                 std::span<const slot_plan> slots);

    const char* name() const { return _name; }
    // In each zone in the order in which the air reaches them.
    std::span<const server_part> parts() const { return _parts; }
    std::span<const part_group> groups() const { return _groups; }
    std::span<const slot_plan> slots() const { return _slots; }
    // A part by its full name, or all parts of a name; empty if there is none.
    std::span<const std::size_t> find(std::string_view name) const;
    // For a name that stands for one part. Throws std::out_of_range for any other.
    std::size_t part(std::string_view name) const;

private:
    const char* _name;
    std::vector<server_part> _parts;
    std::vector<part_group> _groups;
    std::span<const slot_plan> _slots;
};

// Two sockets and ten slots, with four accelerators among the cards.
const machine_plan& socket_server();
// The same chassis with a baseboard of eight accelerators in place of the cards.
const machine_plan& baseboard_server();

// Fans count from 1: the main zone's, then one a power supply, then the storage zone's.
constexpr unsigned fpga_fans = 6;
constexpr unsigned first_psu_fan = fpga_fans + 1;
constexpr unsigned storage_fan = first_psu_fan + power_supplies;
constexpr unsigned server_fans = storage_fan;
constexpr unsigned fan_record_size = 5;

constexpr air_zone zone_of_fan(unsigned fan) {
    return fan < first_psu_fan ? air_zone::main : fan < storage_fan ? air_zone::power : air_zone::storage;
}

}  // namespace sim
