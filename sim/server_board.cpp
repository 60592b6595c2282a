#include "sim/server_board.hpp"

#include "sim/server_sensors.hpp"

namespace sim {

server_board::server_board(common_thermal_manager& manager, const machine_plan& plan) : _manager(manager) {
    add_platform();
    add_processors();
    add_memory();
    add_drives();
    add_main_zone();
    add_air();
    add_power_zone();
    add_storage_zone();
    add_slots(plan.slots().size());
    _fan_control.set_port_input(fan_block);
    add(_fan_control);
    add_sensors();
    _manager.add_thermal_device_done();
}

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

// What reads a processor depends on its channel, which depends on whatever says that the processor can be read. Registers
// are handed over ahead of what reads them, so that the first cycle knows the sockets.
void server_board::add_processors() {
    for (unsigned number = 1; number <= sockets; ++number) {
        socket& parts = _sockets.emplace_back(static_cast<int>(number));
        parts.registers.set_port_input(socket_registers + number);
        add(parts.registers);
    }
    for (socket& parts : _sockets) {
        parts.presence.add_depend(&parts.registers);
        add(parts.presence);
    }
    for (socket& parts : _sockets) {
        add_processor(parts);
    }
}

void server_board::add_processor(socket& parts) {
    const auto number = static_cast<unsigned>(parts.channel.get_instance());
    parts.disabled.add_depend(&parts.registers);
    for (common_thermal_device* gate :
         std::initializer_list<common_thermal_device*>{&parts.agent, &parts.presence, &parts.disabled, &_stages}) {
        parts.channel.add_depend(gate);
    }
    parts.power.add_depend(&parts.info);
    parts.throttle.set_port_input(socket_throttle_bits + number);
    parts.throttle.set_port_output(socket_throttle_outputs + number);
    add(parts.disabled);
    add(parts.agent);
    add(parts.channel);
    for (common_thermal_device* reader : std::initializer_list<common_thermal_device*>{&parts.info, &parts.temperature,
                                                                                       &parts.power, &parts.throttle}) {
        reader->add_depend(&parts.channel);
        add(*reader);
    }
    const bool is_first = number == 1;
    const unsigned block = is_first ? fpga_record_block : fpga_record_block_2;
    add_fpga_record(parts.cpu_vr, block, is_first ? 2 : 0);
    add_fpga_record(parts.dimm_vr, block, is_first ? 4 : 2);
}

void server_board::add_memory() {
    for (unsigned number = 1; number <= memory_channels; ++number) {
        auto& channel = _memory_channels.emplace_back(static_cast<int>(number));
        channel.set_num((number - 1) % channels_a_socket + 1);
        channel.add_depend(&_sockets[(number - 1) / channels_a_socket].channel);
    }
    for (unsigned number = 1; number <= memory_modules; ++number) {
        memory_module& module = _modules.emplace_back(static_cast<int>(number));
        auto& channel = _memory_channels[(number - 1) / modules_a_channel];
        module.presence.set_port_input(module_present_bits + number);
        channel.add_depend(&module.presence);
        module.temperature.add_depend(&channel);
        module.temperature.set_num((number - 1) % modules_a_channel + 1);
        module.info.add_depend(&module.presence);
        add(module.presence);
        add(module.temperature);
        add(module.info);
    }
    for (auto& channel : _memory_channels) {
        add(channel);
    }
}

void server_board::add_drives() {
    add_component(_backplane_presence, backplane_present_bit, _backplane, backplane_block);
    for (unsigned number = 1; number <= drive_bays; ++number) {
        drive_bay& bay = _bays.emplace_back(static_cast<int>(number));
        bay.info.add_depend(&bay.presence);
        if (number <= sata_bays) {
            auto& temperature = _sata.emplace_back(static_cast<int>(number));
            add_sensor_of(bay.presence, temperature, bay_temperatures + number);
            bay.info.add_depend(&temperature);
        } else {
            auto& record = _nvme.emplace_back(static_cast<int>(number - sata_bays));
            bay.info.add_depend(&record);
            add(record);
        }
        _drive_count.add_depend(&bay.presence);
        _drive_mask.add_depend(&bay.presence);
        add(bay.presence);
        add(bay.info);
    }
    add(_drive_count);
    add(_drive_mask);
}

// The ports of an estimate are bound in turn: power, air volume, factor.
void server_board::add_air() {
    _exhaust.set_port_input(system_power_number);
    _exhaust.set_port_input(exhaust_volume_number);
    _exhaust.set_port_input(exhaust_factor_number);
    _exhaust.add_depend(&_ambient);
    add(_exhaust);
    _airflow.set_port_input(airflow_block);
    _airflow.add_depend(&_fan_control);
    add(_airflow);
}

void server_board::add_main_zone() {
    add_fpga_record(_ambient, fpga_record_block, 0);
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
    for (unsigned number = 1; number <= power_supplies; ++number) {
        power_supply& parts = _supplies.emplace_back(static_cast<int>(number));
        add_component(parts.presence, psu_present_bits + number, parts.inlet, psu_inlet_temperatures + number);
        parts.tach.set_port_input(psu_tach_numbers + number);
        add_fan(parts.fan, parts.tach, parts.pwm);
    }
    add_fpga_record(_power_vr, fpga_record_block, 6);
}

void server_board::add_storage_zone() {
    add_component(_raid_presence, raid_present_bit, _raid, raid_temperature);
    add_sensor_of(_raid_presence, _battery, battery_temperature);
    add_chip(_storage, storage_chip, temperature_chip::lm92);
    _m2_air.set_port_type(static_cast<unsigned>(temperature_chip::tmp75));
    add_component(_m2_air_presence, m2_ambient_present_bit, _m2_air, m2_ambient_chip);
    _m2_composite.add_depend(&_m2_air);
    for (unsigned number = 1; number <= m2_drives; ++number) {
        m2_drive& drive = _m2.emplace_back(static_cast<int>(number));
        drive.temperature.set_port_input(m2_temperatures + number);
        drive.temperature.set_port_input(m2_thresholds + number);
        drive.temperature.add_depend(&drive.presence);
        drive.presence.set_port_input(m2_present_bits + number);
        _m2_composite.add_depend(&drive.temperature);
        add(drive.presence);
        add(drive.temperature);
    }
    add(_m2_composite);
    _boot_drive.set_num(1);
    add(_boot_drive);
    _storage_tach.set_port_input(storage_fan_tach_key);
    _storage_pwm.set_port_output(storage_fan_duty_key);
    add_fan(_storage_fan, _storage_tach, _storage_pwm);
}

void server_board::add_slots(std::size_t count) {
    for (unsigned number = 1; number <= count; ++number) {
        _slots.emplace_back(number).add_to(_manager, _stages, _uefi);
    }
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
