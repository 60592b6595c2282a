#pragma once

#include "device/common_thermal_device.hpp"

// How the board's fans are organised, from one integer port: zones, fans per PWM output, tachometers per fan and fans
// in all; all 0.0 without a reading.
class THERMAL_API common_thermal_device_fpga_fan_info : public common_thermal_device {
public:
    explicit common_thermal_device_fpga_fan_info(int instance);

    void set_port_input(unsigned port) { _port.bind(port); }
    void set_port_input(const std::string& key) { _port.bind(key); }

    void poll(common_thermal_dao* dao, unsigned long now) override;
    std::string debug() override { return _values.debug_text(); }

private:
    published_values _values;
    device_port _port;
};
