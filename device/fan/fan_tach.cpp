#include "device/fan/fan_tach.hpp"

#include <algorithm>
#include <array>
#include <cstdio>
#include <iterator>

#include "device/fan/fan_bitmap.hpp"
#include "foundation/float_conversion.hpp"

using utils = common_thermal_utils;

namespace {

constexpr const char* fpga_class = "common_thermal_device_fan_tach_fpga";
constexpr const char* nrv_class = "common_thermal_device_fan_tach_nrv";
constexpr const char* psu_class = "common_thermal_device_fan_tach_psu";
constexpr const char* kpl_class = "common_thermal_device_fan_tach_kpl";
constexpr const char* fanmax_class = "common_thermal_device_fanmax_tach";

// The fans that the machine can have.
constexpr std::array<const char*, 2> max_fans_bitmaps{
    "/v2/zorm/dm/planar/max_fans_bitmap",
    "/v2/zorm/dm/planar/max_fans_bitmap2",
};

enum fpga_word : std::size_t { zone_index, fan_index, tach_index, adi_index };

void add_to_max_fans(fan_bit bit) {
    if (bit.mask != 0) {
        const char* path = max_fans_bitmaps[bit.bitmap];
        const bmc_property* present = DM::get_property(path);
        utils::set_ipmi_property(path, (present != nullptr ? present->get_dword() : 0) | bit.mask);
    }
}

}  // namespace

common_thermal_device_fan_tach::common_thermal_device_fan_tach(const char* class_name, int instance, fan_source source)
    : common_thermal_device(class_name, class_name, instance, utils::tdev_fan_tach), _source_type(source) {}

void common_thermal_device_fan_tach::attach_to(int fan) {
    if (!_attached) {
        _attached = true;
        attach(fan);
    }
}

common_thermal_device_fan_tach_fpga::common_thermal_device_fan_tach_fpga(int instance)
    : common_thermal_device_fan_tach(fpga_class, instance, fan_source_fpga),
      _values(fpga_class, instance, {{"zone_index"}, {"fan_index"}, {"tach_index"}, {"adi_index"}}) {}

void common_thermal_device_fan_tach_fpga::set_adi_offset(unsigned zone, unsigned fan, unsigned index) {
    _values[zone_index] = static_cast<float>(zone);
    _values[fan_index] = static_cast<float>(fan);
    _values[tach_index] = static_cast<float>(index);
}

std::uint32_t common_thermal_device_fan_tach_fpga::get_adi_offset() {
    // In floating point an absurd place cannot wrap round into the area.
    _values[adi_index] = _values[fan_index] + 1.0f + 5.0f * _values[zone_index] + 2.0f * _values[tach_index];
    return saturate_to_unsigned(_values[adi_index]);
}

void common_thermal_device_fan_tach_fpga::attach(int fan) {
    add_to_max_fans(fan_bit_of(fan < 1 ? 1u : static_cast<unsigned>(fan)));
}

void common_thermal_device_fan_tach_fpga::poll(common_thermal_dao* dao, unsigned long) {
    _values.publish(dao, common_thermal_dao::spike_none);
}

common_thermal_device_fan_tach_nrv::common_thermal_device_fan_tach_nrv(int instance)
    : common_thermal_device_fan_tach(nrv_class, instance, fan_source_nrv),
      _values(nrv_class, instance,
              {{"tach"},
               {"fan_index"},
               {"tach_channel_no"},
               {"mux"},
               {"gpio_port_1"},
               {"gpio_pin_1"},
               {"gpio_port_2"},
               {"gpio_pin_2"},
               {"gpio_port_3"},
               {"gpio_pin_3"}}),
      _port(*this, device_port::kind::fantach, "PORT_FAN_TACH_NRV") {}

void common_thermal_device_fan_tach_nrv::set_num(std::uint8_t channel, std::uint8_t mux, std::uint8_t gpio_port_1,
                                                 std::uint8_t gpio_pin_1, std::uint8_t gpio_port_2,
                                                 std::uint8_t gpio_pin_2) {
    set_num(channel, mux, gpio_port_1, gpio_pin_1, gpio_port_2, gpio_pin_2, 0, 0);
    _record.mux_kind = mux <= 3 ? 1 : 0;
    _record.gpio_setting_3[0] = 0;
}

void common_thermal_device_fan_tach_nrv::set_num(std::uint8_t channel, std::uint8_t mux, std::uint8_t gpio_port_1,
                                                 std::uint8_t gpio_pin_1, std::uint8_t gpio_port_2,
                                                 std::uint8_t gpio_pin_2, std::uint8_t gpio_port_3,
                                                 std::uint8_t gpio_pin_3) {
    _record.kind = 0;
    _record.tach_channel_no = channel;
    _record.mux_kind = mux < 8 ? 2 : 0;
    _record.mux = mux;
    _record.gpio_port_1 = gpio_port_1;
    _record.gpio_pin_1 = gpio_pin_1;
    _record.gpio_port_2 = gpio_port_2;
    _record.gpio_pin_2 = gpio_pin_2;
    _record.gpio_port_3 = gpio_port_3;
    _record.gpio_pin_3 = gpio_pin_3;
    _record.gpio_setting_1[0] = _record.gpio_setting_2[0] = _record.gpio_setting_3[0] = 1;
    _record.gpio_setting_1[1] = _record.gpio_setting_2[1] = _record.gpio_setting_3[1] = 0;
    constexpr std::uint8_t driver_setting[] = {2, 1, 0, 255};
    std::copy(std::begin(driver_setting), std::end(driver_setting), _record.driver_setting);
    _record.configured = 1;
}

void common_thermal_device_fan_tach_nrv::attach(int fan) {
    const int number = fan < 1 ? 0 : fan - 1;
    _record.fan_index = static_cast<std::uint8_t>(number);
    std::fill(std::begin(_record.name), std::end(_record.name), '\0');
    std::snprintf(_record.name, sizeof _record.name, "fan_%d", number);
    if (_port.is_bound()) {
        _port.config_port_fantach(&_record);
    }
    if (number < 32) {
        add_to_max_fans(fan_bit_of(static_cast<unsigned>(number) + 1));
    }
}

void common_thermal_device_fan_tach_nrv::poll(common_thermal_dao* dao, unsigned long) {
    if (is_attached() && _port.is_bound()) {
        int reading = 0;
        _port.read_port_fantach(&_record, &reading);
    }
    _values[0] = _record.configured != 0 ? static_cast<float>(_record.tach) : 0.0f;
    const std::array<std::uint8_t, 9> configuration{_record.fan_index,   _record.tach_channel_no, _record.mux,
                                                    _record.gpio_port_1, _record.gpio_pin_1,      _record.gpio_port_2,
                                                    _record.gpio_pin_2,  _record.gpio_port_3,     _record.gpio_pin_3};
    for (std::size_t i = 0; i < configuration.size(); ++i) {
        _values[i + 1] = static_cast<float>(configuration[i]);
    }
    _values.publish(dao, common_thermal_dao::spike_none);
}

integer_fan_tach::integer_fan_tach(const char* class_name, int instance, fan_source source, const char* port_name)
    : common_thermal_device_fan_tach(class_name, instance, source),
      _values(class_name, instance, {{"tach"}}),
      _port(*this, device_port::kind::integer, port_name) {}

void integer_fan_tach::poll(common_thermal_dao* dao, unsigned long) {
    std::uint32_t reading = 0;
    if (_port.is_bound()) {
        _port.read_port_integer(&reading);
    }
    _values[0] = static_cast<float>(reading);
    _values.publish(dao, common_thermal_dao::spike_none);
}

common_thermal_device_fan_tach_psu::common_thermal_device_fan_tach_psu(int instance)
    : integer_fan_tach(psu_class, instance, fan_source_psu, "PORT_FAN_TACH_PSU") {}

common_thermal_device_fan_tach_kpl::common_thermal_device_fan_tach_kpl(int instance)
    : integer_fan_tach(kpl_class, instance, fan_source_kpl, "PORT_FAN_TACH_KPL") {}

common_thermal_device_fanmax_tach::common_thermal_device_fanmax_tach(int instance)
    : common_thermal_device_fan_tach(fanmax_class, instance, fan_source_fanmax),
      _values(fanmax_class, instance, {{"tach"}}) {}

void common_thermal_device_fanmax_tach::poll(common_thermal_dao* dao, unsigned long) {
    std::uint32_t reading = 0;
    if (dao == nullptr || !_port.read_port_integer(&reading)) {
        return;
    }
    if (static_cast<float>(reading) != _values[0]) {
        _values[0] = static_cast<float>(reading);
        _values.publish(dao, common_thermal_dao::spike_going_low);
    }
}
