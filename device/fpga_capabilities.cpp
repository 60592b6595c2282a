#include "device/fpga_capabilities.hpp"

#include <array>

namespace {
constexpr const char* class_name = "common_thermal_device_fpga_capabilities";
constexpr unsigned sensor_records = 0x01;  // in the first byte of the block
}  // namespace

common_thermal_device_fpga_capabilities::common_thermal_device_fpga_capabilities(int instance)
    : common_thermal_device(class_name, class_name, instance, common_thermal_utils::tdev_fpga_capabilities),
      _values(class_name, instance, {{"fpga_cap"}}),
      _port(*this, device_port::kind::block, "PORT_FPGA_CAP") {}

void common_thermal_device_fpga_capabilities::poll(common_thermal_dao* dao, unsigned long) {
    std::array<std::uint8_t, 16> block{};
    bool has_records = false;
    if (_port.is_bound()) {
        std::uint32_t got = 0;
        _port.seek_port_block(0);
        has_records = _port.read_port_block(block.data(), &got, block.size()) && (block[0] & sensor_records) != 0;
    }
    _values[0] = has_records ? 1.0f : 0.0f;
    _values.publish(dao, common_thermal_dao::spike_none);
}
