#pragma once

#include "device/common_thermal_device.hpp"
#include "device/cpu/channel_walk.hpp"

// Whether a processor slows itself down, from a pin of the FPGA and from its own status. Drives a pin that an event
// sensor watches, high on either sign while the processor can be asked, and keeps the status of the last throttle event
// in a property. Publishes the pin as 1.0 or 0.0 and the last status word read; a failed read keeps either.
class THERMAL_API common_thermal_device_cpu_throttle : public common_thermal_device {
public:
    explicit common_thermal_device_cpu_throttle(int instance);

    // Bind the input by number: a keyed pin that is low reads as a failure, and the published pin would stay high.
    void set_port_input(unsigned port) { _input_port.bind(port); }
    void set_port_input(const std::string& key) { _input_port.bind(key); }
    void set_port_output(unsigned port) { _output_port.bind(port); }
    void set_port_output(const std::string& key) { _output_port.bind(key); }

    void poll(common_thermal_dao* dao, unsigned long now) override;
    std::string debug() override { return _values.debug_text(); }

private:
    bool check_pin();
    // Whether the processor throttles. `status` becomes what it said, and stays if it did not answer.
    bool check_processor(const cpu_connection& connection, std::uint32_t& status);
    void keep_status(std::uint32_t status) const;

    std::string _status_property;
    bool _fpga_throttled = false;
    bool _cpu_throttled = false;
    published_values _values;
    device_port _input_port;
    device_port _output_port;
};
