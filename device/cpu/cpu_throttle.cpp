#include "device/cpu/cpu_throttle.hpp"

#include "foundation/log_masks.hpp"
#include "foundation/seq_str.hpp"
#include "platform/host_cpu.hpp"

namespace {

constexpr const char* class_name = "common_thermal_device_cpu_throttle";
enum word : std::size_t { fpga_data, throttle_reason };

}  // namespace

common_thermal_device_cpu_throttle::common_thermal_device_cpu_throttle(int instance)
    : common_thermal_device(class_name, class_name, instance, common_thermal_utils::tdev_cpu_throttle),
      _status_property(seq_str("/dc/zorm/dm/planar/0/cpu/", instance, "/last_throttle_event_peci_status")),
      _values(class_name, instance, {{"fpga_data"}, {"throttle_reason"}}),
      _input_port(*this, device_port::kind::bit, "cpu_throttle"),
      _output_port(*this, device_port::kind::bit, "cpu_throttle_event_sdr") {}

bool common_thermal_device_cpu_throttle::check_pin() {
    std::uint8_t bit = 0;
    if (_input_port.is_bound() && _input_port.read_port_bit(&bit)) {
        _values[fpga_data] = bit == 1 ? 1.0f : 0.0f;
    }
    const bool throttled = bit != 0;
    if (throttled != _fpga_throttled) {
        _fpga_throttled = throttled;
        LOG::err(log_source, "common_thermal_device_cpu_throttle: FPGA throttle[%X]\n", throttled ? 1u : 0u);
    }
    return throttled;
}

bool common_thermal_device_cpu_throttle::check_processor(const cpu_connection& connection, std::uint32_t& status) {
    if (!connection.active) {
        _cpu_throttled = false;
        return false;
    }
    host_cpu_interface& processor = *connection.channel;
    if (processor.read_host_cpu_therm_throttle_status(connection.address) == 0) {
        return false;
    }
    status = processor.get_host_cpu_therm_throttle_status();
    _values[throttle_reason] = static_cast<float>(status);
    const bool throttled = processor.check_therm_throttle(status) != 0;
    if (throttled) {
        keep_status(status);
    }
    if (throttled != _cpu_throttled) {
        _cpu_throttled = throttled;
        LOG::err(log_source, "common_thermal_device_cpu_throttle: CPU throttle[%lX]\n",
                 static_cast<unsigned long>(status));
    }
    return throttled;
}

void common_thermal_device_cpu_throttle::keep_status(std::uint32_t status) const {
    if (bmc_property* property = DM::get_property(_status_property)) {
        property->set(status, property_flags, property_notify);
    } else {
        bmc_property::create(_status_property, status, property_flags);
    }
}

void common_thermal_device_cpu_throttle::poll(common_thermal_dao* dao, unsigned long) {
    const bool pin_throttled = check_pin();
    const cpu_connection connection = last_cpu_connection(*this);
    std::uint32_t status = 0;
    const bool throttled = check_processor(connection, status) || pin_throttled;
    LOG::log(log_source, log_mask::life_cycle, "common_thermal_device_cpu_throttle::%s - %d, 0x%lx\n", "poll",
             connection.active ? 1 : 0, static_cast<unsigned long>(status));
    if (_output_port.is_bound()) {
        _output_port.write_port_bit(connection.active && throttled ? 1 : 0);
    }
    _values.publish(dao, connection.active ? common_thermal_dao::spike_going_high : common_thermal_dao::spike_none);
}
