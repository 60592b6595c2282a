#include "device/fan/fan_pwm.hpp"

#include "foundation/float_conversion.hpp"
#include "foundation/log_masks.hpp"
#include "platform/enclosure.hpp"

using utils = common_thermal_utils;

namespace {

constexpr const char* fpga_class = "common_thermal_device_fan_pwm_fpga";
constexpr const char* psu_class = "common_thermal_device_fan_pwm_psu";
constexpr const char* kpl_class = "common_thermal_device_fan_pwm_kpl";
constexpr const char* fanmax_class = "common_thermal_device_fanmax_pwm";

// What an enclosure that does not tell is taken to run with.
constexpr float unknown_input = 45.0f;

enum fpga_word : std::size_t { zone_index, fan_index, pwm_index, adi_offset };
enum kpl_word : std::size_t { pwm_input, pwm_output };

}  // namespace

common_thermal_device_fan_pwm::common_thermal_device_fan_pwm(const char* class_name, int instance, fan_source source)
    : common_thermal_device(class_name, class_name, instance, utils::tdev_fan_pwm), _source_type(source) {}

common_thermal_device_fan_pwm_fpga::common_thermal_device_fan_pwm_fpga(int instance)
    : common_thermal_device_fan_pwm(fpga_class, instance, fan_source_fpga),
      _values(fpga_class, instance, {{"zone_index"}, {"fan_index"}, {"pwm_index"}, {"adi_offset"}}) {}

void common_thermal_device_fan_pwm_fpga::set_adi_offset(unsigned zone, unsigned fan, unsigned index) {
    _values[zone_index] = static_cast<float>(zone);
    _values[fan_index] = static_cast<float>(fan);
    _values[pwm_index] = static_cast<float>(index);
}

std::uint32_t common_thermal_device_fan_pwm_fpga::get_adi_offset() {
    // In floating point an absurd place cannot wrap round into the area.
    _values[adi_offset] = _values[fan_index] + 5.0f * _values[zone_index];
    return saturate_to_unsigned(_values[adi_offset]);
}

void common_thermal_device_fan_pwm_fpga::poll(common_thermal_dao* dao, unsigned long) {
    _values.publish(dao, common_thermal_dao::spike_none);
}

common_thermal_device_fan_pwm_psu::common_thermal_device_fan_pwm_psu(int instance)
    : common_thermal_device_fan_pwm(psu_class, instance, fan_source_psu),
      _values(psu_class, instance, {{"last_pwm"}, {"expected_pwm"}}) {}

void common_thermal_device_fan_pwm_psu::poll(common_thermal_dao* dao, unsigned long) {
    _values.publish(dao, common_thermal_dao::spike_none);
}

common_thermal_device_fan_pwm_kpl::common_thermal_device_fan_pwm_kpl(int instance)
    : common_thermal_device_fan_pwm(kpl_class, instance, fan_source_kpl),
      _values(kpl_class, instance, {{"pwm_input"}, {"pwm_output"}}),
      _port(*this, device_port::kind::integer, "PORT_KPL_PWM_INPUT") {}

std::uint32_t common_thermal_device_fan_pwm_kpl::get_input_value() const {
    return saturate_to_unsigned(_values[pwm_input]);
}

void common_thermal_device_fan_pwm_kpl::set_pwm_to_hw(std::uint8_t value) {
    if (value == _last_sent) {
        return;
    }
    const int rc = kpl_logical_device::set_cooling_value(value);
    LOG::log(log_source, log_mask::life_cycle, "%s::rc(%u) - pwm(%u)\n", "set_pwm_to_hw", static_cast<unsigned>(rc),
             static_cast<unsigned>(value));
    if (rc == 0) {
        _last_sent = value;
        _values[pwm_output] = static_cast<float>(value);
    }
}

void common_thermal_device_fan_pwm_kpl::poll(common_thermal_dao* dao, unsigned long) {
    std::uint32_t reading = 0;
    const bool read = _port.is_bound() && _port.read_port_integer(&reading);
    _values[pwm_input] = read ? static_cast<float>(reading) : unknown_input;
    _values.publish(dao, common_thermal_dao::spike_none);
}

common_thermal_device_fanmax_pwm::common_thermal_device_fanmax_pwm(int instance)
    : common_thermal_device_fan_pwm(fanmax_class, instance, fan_source_fanmax),
      _values(fanmax_class, instance, {{"pwm"}}),
      _wanted(create_dao_key_prefix(fanmax_class, "pwm"), instance) {}

void common_thermal_device_fanmax_pwm::set_pwm_to_hw(std::uint8_t value) {
    if (!_port.write_port_integer(value)) {
        LOG::log(log_source, log_mask::change, "common_thermal_device_fanmax_pwm::%s() [%s%d] failed setting pwm!n",
                 "set_pwm_to_hw", get_name().c_str(), get_instance());
    }
}

void common_thermal_device_fanmax_pwm::poll(common_thermal_dao* dao, unsigned long) {
    std::uint32_t present = 0;
    if (dao == nullptr || !_wanted.fetch(*dao, &_values[0]) || !_port.read_port_integer(&present)) {
        return;
    }
    const std::uint32_t wanted = saturate_to_unsigned(_values[0]);
    if (present != wanted && _port.write_port_integer(wanted)) {
        LOG::log(log_source, log_mask::change, "fanmax_pwm::%s() zone %d changed from %d%% to %d%%\n", "poll",
                 get_instance(), static_cast<int>(present), static_cast<int>(wanted));
    }
}
