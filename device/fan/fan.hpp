#pragma once

#include <utility>

#include "device/common_thermal_device.hpp"
#include "device/fan/fan_pwm.hpp"
#include "device/fan/fan_tach.hpp"
#include "foundation/float_conversion.hpp"

// A fan as the rules know it: ties together its tachometers and PWM outputs and publishes their state. Does no I/O of
// its own; fan_control carries out what is asked for here. Duties are in percent.
class THERMAL_API common_thermal_device_fan : public common_thermal_device {
public:
    explicit common_thermal_device_fan(int instance);

    std::vector<common_thermal_device*> get_tach_devices() const {
        return get_depends(common_thermal_utils::tdev_fan_tach);
    }
    std::vector<common_thermal_device*> get_pwm_devices() const {
        return get_depends(common_thermal_utils::tdev_fan_pwm);
    }

    // The same devices without a copy, in order.
    template <class Visitor>
    void for_each_tach(Visitor&& visit) const {
        for_each_depend<common_thermal_device_fan_tach>(common_thermal_utils::tdev_fan_tach,
                                                        std::forward<Visitor>(visit));
    }
    template <class Visitor>
    void for_each_pwm(Visitor&& visit) const {
        for_each_depend<common_thermal_device_fan_pwm>(common_thermal_utils::tdev_fan_pwm,
                                                       std::forward<Visitor>(visit));
    }

    // Whether the fan has been polled; fan_control leaves it alone until then.
    bool is_actived() const { return _actived; }

    // Revolutions per minute.
    void set_value_tach(float value);

    // The duty for every PWM output; nothing is sent before apply_value_pwm_output().
    void set_value_pwm_output(std::uint8_t value);
    // Of the last PWM output; 0 without one.
    std::uint8_t get_value_pwm_output() const;
    void apply_value_pwm_output() { _writing_pwm_output = true; }
    bool is_writing_pwm_output() const { return _writing_pwm_output; }
    void done_pwm_output() { _writing_pwm_output = false; }
    void commit_pwm_to_dao(common_thermal_dao* dao);

    // The duty that the arbitration gives, for rules to read.
    void set_expected_speed(std::uint8_t value) { _values[expected_speed] = static_cast<float>(value); }
    bool is_expected_speed(std::uint8_t value) const { return _values[expected_speed] == static_cast<float>(value); }
    void commit_expected_speed_to_dao(common_thermal_dao* dao) {
        _values.publish_one(dao, expected_speed, common_thermal_dao::spike_none);
    }

    // An operator's duty, which takes the place of what the rules ask for.
    void set_manual_speed(bool on, std::uint8_t speed);
    bool is_manual_speed() const { return _values[manual_control] >= 1.0f; }
    std::uint8_t get_manual_speed() const { return saturate_to_byte(_values[manual_speed]); }

    void poll(common_thermal_dao* dao, unsigned long now) override;
    std::string debug() override { return _values.debug_text(); }

private:
    enum word : std::size_t { tach, pwm, tach_type, pwm_type, manual_control, manual_speed, expected_speed };

    void refresh_pwm();

    published_values _values;
    bool _writing_pwm_output = false;
    bool _actived = false;
};
