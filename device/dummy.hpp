#pragma once

#include "device/common_thermal_device.hpp"

// A constant 0.0, for rules that need a value which never moves.
class THERMAL_API common_thermal_device_dummy : public common_thermal_device {
public:
    explicit common_thermal_device_dummy(int instance);

    void poll(common_thermal_dao* dao, unsigned long now) override;
    std::string debug() override { return _values.debug_text(); }

private:
    published_values _values;
};
