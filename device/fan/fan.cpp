#include "device/fan/fan.hpp"

#include "foundation/log_masks.hpp"

namespace {
constexpr const char* class_name = "common_thermal_device_fan";
}  // namespace

common_thermal_device_fan::common_thermal_device_fan(int instance)
    : common_thermal_device(class_name, class_name, instance, common_thermal_utils::tdev_fan),
      _values(
          class_name, instance,
          {{"tach"}, {"pwm"}, {"tach_type"}, {"pwm_type"}, {"manual_control"}, {"manual_speed"}, {"expected_speed"}}) {}

void common_thermal_device_fan::set_value_tach(float value) {
    if (value != _values[tach]) {
        LOG::log(log_source, log_mask::change, "OBV - tdev_fan[%2d] val_tach      %3.2f -> %3.2f\n", get_instance(),
                 shown(_values[tach]), shown(value));
        _values[tach] = value;
    }
}

// Changes the fan's outputs, if not the fan itself.
// NOLINTNEXTLINE(readability-make-member-function-const)
void common_thermal_device_fan::set_value_pwm_output(std::uint8_t value) {
    for_each_pwm([value](common_thermal_device_fan_pwm& output) { output.set_output_value(value); });
}

std::uint8_t common_thermal_device_fan::get_value_pwm_output() const {
    std::uint8_t last = 0;
    for_each_pwm([&last](const common_thermal_device_fan_pwm& output) { last = output.get_output_value(); });
    return last;
}

void common_thermal_device_fan::refresh_pwm() {
    for_each_pwm([this](const common_thermal_device_fan_pwm& output) {
        _values[pwm] = static_cast<float>(output.get_input_value());
        _values[pwm_type] = static_cast<float>(output.get_source_type());
    });
}

void common_thermal_device_fan::commit_pwm_to_dao(common_thermal_dao* dao) {
    refresh_pwm();
    _values.publish_one(dao, pwm, common_thermal_dao::spike_none);
}

void common_thermal_device_fan::set_manual_speed(bool on, std::uint8_t speed) {
    _values[manual_speed] = static_cast<float>(speed);
    _values[manual_control] = on ? 1.0f : 0.0f;
}

void common_thermal_device_fan::poll(common_thermal_dao* dao, unsigned long) {
    for_each_tach([this](const common_thermal_device_fan_tach& sensor) {
        _values[tach_type] = static_cast<float>(sensor.get_source_type());
    });
    refresh_pwm();
    _actived = true;
    _values.publish(dao, common_thermal_dao::spike_going_low);
}
