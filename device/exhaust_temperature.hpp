#pragma once

#include <array>

#include "device/common_thermal_device.hpp"

// Estimates the outlet air in degrees Celsius: inlet + W * factor / (CFM * 1000), with power, air volume and the board's
// factor from a port each. It is 255.0 while any port is unbound. A failed read counts as 0, an air volume of 0 as 1. An
// inlet without a reading is 255.0, so the estimate errs on the hot side; without an inlet device it is the rise alone.
class THERMAL_API common_thermal_device_exhaust_temperature : public common_thermal_device {
public:
    explicit common_thermal_device_exhaust_temperature(int instance);

    // The calls bind, in turn, the ports of power, air volume and factor. A fourth is refused and logged.
    void set_port_input(unsigned port) {
        if (device_port* next = next_port()) next->bind(port);
    }
    void set_port_input(const std::string& key) {
        if (device_port* next = next_port()) next->bind(key);
    }

    void poll(common_thermal_dao* dao, unsigned long now) override;
    std::string debug() override { return _values.debug_text(); }

private:
    // Null once all are assigned.
    device_port* next_port();
    float inlet() const;
    void estimate();

    published_values _values;
    std::array<device_port, 3> _ports;
    std::size_t _assigned = 0;
};
