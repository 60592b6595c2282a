#pragma once

#include "device/chip_reads.hpp"
#include "device/common_thermal_device.hpp"

// A temperature chip behind a block port: reading and running average in degrees Celsius, and the chip's number. The
// reading is 255.0 while there is none; the average then stays where it was.
class THERMAL_API common_thermal_device_generic_temperature : public common_thermal_device {
public:
    // The port type without a chip: polled without touching the port.
    static constexpr std::uint32_t port_type_none = 5;

    explicit common_thermal_device_generic_temperature(int instance);

    void set_port_input(unsigned port) { _port.bind(port); }
    void set_port_input(const std::string& key) { _port.bind(key); }
    // The number of a temperature_chip or `port_type_none`; any other counts as 0, which never reads.
    void set_port_type(unsigned type);
    // Readings that the average weighs its history with, 20 at first.
    void set_avg_count(std::uint8_t count) override { _average.set_count(count); }

    void get_temperature(float* destination) const;

    // False for port type 0. -999.0 means no reading.
    bool read_temperature(float& reading);
    float read_tmp75_device();
    float read_lmp75_device();
    float read_lm92_device();
    float read_emc1001_device();
    static float extract_tmp75_temp(const unsigned char* high, const unsigned char* low) {
        return static_cast<float>(tmp75_degrees(*high, *low));
    }

    void poll(common_thermal_dao* dao, unsigned long now) override;
    std::string debug() override { return _values.debug_text(); }

private:
    published_values _values;
    device_port _port;
    std::uint32_t _port_type = 0;
    running_average _average;
};
