#include "sim/simulated_server.hpp"

#include <chrono>
#include <cstdio>
#include <utility>

#include "sim/server_sensors.hpp"

namespace sim {

namespace {

constexpr std::chrono::milliseconds physics_step{100};

struct boot_event {
    int second;
    QSignal signal;
    std::uint8_t detail;
    const char* text;
};

constexpr std::uint8_t adapters_ready = 11;
constexpr QSignal host_power_up = 128;
constexpr boot_event boot_events[] = {
    {5, 225, 0, "IPMI service ready"},
    {8, host_power_up, 0, "host power up"},
    {12, 134, 0, "host enters POST"},
    {50, 135, 0, "POST completed"},
    {55, 304, adapters_ready, "data path to the adapters up"},
};

thermal_host::nanoseconds nanoseconds_of(double seconds) {
    return std::chrono::duration_cast<thermal_host::nanoseconds>(std::chrono::duration<double>(seconds));
}

thermal_host::host_options host_options_of(const server_options& options) {
    thermal_host::host_options chosen;
    chosen.virtual_time = !options.real_time;
    return chosen;
}

}  // namespace

simulated_server::simulated_server(const server_options& options, load_profile profile, event_sink tell)
    : _profile(std::move(profile)),
      _tell(std::move(tell)),
      _host(host_options_of(options)),
      _physics(_host, options.plan, options.seed),
      _caps(_host),
      _scheduler(std::make_unique<common_thermal_scheduler>()),
      _dao(std::make_unique<common_thermal_dao>()) {
    _host.log.set_mask(options.log_mask);
    if (!options.properties.empty()) {
        _host.open_properties(options.properties);
    }
    add_server_sensors(_host);
    common_thermal_manager::_scheduler = _scheduler.get();
    common_thermal_manager::_dao = _dao.get();
    _manager = std::make_unique<common_thermal_manager>();
    _manager->set_algorithm_parse_file(options.rules);
    _board = std::make_unique<server_board>(*_manager, options.plan);
    _host.log.set_file(nullptr);  // or each run would begin with an error that is none
    _board->bind_power_vote();
    _host.log.set_file(stderr);

    move_world();
    if (options.world_moves) {
        _host.loop.call_every(physics_step, [this] { move_world(); });
    }
    _host.loop.call_every(thermal_host::default_tick, [this] { note_cycle(); });
    boot();
}

simulated_server::~simulated_server() {
    common_thermal_manager::_scheduler = nullptr;
    common_thermal_manager::_dao = nullptr;
}

void simulated_server::boot() {
    _manager->initialize(DM::get_controller(thermal_controller));
    for (const boot_event& row : boot_events) {
        _host.loop.at(std::chrono::seconds(row.second), [this, &row] {
            bmc_event event;
            event.sig = row.signal;
            event.data_byte0 = row.detail;
            _host_started = _host_started || row.signal == host_power_up;
            _host.loop.publish(event, "simulated firmware");
            if (_tell) {
                _tell(now(), row.text);
            }
        });
    }
}

double simulated_server::now() const { return std::chrono::duration<double>(_host.loop.now()).count(); }

bool simulated_server::run_until(double seconds) { return _host.loop.run_until(nanoseconds_of(seconds)); }

void simulated_server::move_world() {
    const double present = now();
    _profile.apply(present, _physics, _tell);
    _physics.set_limits(limits());
    _physics.set_host_power(_host_started && !_caps.of(cap_kind::host_power).value);
    _physics.step(present - _moved_to);
    _moved_to = present;
}

power_limits simulated_server::limits() const {
    return {.system_w = _caps.of(cap_kind::system).value,
            .processors_w = _caps.of(cap_kind::processors).value,
            .memory_w = _caps.of(cap_kind::memory).value,
            .memory_percent = _caps.of(cap_kind::memory_share).value,
            .drives_level = _caps.of(cap_kind::drives).value.value_or(0)};
}

void simulated_server::note_cycle() {
    const bool has_ended = _scheduler->last_schedule();
    if (has_ended && !_cycle_noted) {
        ++_cycles;
        note_claims();
        _caps.look(*_dao);
    }
    _cycle_noted = has_ended;
}

// Between the end of a cycle and the next device poll a fan that was claimed waits for its duty to be applied.
void simulated_server::note_claims() {
    for (unsigned fan = 1; fan <= server_fans; ++fan) {
        const common_thermal_manager::fan_alg_t* row = _manager->fan_winner(fan);
        const bool claimed = row != nullptr && _board->fan(fan).is_writing_pwm_output();
        _claims[fan - 1] = claimed ? fan_claim{true, row->instance, row->value} : fan_claim{};
    }
}

std::string simulated_server::winner(unsigned fan) const {
    const fan_claim& row = claim(fan);
    return row.claimed ? rule_name(row.rule) : "-";
}

simulated_server::slot_state simulated_server::slot(unsigned number) const {
    const std::uint32_t key = std::uint32_t{slot_location} << 16 | number;
    slot_state state;
    if (const auto* limit = _manager->limit_winner(key); limit != nullptr && !limit->applied.name.empty()) {
        state.limit_percent = limit->applied.value;
        state.limit_winner = rule_name(limit->applied.instance);
    }
    if (const auto* brake = _manager->brake_winner(key); brake != nullptr && brake->applied.value != 0) {
        state.is_braked = true;
        state.brake_winner = !brake->applied.name.empty() ? rule_name(brake->applied.instance) : "power shortage";
    }
    return state;
}

// By number from 1: its NAME, or what stands in its place.
std::string simulated_server::rule_name(unsigned number) const {
    const common_thermal_algorithm* rule =
        number > 0 ? _scheduler->get_thermal_algorithm_by_index(number - 1) : nullptr;
    if (rule == nullptr) {
        return "?";
    }
    // "custom.<NAME>.result"
    constexpr std::size_t prefix = 7;
    constexpr std::size_t around = 14;
    const std::string& key = rule->get_key_custom_result();
    return key.size() > around ? key.substr(prefix, key.size() - around) : rule->get_name();
}

}  // namespace sim
