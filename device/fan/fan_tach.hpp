#pragma once

#include "device/common_thermal_device.hpp"
#include "device/fan/fan_source.hpp"
#include "platform/ports.hpp"

// A speed sensor of a fan, wherever its hardware sits.
class THERMAL_API common_thermal_device_fan_tach : public common_thermal_device {
public:
    fan_source get_source_type() const { return _source_type; }

    // Makes the sensor known as that of fan number `fan`, which counts from 1. Only the first call counts.
    void attach_to(int fan);
    // Revolutions per minute, as of the last poll.
    virtual float get_value_tach() const { return 0.0f; }
    // Start of the two bytes of an FPGA sensor.
    virtual std::uint32_t get_adi_offset() { return no_adi_offset; }

protected:
    common_thermal_device_fan_tach(const char* class_name, int instance, fan_source source);

    bool is_attached() const { return _attached; }

private:
    virtual void attach(int) {}

    fan_source _source_type;
    bool _attached = false;
};

// A sensor in the FPGA, known by its place there; fan_control reads it.
class THERMAL_API common_thermal_device_fan_tach_fpga : public common_thermal_device_fan_tach {
public:
    explicit common_thermal_device_fan_tach_fpga(int instance);

    void set_adi_offset(unsigned zone, unsigned fan, unsigned index);
    std::uint32_t get_adi_offset() override;

    void poll(common_thermal_dao* dao, unsigned long now) override;
    std::string debug() override { return _values.debug_text(); }

private:
    void attach(int fan) override;

    published_values _values;
};

// A tachometer input of the controller itself, behind a multiplexer whose select lines are GPIO pins. Publishes the
// driver's record; a failed read keeps the last speed.
class THERMAL_API common_thermal_device_fan_tach_nrv : public common_thermal_device_fan_tach {
public:
    explicit common_thermal_device_fan_tach_nrv(int instance);

    void set_port_input(unsigned port) { _port.bind(port); }
    // Takes effect when the sensor is attached. Two select lines reach multiplexer inputs 0 to 3, three 0 to 7; a
    // larger `mux` stands for an input without multiplexer.
    void set_num(std::uint8_t channel, std::uint8_t mux, std::uint8_t gpio_port_1, std::uint8_t gpio_pin_1,
                 std::uint8_t gpio_port_2, std::uint8_t gpio_pin_2);
    void set_num(std::uint8_t channel, std::uint8_t mux, std::uint8_t gpio_port_1, std::uint8_t gpio_pin_1,
                 std::uint8_t gpio_port_2, std::uint8_t gpio_pin_2, std::uint8_t gpio_port_3, std::uint8_t gpio_pin_3);
    float get_value_tach() const override { return _values[0]; }

    void poll(common_thermal_dao* dao, unsigned long now) override;
    std::string debug() override { return _values.debug_text(); }

private:
    void attach(int fan) override;

    published_values _values;
    device_port _port;
    TACHData _record{};
};

// A speed from an integer port; 0.0 while it is unbound, whatever a failed read answered otherwise.
class THERMAL_API integer_fan_tach : public common_thermal_device_fan_tach {
public:
    void set_port_input(unsigned port) { _port.bind(port); }
    void set_port_input(const std::string& key) { _port.bind(key); }
    float get_value_tach() const override { return _values[0]; }

    void poll(common_thermal_dao* dao, unsigned long now) override;
    std::string debug() override { return _values.debug_text(); }

protected:
    integer_fan_tach(const char* class_name, int instance, fan_source source, const char* port_name);

private:
    published_values _values;
    device_port _port;
};

// In a power supply.
class THERMAL_API common_thermal_device_fan_tach_psu : public integer_fan_tach {
public:
    explicit common_thermal_device_fan_tach_psu(int instance);
};

// In the enclosure.
class THERMAL_API common_thermal_device_fan_tach_kpl : public integer_fan_tach {
public:
    explicit common_thermal_device_fan_tach_kpl(int instance);
};

// Behind one integer port of another process. Keeps its last speed without a reading; only a change is published.
class THERMAL_API common_thermal_device_fanmax_tach : public common_thermal_device_fan_tach {
public:
    explicit common_thermal_device_fanmax_tach(int instance);

    void set_port_input(const std::string& key) { _port.create_port_integer(*this, key); }
    float get_value_tach() const override { return _values[0]; }

    void poll(common_thermal_dao* dao, unsigned long now) override;
    std::string debug() override { return _values.debug_text(); }

private:
    published_values _values;
    common_thermal_utils _port;
};
