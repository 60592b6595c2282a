#include "sim/server_physics.hpp"

#include <algorithm>
#include <cmath>

#include "sim/heat_parts.hpp"

namespace sim {

namespace {

constexpr QSignal overloaded_signal = 87;
constexpr std::uint32_t fan_block_unit = 16;  // the FPGA counts positions in 16 bytes

// What a processor that slows itself down draws above idle, and when it stops doing so.
constexpr double throttled_share = 0.6;
constexpr double throttle_hysteresis_c = 2.0;

// What a card draws above idle while its brake is pulled.
constexpr double braked_share = 0.25;

constexpr double drives_share[] = {1.0, 0.8, 0.6};

std::uint32_t whole(double value) { return static_cast<std::uint32_t>(std::max(0L, std::lround(value))); }

bool is_drive(const server_part& part) {
    return part.face == sensor_face::drive_record || part.port == bay_temperatures;
}
bool is_processor(const server_part& part) { return part.face == sensor_face::processor; }
bool is_module(const server_part& part) { return part.face == sensor_face::memory_module; }
bool is_card(const server_part& part) { return part.face == sensor_face::card; }

}  // namespace

server_physics::psu_listener::psu_listener(std::uint16_t topic)
    : logical_device(nullptr, "simulated_psu", "simulated_psu", false), _topic(topic) {}

void server_physics::psu_listener::dispatch_event(const QEvent* event) {
    const auto& payload = static_cast<const bmc_event&>(*event);
    if (payload.data_word == _topic) {
        _duty = std::min<std::uint8_t>(payload.data_byte0, 100);
    }
}

server_physics::server_physics(thermal_host::platform& host, const machine_plan& plan, unsigned seed)
    : _host(host),
      _plan(plan),
      _random(seed),
      _noisy(seed != 0),
      _readings(host, plan),
      _slots(host, plan.slots()),
      _psu(static_cast<std::uint16_t>(host.machines.number_of("CFF2_FAN_SPEED_CTRL_SIG"))),
      _fan_records(host.ports.add_block(fan_block, std::vector<std::uint8_t>(128), fan_block_unit)),
      _storage_duty(host.ports.add_number(storage_fan_duty_key)),
      _storage_tach(host.ports.add_number(storage_fan_tach_key)),
      _system_power(host.ports.add_number(system_power_number)) {
    host.loop.thermal().register_bmc_event(overloaded_signal, &_psu, true);
    for (const char* name : air_zone_names) {
        _model.add_zone({name, 0.001});
    }
    for (const server_part& part : _plan.parts()) {
        _parts.push_back({_model.add_part(static_cast<zone_id>(part.zone), part.make(part.full_name)), -1.0, 0.0});
    }
    add_fans();
    step(0.0);
}

void server_physics::add_fans() {
    constexpr std::uint32_t one_fan_an_output = 1u << 1;
    _host.ports.add_number(fan_info_number, fpga_fans << 4 | one_fan_an_output);
    for (unsigned supply = 1; supply <= power_supplies; ++supply) {
        _psu_tachs.push_back(&_host.ports.add_number(psu_tach_numbers + supply));
    }
    for (unsigned number = 1; number <= server_fans; ++number) {
        const air_zone zone = zone_of_fan(number);
        const std::string name = "fan " + std::to_string(number);
        _fans.push_back(
            _model.add_fan(static_cast<zone_id>(zone), zone == air_zone::main ? fan_60mm_pair(name) : fan_40mm(name)));
    }
}

void server_physics::set_load(double percent) { _load = std::clamp(percent, 0.0, 100.0); }

void server_physics::set_load(load_kind kind, double percent) {
    _load_of[static_cast<std::size_t>(kind)] = std::clamp(percent, 0.0, 100.0);
}

void server_physics::set_power(std::size_t part, double watts) { _parts.at(part).own_power_w = watts; }

void server_physics::set_fan(unsigned number, bool works) {
    const fan_id fan = _fans.at(number - 1);
    works ? _model.repair_fan(fan) : _model.fail_fan(fan);
}

void server_physics::set_sensor(std::size_t part, bool works) {
    const server_part& row = _plan.parts()[part];
    if (is_card(row)) {
        _slots.set_fault(row.port_number(), works ? card_fault::none : card_fault::silent);
    } else {
        _readings.set_sensor(part, works);
    }
}

void server_physics::set_host_power(bool is_on) {
    _has_host_power = is_on;
    _readings.set_host_power(is_on);
    _slots.set_host_power(is_on);
}

double server_physics::wanted_power(std::size_t part) const {
    const server_part& row = _plan.parts()[part];
    const bool is_pulled =
        (is_drive(row) && !_readings.has_drive(bay_of(row))) || (is_card(row) && !_slots.has_card(row.port_number()));
    if (!_has_host_power || is_pulled) {
        return 0.0;
    }
    const double own = _parts[part].own_power_w;
    const double load = std::max(_load, _load_of[static_cast<std::size_t>(row.load)]);
    return own >= 0.0 ? own : row.idle_w + (row.full_w - row.idle_w) * load / 100.0;
}

// What a part may draw above idle, limits of several parts together aside.
double server_physics::share_of(std::size_t part) const {
    const server_part& row = _plan.parts()[part];
    if (is_processor(row)) {
        return _throttles[row.number - 1] ? throttled_share : 1.0;
    }
    if (is_card(row)) {
        return _slots.is_braked(row.port_number()) ? braked_share : 1.0;
    }
    if (is_module(row)) {
        return std::min(_limits.memory_percent.value_or(100), 100u) / 100.0;
    }
    return is_drive(row) ? drives_share[std::min(_limits.drives_level, 2u)] : 1.0;
}

template <class Choose>
void server_physics::limit_to(double watts, double fixed_w, Choose&& choose) {
    double above_w = 0.0;
    for (std::size_t part = 0; part < _parts.size(); ++part) {
        if (choose(_plan.parts()[part])) {
            const double idle_w = std::min(_parts[part].drawn_w, _plan.parts()[part].idle_w);
            fixed_w += idle_w;
            above_w += _parts[part].drawn_w - idle_w;
        }
    }
    if (fixed_w + above_w <= watts || above_w == 0.0) {
        return;
    }
    const double share = std::clamp((watts - fixed_w) / above_w, 0.0, 1.0);
    for (std::size_t part = 0; part < _parts.size(); ++part) {
        if (choose(_plan.parts()[part])) {
            const double idle_w = std::min(_parts[part].drawn_w, _plan.parts()[part].idle_w);
            _parts[part].drawn_w = idle_w + share * (_parts[part].drawn_w - idle_w);
        }
    }
}

void server_physics::share_power() {
    for (std::size_t part = 0; part < _parts.size(); ++part) {
        const double wanted_w = wanted_power(part);
        const double idle_w = std::min(wanted_w, _plan.parts()[part].idle_w);
        _parts[part].drawn_w = idle_w + share_of(part) * (wanted_w - idle_w);
        const server_part& row = _plan.parts()[part];
        if (is_card(row)) {
            const double limit_w = _slots.limit(row.port_number()).value_or(_parts[part].drawn_w);
            _parts[part].drawn_w = std::min(_parts[part].drawn_w, std::max(limit_w, idle_w));
        }
    }
    if (_limits.processors_w) limit_to(*_limits.processors_w, 0.0, is_processor);
    if (_limits.memory_w) limit_to(*_limits.memory_w, 0.0, is_module);
    if (_limits.system_w) limit_to(*_limits.system_w, fan_power(), [](const server_part&) { return true; });
}

double server_physics::hottest(const part_group& group) const {
    double high = temperature(group.parts.front());
    for (const std::size_t part : group.parts) {
        high = std::max(high, temperature(part));
    }
    return high;
}

double server_physics::power() const {
    double sum = 0.0;
    for (const part_state& part : _parts) {
        sum += part.drawn_w;
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
    switch (zone_of_fan(fan)) {
        case air_zone::power:
            return _psu.duty();
        case air_zone::storage:
            return _storage_duty.value();
        case air_zone::main:
            break;
    }
    return _fan_records.bytes().at(std::size_t{fan_record_size} * (fan - 1)) / 2.55;
}

void server_physics::step(double seconds) {
    share_power();
    for (const part_state& part : _parts) {
        _model.set_power(part.id, part.drawn_w);
    }
    for (unsigned fan = 1; fan <= server_fans; ++fan) {
        _model.set_duty(_fans[fan - 1], duty(fan));
    }
    _model.step(seconds);
    note_throttle();
    show_parts();
    show_fans();
    _readings.show_air(_model.air_flow(static_cast<zone_id>(air_zone::main)));
    _system_power.set_value(whole(power() + fan_power()));
}

void server_physics::note_throttle() {
    for (std::size_t part = 0; part < _parts.size(); ++part) {
        const server_part& row = _plan.parts()[part];
        if (is_processor(row)) {
            bool& throttles = _throttles[row.number - 1];
            throttles = temperature(part) > processor_tjmax_c - (throttles ? throttle_hysteresis_c : 0.0);
            _readings.show_throttle(row.number, throttles);
        }
    }
}

void server_physics::show_parts() {
    for (std::size_t part = 0; part < _parts.size(); ++part) {
        const server_part& row = _plan.parts()[part];
        const double shown_c = temperature(part) + noise(0.5);
        if (is_card(row)) {
            _slots.show(row.port_number(), shown_c, _parts[part].drawn_w);
        } else {
            _readings.show(part, shown_c, _parts[part].drawn_w);
        }
    }
}

void server_physics::show_fans() {
    for (unsigned fan = 1; fan <= server_fans; ++fan) {
        const std::uint32_t shown = whole(rpm(fan) * (1.0 + noise(0.01)));
        switch (zone_of_fan(fan)) {
            case air_zone::power:
                _psu_tachs[fan - first_psu_fan]->set_value(shown);
                break;
            case air_zone::storage:
                _storage_tach.set_value(shown);
                break;
            case air_zone::main: {
                std::uint8_t* tach = _fan_records.bytes().data() + std::size_t{fan_record_size} * (fan - 1) + 1;
                tach[0] = static_cast<std::uint8_t>(shown >> 8);
                tach[1] = static_cast<std::uint8_t>(shown & 0xFFu);
                break;
            }
        }
    }
}

// Even noise of the amplitude; the generator's own numbers are the same everywhere, a library's distributions are not.
double server_physics::noise(double amplitude) {
    return _noisy ? amplitude * (static_cast<double>(_random()) / 2147483648.0 - 1.0) : 0.0;
}

}  // namespace sim
