#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "platform/host/host.hpp"
#include "sim/dust_filter_requester.hpp"
#include "sim/server_parts.hpp"

namespace sim {

// What the machine's sensors show of its parts: the lines of the host's ports, its processors, memory and drives.
class server_readings {
public:
    server_readings(thermal_host::platform& host, const machine_plan& plan);
    server_readings(const server_readings&) = delete;
    server_readings& operator=(const server_readings&) = delete;

    // What a part's sensor shows; processors tell their power too.
    void show(std::size_t part, double celsius, double watts);
    // A processor that slows itself down says so, and pulls its pin.
    void show_throttle(unsigned number, bool throttles);
    // Air volume for the estimate of the exhaust air, and its speed past the air speed sensor.
    void show_air(double cubic_metres_s);
    // A lost sensor: a port or bus that fails, a record that is marked invalid or shows 255. Memory modules of a
    // channel go together.
    void set_sensor(std::size_t part, bool works);

    // Processors are in reset, and do not answer, until the host has power.
    void set_host_power(bool is_on);
    // A socket may be empty, or hold a processor that is disabled.
    void set_socket(unsigned number, bool present, bool enabled);
    // Bays count from 1.
    void set_drive(unsigned bay, bool plugged);
    bool has_drive(unsigned bay) const { return _plugged.at(bay - 1); }

    thermal_host::processor_socket& socket(unsigned number);
    dust_filter_requester& dust_filter() { return _dust_filter; }

private:
    void add_part(std::size_t part);
    void add_sockets();
    void add_drives();

    thermal_host::platform& _host;
    const machine_plan& _plan;
    std::vector<bool> _works;
    std::vector<thermal_host::number_line*> _numbers;  // by part; null for a part without one
    std::vector<thermal_host::block_line*> _blocks;
    std::vector<bool> _plugged;
    thermal_host::number_line& _exhaust_volume;
    std::array<std::uint8_t, 3> _air_speed{};
    dust_filter_requester _dust_filter;
};

}  // namespace sim
