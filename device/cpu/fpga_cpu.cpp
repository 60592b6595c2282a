#include "device/cpu/fpga_cpu.hpp"

using utils = common_thermal_utils;

namespace {

constexpr const char* fpga_class = "common_thermal_device_fpga_one_cpu_info";
constexpr const char* presence_class = "common_thermal_device_cpu_presence";
constexpr const char* disabled_class = "common_thermal_device_cpu_disabled";

enum fpga_word : std::size_t { fpga_cpu_info, fpga_cpu_present, fpga_cpu_disable };

// Low-active bits of the register.
constexpr std::uint32_t absent_bit = 0x08;
constexpr std::uint32_t enabled_bit = 0x10;

using fpga = common_thermal_device_fpga_one_cpu_info;

}  // namespace

common_thermal_device_fpga_one_cpu_info::common_thermal_device_fpga_one_cpu_info(int instance)
    : common_thermal_device(fpga_class, fpga_class, instance, utils::tdev_fpga_one_cpu_info),
      _values(fpga_class, instance, {{"fpga_cpu_info"}, {"fpga_cpu_present"}, {"fpga_cpu_disable"}}),
      _port(*this, device_port::kind::integer, "PORT_FPGA_ONE_CPU_INFO") {}

bool common_thermal_device_fpga_one_cpu_info::get_presence() const { return _values[fpga_cpu_present] > 0.0f; }

bool common_thermal_device_fpga_one_cpu_info::get_disabled() const { return _values[fpga_cpu_disable] > 0.0f; }

void common_thermal_device_fpga_one_cpu_info::poll(common_thermal_dao* dao, unsigned long) {
    if (!_port.is_bound()) {
        return;
    }
    std::uint32_t value = 0;
    if (!_port.read_port_integer(&value)) {
        value = 0;
    }
    _values[fpga_cpu_info] = static_cast<float>(value);
    _values[fpga_cpu_present] = (value & absent_bit) == 0 ? 1.0f : 0.0f;
    _values[fpga_cpu_disable] = (value & enabled_bit) == 0 ? 1.0f : 0.0f;
    _values.publish(dao, common_thermal_dao::spike_none);
}

common_thermal_device_cpu_presence::common_thermal_device_cpu_presence(int instance)
    : common_thermal_device(presence_class, presence_class, instance, utils::tdev_cpu_presence),
      _values(presence_class, instance, {{"presence"}}) {}

void common_thermal_device_cpu_presence::poll(common_thermal_dao* dao, unsigned long) {
    const auto present = [](const fpga& socket) { return socket.get_presence(); };
    _values[0] = any_depend<fpga>(utils::tdev_fpga_one_cpu_info, present) ? 1.0f : 0.0f;
    _values.publish(dao, common_thermal_dao::spike_going_high);
}

common_thermal_device_cpu_disabled::common_thermal_device_cpu_disabled(int instance)
    : common_thermal_device(disabled_class, disabled_class, instance, utils::tdev_cpu_disabled),
      _values(disabled_class, instance, {{"disabled", 1.0f}}) {}

void common_thermal_device_cpu_disabled::poll(common_thermal_dao* dao, unsigned long) {
    const auto disabled = [](const fpga& socket) { return socket.get_disabled(); };
    _values[0] = any_depend<fpga>(utils::tdev_fpga_one_cpu_info, disabled) ? 1.0f : 0.0f;
    _values.publish(dao, common_thermal_dao::spike_going_high);
}
