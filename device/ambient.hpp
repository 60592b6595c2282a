#pragma once

#include "device/common_thermal_device.hpp"

// The air at the system's inlet, from a record of the FPGA: reading and running average in degrees Celsius. The reading
// is 255.0 without FPGA records, without a port, after a failed read and for a record marked invalid; the average then
// stays where it was.
class THERMAL_API common_thermal_device_ambient : public common_thermal_device {
public:
    explicit common_thermal_device_ambient(int instance);

    void set_port_input(unsigned port) { _port.bind(port); }
    void set_port_input(const std::string& key) { _port.bind(key); }
    // Start of the record in the 16-byte block, 0 to 9; any other offset makes every record invalid.
    void set_adi_offset(int offset) { _adi_offset = static_cast<std::uint32_t>(offset); }
    // Readings that the average weighs its history with, 20 at first.
    void set_avg_count(std::uint8_t count) override { _average.set_count(count); }

    void get_temperature(float* destination) const;
    // Whether there was a poll; says nothing about the sensor.
    bool is_presence() const { return _polled; }

    void poll(common_thermal_dao* dao, unsigned long now) override;
    std::string debug() override { return _values.debug_text(); }

private:
    published_values _values;
    device_port _port;
    std::uint32_t _adi_offset = 0;
    bool _polled = false;
    running_average _average;
};
