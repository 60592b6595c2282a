#include "bench/board.hpp"

#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <span>
#include <stdexcept>

#include "bench/rules_of_every_type.hpp"

namespace {

constexpr unsigned fan_port = 1;
constexpr unsigned first_sensor_port = 1000;
constexpr unsigned fans_per_zone = 4;
constexpr std::uint32_t fan_block_unit = 16;
constexpr const char* sensor_class = "four_value_device";

enum sensor_value : std::size_t { temperature, margin, power, valid };

thermal_host::host_options options() {
    thermal_host::host_options chosen;
    chosen.virtual_time = true;
    return chosen;
}

struct sample_condition {
    const char* value;
    const char* comparison;
    const char* threshold;
};
constexpr sample_condition holding[] = {
    {"valid", "OP_EQ", "1"}, {"temperature", "OP_GT", "0"}, {"margin", "OP_LT", "200"}};
constexpr sample_condition failing[] = {{"valid", "OP_EQ", "2"}};

void write_conditions(std::ostream& file, std::span<const sample_condition> conditions, unsigned sensor) {
    file << "CONDITION_COUNT=" << conditions.size() << "\n";
    for (unsigned number = 1; const auto& [value, comparison, threshold] : conditions) {
        file << number << ".CONDITION_KEY_PREFIX=" << sensor_class << "." << value << "\n"
             << number << ".CONDITION_INST=" << sensor << "\n"
             << number << ".CONDITION_OPS=" << comparison << "\n"
             << number << ".CONDITION_VAL=" << threshold << "\n";
        ++number;
    }
}

void write_pid_rule(std::ostream& file, const board_shape& shape, unsigned rule, unsigned sensor) {
    file << "TYPE=common_thermal_algorithm_pid_v2\nPARAMETER_COUNT=1\n1.PARAMETER_X_PREFIX=" << sensor_class
         << ".temperature\n1.PARAMETER_X_INST=" << sensor
         << "\n1.PARAMETER_Y_PREFIX=common_thermal_device_fan.pwm\n1.PARAMETER_Y_INST=" << rule % shape.fans + 1
         << "\n1.PARAMETER_X_TARGET_HI=65\n1.PARAMETER_X_TARGET_LO=60\n1.PARAMETER_X_KP=1.5\n1.PARAMETER_X_KI=0.2\n"
            "1.PARAMETER_X_KD=0.05\n1.PARAMETER_R_MAX=100\n";
}

void write_rule(std::ostream& file, const board_shape& shape, unsigned rule) {
    const unsigned sensor = rule % (shape.devices - 2 * shape.fans) + 1;
    const sample_rule& sample = sample_rules()[rule % sample_rules().size()];
    file << "[" << rule << ".ALGORITHM]\nNAME=ZONE_" << rule << "\n";
    if (shape.mix == rule_mix::pid) {
        write_pid_rule(file, shape, rule, sensor);
    } else {
        file << "TYPE=" << sample.type << "\n" << parameters_for(sample, sensor);
    }
    if (shape.mix == rule_mix::every_type_failing) {
        write_conditions(file, failing, sensor);
    } else {
        write_conditions(file, holding, sensor);
    }
    file << "FAN_MAP_COUNT=" << shape.fans_per_rule << "\n";
    for (unsigned i = 0; i < shape.fans_per_rule; ++i) {
        file << i + 1 << ".FAN_MAP=" << (rule + i) % shape.fans + 1 << "\n";
    }
    file << "\n";
}

std::uint64_t status_kilobytes(const char* field) {
    std::ifstream status("/proc/self/status");
    std::string word;
    std::uint64_t kilobytes = 0;
    while (status >> word) {
        if (word == field && status >> kilobytes) {
            break;
        }
    }
    return kilobytes;
}

}  // namespace

void write_rules(std::ostream& file, const board_shape& shape) {
    file << "[SUMMARY]\nALGORITHM_COUNT=" << shape.rules << "\n\n";
    for (unsigned rule = 1; rule <= shape.rules; ++rule) {
        write_rule(file, shape, rule);
    }
}

four_value_device::four_value_device(int instance)
    : common_thermal_device(sensor_class, sensor_class, instance, common_thermal_utils::tdev_generic_temperature),
      _values(sensor_class, instance, {{"temperature"}, {"margin"}, {"power"}, {"valid"}}),
      _port(*this, device_port::kind::integer, "PORT_FOUR_VALUES") {}

void four_value_device::poll(common_thermal_dao* dao, unsigned long) {
    std::uint32_t reading = 0;
    const bool read = _port.read_port_integer(&reading);
    _values[temperature] = read ? static_cast<float>(reading) : 0.0f;
    _values[margin] = 100.0f - _values[temperature];
    _values[power] = 2.0f * _values[temperature];
    _values[valid] = read ? 1.0f : 0.0f;
    _values.publish(dao, common_thermal_dao::spike_going_high);
}

board::board(const board_shape& shape)
    : _shape(shape),
      _host(options()),
      _rule_path("/tmp/thermal_board_" + std::to_string(::getpid()) + ".ini"),
      _scheduler(std::make_unique<common_thermal_scheduler>()),
      _dao(std::make_unique<common_thermal_dao>()) {
    _host.log.set_mask(0);
    _host.log.set_file(nullptr);
    common_thermal_manager::_scheduler = _scheduler.get();
    common_thermal_manager::_dao = _dao.get();
    _manager = std::make_unique<common_thermal_manager>();
    {
        std::ofstream file(_rule_path);
        write_rules(file, shape);
    }
    _manager->set_algorithm_parse_file(_rule_path);
    add_fans();
    add_devices();
    _manager->add_thermal_device_done();
    _manager->initialize(DM::get_controller(thermal_controller));
    run_tick();  // builds the schedule
}

board::~board() {
    _manager.reset();
    common_thermal_manager::_scheduler = nullptr;
    common_thermal_manager::_dao = nullptr;
    std::remove(_rule_path.c_str());
}

void board::add_fans() {
    _host.ports.add_block(fan_port, std::vector<std::uint8_t>(128, 0x10), fan_block_unit);
    _fan_control = std::make_unique<common_thermal_device_fan_control>(1);
    _fan_control->set_port_input(fan_port);
    for (unsigned i = 0; i < _shape.fans; ++i) {
        fan_parts& parts = _fans.emplace_back(static_cast<int>(i + 1));
        parts.tach.set_adi_offset(i / fans_per_zone, i % fans_per_zone, 0);
        parts.pwm.set_adi_offset(i / fans_per_zone, i % fans_per_zone, 0);
        parts.fan.add_depend(&parts.tach);
        parts.fan.add_depend(&parts.pwm);
        _fan_control->add_depend(&parts.fan);
        for (common_thermal_device* device :
             std::initializer_list<common_thermal_device*>{&parts.tach, &parts.pwm, &parts.fan}) {
            _manager->add_thermal_device(device);
        }
    }
    _manager->add_thermal_device(_fan_control.get());
}

void board::add_devices() {
    const unsigned of_fans = 2 * _shape.fans;
    for (unsigned i = 0; i < _shape.devices - of_fans; ++i) {
        four_value_device& device = _devices.emplace_back(static_cast<int>(i + 1));
        _sensors.push_back(&_host.ports.add_number(first_sensor_port + i, 55 + i % 20));
        device.set_port_input(first_sensor_port + i);
        _manager->add_thermal_device(&device);
    }
}

void board::run_tick() { _manager->poll_thermal_device_and_algorithm(); }

void board::run_cycles(unsigned count) {
    for (unsigned tick = 0; tick < 32 * count; ++tick) {
        run_tick();
    }
}

void board::stir(unsigned seed) {
    const std::size_t base = seed % 2 == 0 ? 55 : 35;  // warm and cold in turn, so that no duty stays at its limit
    for (std::size_t i = 0; i < _sensors.size(); ++i) {
        _sensors[i]->set_value(static_cast<std::uint32_t>(base + (i * 7 + std::size_t{13} * seed) % 30));
    }
}

unsigned board::winner_of_first_fan() const { return _manager->fan_winner(1)->instance; }

void board::reload() {
    _manager->ipmicmd_load_algorithm();
    run_cycles(1);
    run_tick();  // deals the rules anew
}

std::uint64_t resident_bytes() { return 1024 * status_kilobytes("VmRSS:"); }
std::uint64_t peak_resident_bytes() { return 1024 * status_kilobytes("VmHWM:"); }
