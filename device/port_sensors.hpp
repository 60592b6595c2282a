#pragma once

#include "device/common_thermal_device.hpp"

// Devices that turn one port into one value. Each class is a row of a table in port_sensors.cpp: key word, port, gate,
// conversion, and what no reading gives.

class THERMAL_API port_sensor : public common_thermal_device {
public:
    // By number, or by the key of a line of another process.
    void set_port_input(unsigned port) { _port.bind(port); }
    void set_port_input(const std::string& key) { _port.bind(key); }
    std::string debug() override { return _values.debug_text(); }

    struct identity {
        const char* class_name;
        tdev_type_t type;
        const char* word;
        const char* port_name;
    };

protected:
    port_sensor(const identity& sensor, device_port::kind port_kind, int instance);

    published_values _values;
    device_port _port;
};

// Whether a component is there: 1.0 or 0.0. Absent while its gate is closed; also while its port is unbound or its read
// failing, unless the row keeps the last value.
class THERMAL_API presence_sensor : public port_sensor {
public:
    // The stage that any event status device it depends on has to have.
    enum class gate { none, ipmi_ready, dp_ready };

    struct row {
        identity sensor{};
        gate opened_by = gate::none;
        bool logs_reads = false;
        common_thermal_dao::dev_data_spike_t spike = common_thermal_dao::spike_none;
        const char* outcome_name = nullptr;  // logs each poll's outcome under this name
        bool keeps_last_value = false;       // without a reading
    };

    bool is_presence() const { return _values[0] > 0.0f; }
    void poll(common_thermal_dao* dao, unsigned long now) override;

protected:
    presence_sensor(const row& kind, int instance);

private:
    bool read_bit(std::uint8_t& bit);

    const row& _row;
};

// A temperature in degrees Celsius from an integer port, read while the component is present; 0.0 without a reading.
class THERMAL_API integer_temperature_sensor : public port_sensor {
public:
    struct row;

    void poll(common_thermal_dao* dao, unsigned long now) override;

protected:
    integer_temperature_sensor(const row& kind, int instance);

private:
    const row& _row;
};

// A voltage regulator's temperature in degrees Celsius from a record of the FPGA, read while the FPGA has sensor
// records. A record marked invalid gives 255.0.
class THERMAL_API regulator_temperature_sensor : public port_sensor {
public:
    struct row;

    // Start of the record in the 16-byte block, 0 to 9; any other offset makes every record invalid.
    void set_adi_offset(int offset) { _adi_offset = static_cast<std::uint32_t>(offset); }

    void poll(common_thermal_dao* dao, unsigned long now) override;

protected:
    regulator_temperature_sensor(const row& kind, int instance);

private:
    const row& _row;
    std::uint32_t _adi_offset = 0;
};

#define THERMAL_PORT_SENSOR(base, name)    \
    class THERMAL_API name : public base { \
    public:                                \
        explicit name(int instance);       \
    }

// Gated on the stage ipmi_ready of any event status device it depends on.
THERMAL_PORT_SENSOR(presence_sensor, common_thermal_device_pch_presence);
THERMAL_PORT_SENSOR(presence_sensor, common_thermal_device_psu_presence);
// Gated on the stage dp_ready.
THERMAL_PORT_SENSOR(presence_sensor, common_thermal_device_nvidia_ubb_presence);
// Always read.
THERMAL_PORT_SENSOR(presence_sensor, common_thermal_device_retimer_presence);
THERMAL_PORT_SENSOR(presence_sensor, common_thermal_device_raidcard_presence);

THERMAL_PORT_SENSOR(integer_temperature_sensor, common_thermal_device_pch_temperature);
THERMAL_PORT_SENSOR(integer_temperature_sensor, common_thermal_device_psu_inlet);
THERMAL_PORT_SENSOR(integer_temperature_sensor, common_thermal_device_retimer_temp);
THERMAL_PORT_SENSOR(integer_temperature_sensor, common_thermal_device_raidcard_temp);
THERMAL_PORT_SENSOR(integer_temperature_sensor, common_thermal_device_raidcard_battery);
// The port gives thousandths of a degree.
THERMAL_PORT_SENSOR(integer_temperature_sensor, common_thermal_device_nvswitch_temperature);

// Keeps its last value while there is no reading; the other two fall to 0.0.
THERMAL_PORT_SENSOR(regulator_temperature_sensor, common_thermal_device_cpuvr);
THERMAL_PORT_SENSOR(regulator_temperature_sensor, common_thermal_device_dimmvr);
THERMAL_PORT_SENSOR(regulator_temperature_sensor, common_thermal_device_powervr);

#undef THERMAL_PORT_SENSOR
