#pragma once

#include "device/chip_reads.hpp"
#include "device/port_sensors.hpp"

// M.2 drives, and the temperature sensors in the air beside them. All temperatures are degrees Celsius, and 255.0 while
// there is no valid reading.

// Always read.
class THERMAL_API common_thermal_device_m2_ambient_presence : public presence_sensor {
public:
    explicit common_thermal_device_m2_ambient_presence(int instance);
};

class THERMAL_API common_thermal_device_m2_drive_presence : public presence_sensor {
public:
    explicit common_thermal_device_m2_drive_presence(int instance);
};

// A temperature chip beside the drives, read while it is present, and the chip's number.
class THERMAL_API common_thermal_device_m2_ambient : public common_thermal_device {
public:
    explicit common_thermal_device_m2_ambient(int instance);

    void set_port_input(unsigned port) { _port.bind(port); }
    void set_port_input(const std::string& key) { _port.bind(key); }
    // The number of a temperature_chip, or 5 for none; any other counts as 0, which is none either.
    void set_port_type(unsigned type);

    void get_temperature(float* destination) const;
    // False, with a log line, for a port type without a chip. -999.0 means no reading.
    bool read_temperature(float& reading);

    void poll(common_thermal_dao* dao, unsigned long now) override;
    std::string debug() override { return _values.debug_text(); }

private:
    published_values _values;
    device_port _port;
    std::uint32_t _port_type = 0;
};

// An M.2 drive's temperature, warning threshold and the margin between the two, from integer ports that are read while
// the drive is present.
class THERMAL_API common_thermal_device_m2_drive_temperature : public common_thermal_device {
public:
    explicit common_thermal_device_m2_drive_temperature(int instance);

    // The first call is for the temperature, the second for the threshold; an empty key counts as a call.
    void set_port_input(unsigned port) {
        if (device_port* input = next_input()) input->bind(port);
    }
    void set_port_input(const std::string& key) {
        if (device_port* input = next_input()) input->bind(key);
    }

    void get_temperature(float* destination) const;

    void poll(common_thermal_dao* dao, unsigned long now) override;
    std::string debug() override { return _values.debug_text(); }

private:
    // Null, with a log line, for a third call.
    device_port* next_input();

    published_values _values;
    device_port _port_temperature;
    device_port _port_threshold;
    unsigned _port_inputs = 0;
};

// The hottest sensor beside the M.2 drives and the hottest of sensors and drives together; 0.0 without any reading.
class THERMAL_API common_thermal_device_m2_composite : public common_thermal_device {
public:
    explicit common_thermal_device_m2_composite(int instance);

    void poll(common_thermal_dao* dao, unsigned long now) override;
    std::string debug() override { return _values.debug_text(); }

private:
    // Raises `high` to the valid readings of all dependencies of this class.
    template <class Sensor>
    void raise(tdev_type_t kind, float& high) const;

    published_values _values;
};
