#pragma once

#include "device/common_thermal_device.hpp"
#include "device/fan/fan_source.hpp"

// A drive output of a fan, wherever its hardware sits. Duties are in percent.
class THERMAL_API common_thermal_device_fan_pwm : public common_thermal_device {
public:
    fan_source get_source_type() const { return _source_type; }

    // The duty asked for; fan_control carries it out.
    void set_output_value(std::uint8_t value) { _output_value = value; }
    std::uint8_t get_output_value() const { return _output_value; }

    // The duty that the fan runs with, as far as the hardware tells; otherwise the duty asked for.
    virtual std::uint32_t get_input_value() const { return _output_value; }
    // Sends a duty to hardware that takes it directly.
    virtual void set_pwm_to_hw(std::uint8_t) {}
    // Place of the byte of an FPGA output.
    virtual std::uint32_t get_adi_offset() { return no_adi_offset; }

protected:
    common_thermal_device_fan_pwm(const char* class_name, int instance, fan_source source);

private:
    fan_source _source_type;
    std::uint8_t _output_value = 0;
};

// An output in the FPGA, known by its place there; fan_control writes it.
class THERMAL_API common_thermal_device_fan_pwm_fpga : public common_thermal_device_fan_pwm {
public:
    explicit common_thermal_device_fan_pwm_fpga(int instance);

    // `index` is published only.
    void set_adi_offset(unsigned zone, unsigned fan, unsigned index);
    std::uint32_t get_adi_offset() override;

    void poll(common_thermal_dao* dao, unsigned long now) override;
    std::string debug() override { return _values.debug_text(); }

private:
    published_values _values;
};

// An output in a power supply, which hears its duty by an event of the manager. Its published values stay 0.0.
class THERMAL_API common_thermal_device_fan_pwm_psu : public common_thermal_device_fan_pwm {
public:
    explicit common_thermal_device_fan_pwm_psu(int instance);

    void poll(common_thermal_dao* dao, unsigned long now) override;
    std::string debug() override { return _values.debug_text(); }

private:
    published_values _values;
};

// Fans of the enclosure: asked for by a cooling value, read back through an integer port, 45.0 without a reading.
class THERMAL_API common_thermal_device_fan_pwm_kpl : public common_thermal_device_fan_pwm {
public:
    explicit common_thermal_device_fan_pwm_kpl(int instance);

    void set_port_input(unsigned port) { _port.bind(port); }
    void set_port_input(const std::string& key) { _port.bind(key); }
    std::uint32_t get_input_value() const override;
    // Asks only for a value other than the last one that the enclosure accepted, 0 at first.
    void set_pwm_to_hw(std::uint8_t value) override;

    void poll(common_thermal_dao* dao, unsigned long now) override;
    std::string debug() override { return _values.debug_text(); }

private:
    published_values _values;
    device_port _port;
    std::uint8_t _last_sent = 0;
};

// One integer port of another process that drives the fan. Each poll brings the port to the duty that the store holds
// under this device's key, once somebody has put one there; nothing is published.
class THERMAL_API common_thermal_device_fanmax_pwm : public common_thermal_device_fan_pwm {
public:
    explicit common_thermal_device_fanmax_pwm(int instance);

    void set_port_output(const std::string& key) { _port.create_port_integer(*this, key); }
    void set_pwm_to_hw(std::uint8_t value) override;

    void poll(common_thermal_dao* dao, unsigned long now) override;
    std::string debug() override { return _values.debug_text(); }

private:
    published_values _values;
    store_reference _wanted;
    common_thermal_utils _port;
};
