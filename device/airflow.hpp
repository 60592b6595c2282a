#pragma once

#include <cstdint>
#include <optional>

#include "device/common_thermal_device.hpp"

// How far a dust filter measurement has come: 0 idle, 1 fans settling, 2 averages filling, 3 averages settling and done.
struct dust_filter_state {
    unsigned step = 0;
    std::uint32_t countdown = 10;  // polls left in steps 2 and 3
};

// What one poll of a measurement asks of the airflow device; what is empty stays as it is.
struct dust_filter_actions {
    std::optional<bool> calibrate = {};              // all fans at full speed
    std::optional<std::uint8_t> average_count = {};  // weight of the running averages
    std::optional<std::uint32_t> answer = {};        // to the requester
    std::uint8_t nap = 3;                            // seconds until the next poll
};

// Moves a measurement on by one poll under the status that its requester shows. A status of 0 ends it; one that is
// neither 0 nor a request (0x10, 0x11, 0x80) holds it where it is.
THERMAL_API dust_filter_actions advance_dust_filter(dust_filter_state& state, std::uint32_t status);

// An air speed sensor in counts, m/s and linear feet per minute, each with its running average; runs a dust filter
// measurement on request. A failed read shows a count of 255.0 (0.0 without a port) and leaves the rest; a count outside
// the sensor's curve, or a speed of 0.0, leaves the speeds.
class THERMAL_API common_thermal_device_airflow : public common_thermal_device {
public:
    explicit common_thermal_device_airflow(int instance);

    void set_port_input(unsigned port) { _port.bind(port); }
    void set_port_input(const std::string& key) { _port.bind(key); }

    // False without a reading; `raw` is then 255.0, or untouched if the port is not bound.
    static bool request_airflow_raw(common_thermal_utils* port, float& raw);
    // False outside the sensor's curve, 409 to below 3686; `windspeed` is then untouched.
    static bool convert_to_windspeed(float raw, float& windspeed);

    // Does nothing while the device sleeps.
    void poll(common_thermal_dao* dao, unsigned long now) override;
    std::string debug() override { return _values.debug_text(); }

private:
    dust_filter_actions follow_requester();
    void carry_out(const dust_filter_actions& actions);
    void measure();

    published_values _values;
    device_port _port;
    device_port _dust_port;
    dust_filter_state _dust_filter;
};
