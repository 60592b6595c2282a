#pragma once

#include "device/common_thermal_device.hpp"

// What the board's FPGA knows about one processor socket: its register, and present and disable, 1.0 or 0.0, from two
// low-active bits of it. A failed read counts as 0: present and disabled. Publishes nothing while the port is unbound.
class THERMAL_API common_thermal_device_fpga_one_cpu_info : public common_thermal_device {
public:
    explicit common_thermal_device_fpga_one_cpu_info(int instance);

    void set_port_input(unsigned port) { _port.bind(port); }
    void set_port_input(const std::string& key) { _port.bind(key); }

    bool get_presence() const;
    bool get_disabled() const;

    void poll(common_thermal_dao* dao, unsigned long now) override;
    std::string debug() override { return _values.debug_text(); }

private:
    published_values _values;
    device_port _port;
};

// 1.0 if any FPGA register it depends on has the processor in it, otherwise 0.0.
class THERMAL_API common_thermal_device_cpu_presence : public common_thermal_device {
public:
    explicit common_thermal_device_cpu_presence(int instance);

    bool is_presence() const { return _values[0] != 0.0f; }

    void poll(common_thermal_dao* dao, unsigned long now) override;
    std::string debug() override { return _values.debug_text(); }

private:
    published_values _values;
};

// 1.0 if any FPGA register it depends on has the processor disabled, otherwise 0.0; 1.0 ahead of the first poll.
class THERMAL_API common_thermal_device_cpu_disabled : public common_thermal_device {
public:
    explicit common_thermal_device_cpu_disabled(int instance);

    bool is_disabled() const { return _values[0] > 0.0f; }

    void poll(common_thermal_dao* dao, unsigned long now) override;
    std::string debug() override { return _values.debug_text(); }

private:
    published_values _values;
};
