#include "device/fan/fpga_fan_info.hpp"

namespace {
constexpr const char* class_name = "common_thermal_device_fpga_fan_info";
enum word : std::size_t { num_of_fanzone, fans_per_pwm, tachs_per_fan, total_fans };
}  // namespace

common_thermal_device_fpga_fan_info::common_thermal_device_fpga_fan_info(int instance)
    : common_thermal_device(class_name, class_name, instance, common_thermal_utils::tdev_fpga_fan_info),
      _values(class_name, instance, {{"num_of_fanzone"}, {"fans_per_pwm"}, {"tachs_per_fan"}, {"total_fans"}}),
      _port(*this, device_port::kind::integer, "PORT_FPGA_FAN_INFO") {}

void common_thermal_device_fpga_fan_info::poll(common_thermal_dao* dao, unsigned long) {
    std::uint32_t reading = 0;
    const bool read = _port.is_bound() && _port.read_port_integer(&reading);
    const unsigned zones = reading >> 4 & 0x0Fu;
    const unsigned tachometers = (reading & 0x01u) != 0 ? 2 : 1;
    _values[num_of_fanzone] = read ? static_cast<float>(zones) : 0.0f;
    _values[fans_per_pwm] = read ? static_cast<float>(reading >> 1 & 0x07u) : 0.0f;
    _values[tachs_per_fan] = read ? static_cast<float>(tachometers) : 0.0f;
    _values[total_fans] = read ? static_cast<float>(zones * tachometers) : 0.0f;
    _values.publish(dao, common_thermal_dao::spike_none);
}
