#pragma once

#include <optional>

#include "device/common_thermal_device.hpp"

// A processor's power in W, its share of the TDP (1.0 is all of it), and the running average of that share. Power and
// share are 0.0 without a reading, and the share also while the TDP is not known; the average then stays where it was.
class THERMAL_API common_thermal_device_cpu_power : public common_thermal_device {
public:
    explicit common_thermal_device_cpu_power(int instance);

    // Readings that the average weighs its history with, 20 at first.
    void set_avg_count(std::uint8_t count) override { _average.set_count(count); }

    void poll(common_thermal_dao* dao, unsigned long now) override;
    std::string debug() override { return _values.debug_text(); }

private:
    // Nothing while the processor cannot be asked, does not answer or answers no number.
    std::optional<float> read_power() const;
    float tdp_power() const;

    published_values _values;
    running_average _average;
};
