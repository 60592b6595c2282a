#include "device/cpu/cpu_temperature.hpp"

#include "device/cpu/channel_walk.hpp"
#include "foundation/float_conversion.hpp"
#include "foundation/log_masks.hpp"
#include "platform/host_cpu.hpp"

namespace {

constexpr const char* class_name = "common_thermal_device_cpu_temperature";
enum word : std::size_t { relative, absolute, margin };

constexpr float idle_relative = -68.0f;
constexpr float idle_absolute = 30.0f;
constexpr float idle_margin = 68.0f;

}  // namespace

common_thermal_device_cpu_temperature::common_thermal_device_cpu_temperature(int instance)
    : common_thermal_device(class_name, class_name, instance, common_thermal_utils::tdev_cpu_temperature),
      _values(class_name, instance,
              {{"relative", idle_relative}, {"absolute", idle_absolute}, {"margin", idle_margin}}) {}

float common_thermal_device_cpu_temperature::get_relative() const { return _values[relative]; }
float common_thermal_device_cpu_temperature::get_absolute() const { return _values[absolute]; }
float common_thermal_device_cpu_temperature::get_margin() const { return _values[margin]; }

void common_thermal_device_cpu_temperature::poll(common_thermal_dao* dao, unsigned long) {
    const auto [processor, address, active] = last_cpu_connection(*this);
    if (active) {
        processor->read_relative_temperature(address);
        _values[relative] = processor->get_relative_temperature();
        LOG::log(log_source, log_mask::processor,
                 "common_thermal_device_cpu_temperature::poll() cpu: 0x%02x  rel_temp=%3.2f\n", address,
                 shown(_values[relative]));
        processor->read_absolute_temperature(address);
        _values[absolute] = processor->get_absolute_temperature();
        LOG::log(log_source, log_mask::processor,
                 "common_thermal_device_cpu_temperature::poll() cpu: 0x%02x  abs_temp=%3.2f\n", address,
                 shown(_values[absolute]));
        processor->read_margin_value(address);
        _values[margin] = processor->get_margin_value();
    } else {
        _values[relative] = idle_relative;
        _values[absolute] = idle_absolute;
        _values[margin] = idle_margin;
    }
    _values.publish(dao, common_thermal_dao::spike_going_high);
}
