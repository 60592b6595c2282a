#include "device/fpga_capabilities.hpp"

namespace {
constexpr const char* class_name = "common_thermal_device_fpga_capabilities";
constexpr unsigned sensor_records = 0x01;  // in the first byte of the block
}  // namespace

common_thermal_device_fpga_capabilities::common_thermal_device_fpga_capabilities(int instance)
    : common_thermal_device(class_name, class_name, instance, common_thermal_utils::tdev_fpga_capabilities),
      _values(class_name, instance, {{"fpga_cap"}}),
      _port(*this, device_port::kind::block, "PORT_FPGA_CAP") {}

void common_thermal_device_fpga_capabilities::poll(common_thermal_dao* dao, unsigned long) {
    std::uint32_t got = 0;
    const auto block = _port.read_record(got);
    _values[0] = block && (block->front() & sensor_records) != 0 ? 1.0f : 0.0f;
    _values.publish(dao, common_thermal_dao::spike_none);
}
