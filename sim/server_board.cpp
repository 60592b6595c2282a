#include "sim/server_board.hpp"

#include "sim/server_sensors.hpp"

namespace sim {

server_board::server_board(common_thermal_manager& manager)
    : _manager(manager), _psu_fan(static_cast<int>(psu_fan)), _storage_fan(static_cast<int>(storage_fan)) {
    add_platform();
    add_main_zone();
    add_power_zone();
    add_storage_zone();
    _fan_control.set_port_input(fan_block);
    add(_fan_control);
    add_sensors();
    _manager.add_thermal_device_done();
}

unsigned server_board::fpga_records() { return fpga_record_block; }

void server_board::add_platform() {
    add(_stages);
    _uefi.add_depend(&_stages);
    add(_uefi);
    _fpga.set_port_input(fpga_capability_block);
    add(_fpga);
    _platform.add_mapping_port_integer_input("system_power", system_power_number);
    add(_platform);
    add(_constant);
    _fan_info.set_port_input(fan_info_number);
    add(_fan_info);
}

void server_board::add_main_zone() {
    add_fpga_record(_ambient, 0);
    add_fpga_record(_cpu_vr, 2);
    add_fpga_record(_dimm_vr, 4);
    add_component(_pch_presence, pch_present_bit, _pch, pch_temperature);
    add_component(_retimer_presence, retimer_present_bit, _retimer, retimer_temperature);
    add_chip(_adapter, adapter_chip, temperature_chip::tmp75);
    add_component(_baseboard_presence, baseboard_present_bit, _switch, switch_temperature);
    for (unsigned i = 0; i < fpga_fans; ++i) {
        fpga_fan& parts = _fpga_fans.emplace_back(static_cast<int>(i + 1));
        parts.tach.set_adi_offset(i, 0, 0);
        parts.pwm.set_adi_offset(i, 0, 0);
        add_fan(parts.fan, parts.tach, parts.pwm);
    }
}

void server_board::add_power_zone() {
    add_component(_psu_presence, psu_present_bit, _psu_inlet, psu_inlet_temperature);
    add_fpga_record(_power_vr, 6);
    _psu_tach.set_port_input(psu_tach_number);
    add_fan(_psu_fan, _psu_tach, _psu_pwm);
}

void server_board::add_storage_zone() {
    add_component(_raid_presence, raid_present_bit, _raid, raid_temperature);
    add_sensor_of(_raid_presence, _battery, battery_temperature);
    add_chip(_storage, storage_chip, temperature_chip::lm92);
    _storage_tach.set_port_input(storage_fan_tach_key);
    _storage_pwm.set_port_output(storage_fan_duty_key);
    add_fan(_storage_fan, _storage_tach, _storage_pwm);
}

void server_board::add_sensors() {
    constexpr float no_offset = 0.0f;
    constexpr unsigned logical_unit = 0;
    for (const server_sensor& sensor : server_sensors()) {
        const std::string key = sensor.map_key;
        _sensors.init_sdr_map(key);
        _sensors.set_sdr_parameters(key, sensor.m, no_offset, sensor.k2, sensor.number, logical_unit);
        _sensors.set_sel_type(key, sensor.events);
        _sensors.set_port_output(key, sensor.output_port());
        if (sensor.has_event_ports()) {
            _sensors.set_port_discrete_event(key, sensor.event_port(1), sensor.event_port(2), sensor.event_port(3));
        }
    }
    _sensors.add_depend(&_stages);
    add(_sensors);
}

void server_board::add_chip(common_thermal_device_generic_temperature& sensor, unsigned port, temperature_chip chip) {
    sensor.set_port_input(port);
    sensor.set_port_type(static_cast<unsigned>(chip));
    add(sensor);
}

void server_board::add_fan(common_thermal_device_fan& fan, common_thermal_device_fan_tach& tach,
                           common_thermal_device_fan_pwm& pwm) {
    fan.add_depend(&tach);
    fan.add_depend(&pwm);
    _fan_control.add_depend(&fan);
    add(tach);
    add(pwm);
    add(fan);
    _fans.push_back(&fan);
}

}  // namespace sim
