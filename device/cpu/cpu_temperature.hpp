#pragma once

#include "device/common_thermal_device.hpp"

// A processor's temperature in degrees Celsius: relative to Tjmax, absolute, and what is left until it slows itself
// down. -68.0, 30.0 and 68.0 while it cannot be asked; a failed read keeps the last reading.
class THERMAL_API common_thermal_device_cpu_temperature : public common_thermal_device {
public:
    explicit common_thermal_device_cpu_temperature(int instance);

    float get_relative() const;
    float get_absolute() const;
    float get_margin() const;

    void poll(common_thermal_dao* dao, unsigned long now) override;
    std::string debug() override { return _values.debug_text(); }

private:
    published_values _values;
};
