#pragma once

#include <cstdint>
#include <span>

#include "foundation/common_thermal_utils.hpp"
#include "platform/host/host.hpp"

// The IPMI sensors of the simulated server. The board makes an entry of the sensor map of each, the rules say what it
// shows, and the host keeps it.
namespace sim {

struct server_sensor {
    const char* map_key = "";
    const char* name = "";
    const char* unit = "";
    std::uint8_t number = 0;  // on logical unit 0
    common_thermal_utils::sel_event_t events = common_thermal_utils::sel_event_none;
    float m = 1.0f;
    float k2 = 1.0f;

    // The library's side of the conversion and its ports: the reading, then one for each severity from 1 to 3.
    unsigned output_port() const { return 100u + number; }
    unsigned event_port(unsigned severity) const { return 200u + 4u * number + severity; }
    bool has_event_ports() const {
        return events >= common_thermal_utils::sel_event_bits && events <= common_thermal_utils::sel_event_integers;
    }
};

std::span<const server_sensor> server_sensors();

// What the firmware has of them: ports and sensor records.
void add_server_sensors(thermal_host::platform& host);

}  // namespace sim
