#pragma once

#include "device/common_thermal_device.hpp"

// The capability block of the board's FPGA. Without a readable block it counts as an FPGA without sensor records.
class THERMAL_API common_thermal_device_fpga_capabilities : public common_thermal_device {
public:
    explicit common_thermal_device_fpga_capabilities(int instance);

    void set_port_input(unsigned port) { _port.bind(port); }
    void set_port_input(const std::string& key) { _port.bind(key); }

    // Whether the FPGA holds the sensor records that temperature devices decode, as of the last poll.
    bool is_adi_support() const { return _values[0] != 0.0f; }

    void poll(common_thermal_dao* dao, unsigned long now) override;
    std::string debug() override { return _values.debug_text(); }

private:
    published_values _values;
    device_port _port;
};
