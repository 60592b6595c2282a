#include "device/cpu/cpu_info.hpp"

#include "device/cpu/channel_walk.hpp"
#include "foundation/firmware_event.hpp"
#include "foundation/float_conversion.hpp"
#include "foundation/log_masks.hpp"
#include "foundation/seq_str.hpp"

using utils = common_thermal_utils;

namespace {

constexpr const char* class_name = "common_thermal_device_cpu_info";
enum word : std::size_t { family, type, power, energy, tjmax, tdp, cores, bus_fail_count };

constexpr float unknown = 255.0f;
constexpr QSignal tdp_ready_signal = 95;

}  // namespace

common_thermal_device_cpu_info::common_thermal_device_cpu_info(int instance)
    : common_thermal_device(class_name, class_name, instance, utils::tdev_cpu_info),
      _values(class_name, instance,
              {{"family", unknown},
               {"type", unknown},
               {"power"},
               {"energy"},
               {"tjmax"},
               {"tdp"},
               {"cores"},
               {"bus_fail_count"}}),
      _tdp_port(*this, device_port::kind::integer, "PORT_CPU_TDP_POWER") {
    _tdp_port.bind(seq_str("CPU", instance, "_TDP").text());
}

std::uint32_t common_thermal_device_cpu_info::get_family() const { return saturate_to_unsigned(_values[family]); }
std::uint32_t common_thermal_device_cpu_info::get_type() const { return saturate_to_unsigned(_values[type]); }
std::uint8_t common_thermal_device_cpu_info::get_power_unit() const { return saturate_to_byte(_values[power]); }
std::uint8_t common_thermal_device_cpu_info::get_energy_unit() const { return saturate_to_byte(_values[energy]); }
float common_thermal_device_cpu_info::get_tjmax() const { return _values[tjmax]; }
float common_thermal_device_cpu_info::get_tdp_power() const { return _values[tdp]; }
float common_thermal_device_cpu_info::get_core_num() const { return _values[cores]; }

void common_thermal_device_cpu_info::read_identity(host_cpu_interface& processor, std::uint8_t address) {
    if (_need.family && processor.read_cpu_family(address) != 0) {
        _values[family] = static_cast<float>(processor.get_cpu_family());
        _need.family = false;
    }
    if (_need.type && processor.read_cpu_type(address, static_cast<cpu_family_t>(get_family())) != 0) {
        _values[type] = static_cast<float>(processor.get_cpu_type());
        _need.type = false;
    }
    if (_need.units && processor.read_cpu_unit(address) != 0) {
        _values[power] = static_cast<float>(processor.get_power_unit());
        _values[energy] = static_cast<float>(processor.get_energy_unit());
        _need.units = false;
    }
}

void common_thermal_device_cpu_info::read_limits(host_cpu_interface& processor, std::uint8_t address) {
    if (_need.tjmax && processor.read_tjmax(address) != 0) {
        _values[tjmax] = processor.get_tjmax();
        _need.tjmax = _values[tjmax] == 0.0f;
    }
    if (_need.tdp && processor.read_cpu_tdp(address) != 0) {
        const std::uint16_t watts = processor.get_tdp_power();
        if (static_cast<float>(watts) != _values[tdp]) {
            _values[tdp] = static_cast<float>(watts);
            send_CPU_tdp_ready_signal(watts);
        }
        _need.tdp = false;
    }
    if (_need.cores && processor.read_cpu_core_number_mask(address) != 0) {
        _values[cores] = static_cast<float>(processor.get_core_num());
        _need.cores = false;
    }
}

void common_thermal_device_cpu_info::poll(common_thermal_dao* dao, unsigned long) {
    const cpu_connection connection = last_cpu_connection(*this);
    if (connection.active) {
        read_identity(*connection.channel, connection.address);
        read_limits(*connection.channel, connection.address);
        _values[bus_fail_count] = static_cast<float>(connection.channel->get_count_of_bridge_bus_failed());
    } else {
        _values[bus_fail_count] = 0.0f;
        const bool need_cores = _need.cores;
        _need = {};
        _need.cores = need_cores;
    }
    _values.publish(dao, common_thermal_dao::spike_going_high);
}

void common_thermal_device_cpu_info::send_CPU_tdp_ready_signal(unsigned short watts) {
    if (watts == 0) {
        return;
    }
    if (_tdp_port.is_bound()) {
        _tdp_port.write_port_integer(watts);
    }
    bmc_event* event = new_firmware_event(tdp_ready_signal, "common_thermal_device_cpu_info: no storage for an event");
    event->data_word = watts;
    QF::publish_(event, "void common_thermal_device_cpu_info::send_CPU_tdp_ready_signal(uint16)");
    LOG::log(log_source, log_mask::processor, "common_thermal_device_cpu_info::%s[%d]\n", "send_CPU_tdp_ready_signal",
             get_instance());
}
