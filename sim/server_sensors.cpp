#include "sim/server_sensors.hpp"

namespace sim {

namespace {

using utils = common_thermal_utils;

// A reading is one byte: speeds count hundreds of rpm and power tens of watts. Sensors that take thresholds count whole
// degrees, as thresholds are sent without a conversion.
// clang-format off
constexpr server_sensor sensors[] = {
    // map key       name             unit  number  events                              m       k2
    {"INLET",        "inlet air",     "°C",   1, utils::sel_event_thresholds},
    {"CPU_VR",       "processor VR",  "°C",   2, utils::sel_event_thresholds_and_bits},
    {"DIMM_VR",      "memory VR",     "°C",   3, utils::sel_event_thresholds},
    {"ADAPTER",      "adapter",       "°C",   4, utils::sel_event_bits},
    {"LINK_SWITCH",  "link switch",   "°C",   5, utils::sel_event_bits_too},
    {"PSU_INLET",    "supply inlet",  "°C",   6, utils::sel_event_thresholds},
    {"RAID",         "storage card",  "°C",   7, utils::sel_event_none},
    {"RAID_BATTERY", "card battery",  "°C",   8, utils::sel_event_integers},
    {"POWER",        "system power",  "W",    9, utils::sel_event_none,               1.0f,  0.1f},
    {"FAN_1",        "fan 1",         "rpm", 11, utils::sel_event_bits,             100.0f},
    {"FAN_2",        "fan 2",         "rpm", 12, utils::sel_event_bits,             100.0f},
    {"FAN_3",        "fan 3",         "rpm", 13, utils::sel_event_bits,             100.0f},
    {"FAN_4",        "fan 4",         "rpm", 14, utils::sel_event_bits,             100.0f},
    {"FAN_5",        "fan 5",         "rpm", 15, utils::sel_event_bits,             100.0f},
    {"FAN_6",        "fan 6",         "rpm", 16, utils::sel_event_bits,             100.0f},
    {"FAN_PSU_1",    "fan 7",         "rpm", 17, utils::sel_event_bits,             100.0f},
    {"FAN_PSU_2",    "fan 8",         "rpm", 18, utils::sel_event_bits,             100.0f},
    {"FAN_STORAGE",  "fan 9",         "rpm", 19, utils::sel_event_bits,             100.0f},
    {"CPU_1",        "processor 1",   "°C",  21, utils::sel_event_thresholds},
    {"CPU_2",        "processor 2",   "°C",  22, utils::sel_event_thresholds},
    {"DIMM",         "memory",        "°C",  23, utils::sel_event_thresholds},
    {"DRIVES",       "drives",        "°C",  24, utils::sel_event_thresholds},
    {"EXHAUST",      "exhaust air",   "°C",  25, utils::sel_event_thresholds},
    {"GPU",          "accelerators",  "°C",  26, utils::sel_event_thresholds},
    {"GPU_POWER",    "slot power",    "W",   27, utils::sel_event_none,               1.0f,  0.1f},
    {"NIC",          "network card",  "°C",  28, utils::sel_event_bits},
};
// clang-format on

}  // namespace

std::span<const server_sensor> server_sensors() { return sensors; }

void add_server_sensors(thermal_host::platform& host) {
    for (const server_sensor& sensor : sensors) {
        thermal_host::sensor_definition about{
            .name = sensor.name, .unit = sensor.unit, .m = sensor.m, .k2 = sensor.k2, .output = sensor.output_port()};
        host.ports.add_number(sensor.output_port());
        for (unsigned severity = 1; sensor.has_event_ports() && severity <= 3; ++severity) {
            host.ports.add_number(sensor.event_port(severity));
            about.events.emplace_back(sensor.event_port(severity));
        }
        host.sensors.add({0, sensor.number}, std::move(about));
    }
}

}  // namespace sim
