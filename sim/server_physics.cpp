#include "sim/server_physics.hpp"

#include <algorithm>
#include <cmath>

#include "sim/heat_parts.hpp"

namespace sim {

namespace {

constexpr QSignal overloaded_signal = 87;
constexpr std::uint8_t record_invalid = 0x08;
constexpr std::size_t record_start = 5;
constexpr std::uint32_t fan_block_unit = 16;  // the FPGA counts positions in 16 bytes

// A chip with one register pair, selected by any pointer.
thermal_host::block_line& add_chip(thermal_host::port_registry& ports, unsigned port) {
    thermal_host::block_line& line = ports.add_block(port, {0, 0});
    line.set_script([&line](const std::uint8_t*, std::uint32_t, std::uint8_t* in, std::uint32_t max, int&) {
        const auto count = std::min<std::size_t>(max, line.bytes().size());
        std::copy_n(line.bytes().begin(), count, in);
        return static_cast<std::uint32_t>(count);
    });
    return line;
}

// Two's complement with `unit` degrees a step, left-aligned by `shift` bits.
void put_fixed_point(std::uint8_t* bytes, double celsius, double unit, unsigned shift) {
    const auto steps = static_cast<std::uint32_t>(std::lround(celsius / unit)) << shift;
    bytes[0] = static_cast<std::uint8_t>(steps >> 8 & 0xFFu);
    bytes[1] = static_cast<std::uint8_t>(steps & 0xFFu);
}

std::uint32_t whole(double value) { return static_cast<std::uint32_t>(std::max(0L, std::lround(value))); }

}  // namespace

server_physics::psu_listener::psu_listener(std::uint16_t topic)
    : logical_device(nullptr, "simulated_psu", "simulated_psu", false), _topic(topic) {}

void server_physics::psu_listener::dispatch_event(const QEvent* event) {
    const auto& payload = static_cast<const bmc_event&>(*event);
    if (payload.data_word == _topic) {
        _duty = std::min<std::uint8_t>(payload.data_byte0, 100);
    }
}

server_physics::server_physics(thermal_host::platform& host, unsigned seed)
    : _host(host),
      _random(seed),
      _noisy(seed != 0),
      _psu(static_cast<std::uint16_t>(host.machines.number_of("CFF2_FAN_SPEED_CTRL_SIG"))),
      _records(host.ports.add_block(fpga_record_block, std::vector<std::uint8_t>(16))),
      _fan_records(host.ports.add_block(fan_block, std::vector<std::uint8_t>(128), fan_block_unit)),
      _psu_tach(host.ports.add_number(psu_tach_number)),
      _storage_duty(host.ports.add_number(storage_fan_duty_key)),
      _storage_tach(host.ports.add_number(storage_fan_tach_key)),
      _system_power(host.ports.add_number(system_power_number)) {
    host.loop.thermal().register_bmc_event(overloaded_signal, &_psu, true);
    for (const char* name : air_zone_names) {
        _model.add_zone({name, 0.001});
    }
    add_parts();
    add_fans();
    step(0.0);
}

void server_physics::add_parts() {
    for (const unsigned present :
         {pch_present_bit, psu_present_bit, retimer_present_bit, raid_present_bit, baseboard_present_bit}) {
        _host.ports.add_number(present, 1);
    }
    _host.ports.add_block(fpga_capability_block, {1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0});
    for (const server_part& part : server_parts) {
        part_state state{_model.add_part(static_cast<zone_id>(part.zone), part.make(part.name)), -1.0, true, nullptr,
                         nullptr};
        switch (part.face) {
            case sensor_face::degrees:
            case sensor_face::millidegrees:
                state.number = &_host.ports.add_number(part.port);
                break;
            case sensor_face::fpga_record:
                state.block = &_records;
                break;
            case sensor_face::tmp75:
            case sensor_face::lm92:
                state.block = &add_chip(_host.ports, part.port);
                break;
        }
        _parts.push_back(state);
    }
}

void server_physics::add_fans() {
    constexpr std::uint32_t one_fan_an_output = 1u << 1;
    _host.ports.add_number(fan_info_number, fpga_fans << 4 | one_fan_an_output);
    for (unsigned number = 1; number <= server_fans; ++number) {
        const air_zone zone = number <= fpga_fans ? air_zone::main
                              : number == psu_fan ? air_zone::power
                                                  : air_zone::storage;
        const std::string name = "fan " + std::to_string(number);
        _fans.push_back(
            _model.add_fan(static_cast<zone_id>(zone), number <= fpga_fans ? fan_60mm(name) : fan_40mm(name)));
    }
}

void server_physics::set_load(double percent) { _load = std::clamp(percent, 0.0, 100.0); }

void server_physics::set_power(std::size_t part, double watts) { _parts.at(part).own_power_w = watts; }

void server_physics::set_fan(unsigned number, bool works) {
    const fan_id fan = _fans.at(number - 1);
    works ? _model.repair_fan(fan) : _model.fail_fan(fan);
}

void server_physics::set_sensor(std::size_t part, bool works) {
    part_state& state = _parts.at(part);
    state.sensor_works = works;
    // Records of the FPGA share a line: a lost one is marked invalid in its place.
    if (server_parts[part].face != sensor_face::fpga_record) {
        port_line& line = state.number != nullptr ? static_cast<port_line&>(*state.number) : *state.block;
        works ? line.recover() : line.fail_reads();
    }
}

double server_physics::wanted_power(std::size_t part) const {
    const server_part& row = server_parts[part];
    const double own = _parts[part].own_power_w;
    return own >= 0.0 ? own : row.idle_w + (row.full_w - row.idle_w) * _load / 100.0;
}

double server_physics::power_of(std::size_t part) const {
    const double wanted = wanted_power(part);
    const double idle = std::min(wanted, server_parts[part].idle_w);
    return _has_host_power ? idle + _share_above_idle * (wanted - idle) : 0.0;
}

// What the system's cap leaves of the power that parts want above idle, 0..1.
double server_physics::share_above_idle() const {
    double fixed = fan_power();
    double above = 0.0;
    for (std::size_t part = 0; part < _parts.size(); ++part) {
        const double wanted = wanted_power(part);
        fixed += std::min(wanted, server_parts[part].idle_w);
        above += std::max(0.0, wanted - server_parts[part].idle_w);
    }
    const bool fits = !_system_cap || above == 0.0 || fixed + above <= *_system_cap;
    return fits ? 1.0 : std::clamp((*_system_cap - fixed) / above, 0.0, 1.0);
}

double server_physics::power() const {
    double sum = 0.0;
    for (std::size_t part = 0; part < _parts.size(); ++part) {
        sum += power_of(part);
    }
    return sum;
}

double server_physics::fan_power() const {
    double sum = 0.0;
    for (const fan_id fan : _fans) {
        sum += _model.fan_power(fan);
    }
    return sum;
}

double server_physics::duty(unsigned fan) const {
    switch (fan) {
        case psu_fan:
            return _psu.duty();
        case storage_fan:
            return _storage_duty.value();
        default:
            return _fan_records.bytes().at(std::size_t{fan_record_size} * (fan - 1)) / 2.55;
    }
}

void server_physics::step(double seconds) {
    _share_above_idle = share_above_idle();
    for (std::size_t part = 0; part < _parts.size(); ++part) {
        _model.set_power(_parts[part].id, power_of(part));
    }
    for (unsigned fan = 1; fan <= server_fans; ++fan) {
        _model.set_duty(_fans[fan - 1], duty(fan));
    }
    _model.step(seconds);
    for (std::size_t part = 0; part < _parts.size(); ++part) {
        show_temperature(part);
    }
    show_fans();
    _system_power.set_value(whole(power() + fan_power()));
}

void server_physics::show_temperature(std::size_t part) {
    const server_part& row = server_parts[part];
    const part_state& state = _parts[part];
    const double celsius = temperature(part) + noise(0.5);
    switch (row.face) {
        case sensor_face::degrees:
            state.number->set_value(whole(celsius));
            break;
        case sensor_face::millidegrees:
            state.number->set_value(whole(celsius * 1000.0));
            break;
        case sensor_face::tmp75:
            put_fixed_point(state.block->bytes().data(), celsius, 0.0625, 4);
            break;
        case sensor_face::lm92:
            put_fixed_point(state.block->bytes().data(), celsius, 0.0625, 3);
            break;
        case sensor_face::fpga_record: {
            std::uint8_t* record = state.block->bytes().data() + record_start + row.record;
            put_fixed_point(record, celsius, 0.0625, 4);
            record[1] = state.sensor_works ? record[1] : record_invalid;
            break;
        }
    }
}

void server_physics::show_fans() {
    for (unsigned fan = 1; fan <= server_fans; ++fan) {
        const std::uint32_t shown = whole(rpm(fan) * (1.0 + noise(0.01)));
        if (fan == psu_fan) {
            _psu_tach.set_value(shown);
        } else if (fan == storage_fan) {
            _storage_tach.set_value(shown);
        } else {
            std::uint8_t* tach = _fan_records.bytes().data() + std::size_t{fan_record_size} * (fan - 1) + 1;
            tach[0] = static_cast<std::uint8_t>(shown >> 8);
            tach[1] = static_cast<std::uint8_t>(shown & 0xFFu);
        }
    }
}

// Even noise of the amplitude; the generator's own numbers are the same everywhere, a library's distributions are not.
double server_physics::noise(double amplitude) {
    return _noisy ? amplitude * (static_cast<double>(_random()) / 2147483648.0 - 1.0) : 0.0;
}

}  // namespace sim
