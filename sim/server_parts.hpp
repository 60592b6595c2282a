#pragma once

#include <array>
#include <cstddef>
#include <limits>
#include <optional>
#include <string>
#include <string_view>

#include "sim/heat_model.hpp"

// What the simulated server is made of: the ports that its firmware offers, its parts and its fans. The board binds
// devices to the ports, the physics stands behind them.
namespace sim {

constexpr unsigned fpga_capability_block = 10;
constexpr unsigned fpga_record_block = 11;  // records of two bytes, at 5 + the record's offset
constexpr unsigned fan_block = 12;          // five bytes a fan: duty, tachometer, five-byte records counted from 0
constexpr unsigned fan_info_number = 13;
constexpr unsigned system_power_number = 14;  // W
constexpr unsigned psu_tach_number = 15;      // rpm
constexpr unsigned pch_present_bit = 20;
constexpr unsigned psu_present_bit = 21;
constexpr unsigned retimer_present_bit = 22;
constexpr unsigned raid_present_bit = 23;
constexpr unsigned baseboard_present_bit = 24;  // carries the link switch
constexpr unsigned power_permission_bit = 25;   // this controller's vote for host power
constexpr unsigned pch_temperature = 30;
constexpr unsigned psu_inlet_temperature = 31;
constexpr unsigned retimer_temperature = 32;
constexpr unsigned raid_temperature = 33;
constexpr unsigned battery_temperature = 34;
constexpr unsigned switch_temperature = 35;
constexpr unsigned adapter_chip = 40;
constexpr unsigned storage_chip = 41;
constexpr const char* storage_fan_duty_key = "storage_fan.duty";
constexpr const char* storage_fan_tach_key = "storage_fan.tach";

// How a port shows a temperature.
enum class sensor_face { degrees, millidegrees, fpga_record, tmp75, lm92 };

// Air channels of the server, each with its own fans.
enum class air_zone { main, power, storage };
constexpr std::array<const char*, 3> air_zone_names{"main", "power", "storage"};

struct server_part {
    static constexpr double no_limit = std::numeric_limits<double>::infinity();

    const char* name = "";
    air_zone zone = air_zone::main;
    part_parameters (*make)(std::string name) = nullptr;
    double idle_w = 0.0;
    double full_w = 0.0;
    double limit_c = no_limit;  // hotter than that the part throttles or ages
    sensor_face face = sensor_face::degrees;
    unsigned port = 0;
    int record = 0;  // offset of an FPGA record
};

// In each zone in the order in which the air reaches them.
constexpr std::size_t server_part_count = 12;
extern const std::array<server_part, server_part_count> server_parts;
std::optional<std::size_t> find_server_part(std::string_view name);

// Fans count from 1: the main zone's, then the power supply's, then the storage zone's.
constexpr unsigned fpga_fans = 6;
constexpr unsigned psu_fan = 7;
constexpr unsigned storage_fan = 8;
constexpr unsigned server_fans = 8;
constexpr unsigned fan_record_size = 5;

}  // namespace sim
