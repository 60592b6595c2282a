#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>

#include "orchestration/common_thermal_manager.hpp"
#include "platform/host/host.hpp"
#include "sim/load_profile.hpp"
#include "sim/server_board.hpp"
#include "sim/server_caps.hpp"
#include "sim/server_physics.hpp"

namespace sim {

struct server_options {
    std::string rules;  // path of the rule file
    const machine_plan& plan = socket_server();
    bool real_time = false;
    unsigned log_mask = thermal_host::log_writer::default_mask;
    unsigned seed = 0;         // of the noise on readings; 0 for none
    std::string properties{};  // path of the file that keeps them over a restart; empty for memory only
    bool world_moves = true;   // false: temperatures, loads and fans stay as they are at power-on
};

// A two-socket server under the real library: host platform, board, manager and physics, from power-on. One at a time in a
// process. Cold at first: its firmware gives the host power and reports the boot stages within the first minute or so.
class simulated_server {
public:
    explicit simulated_server(const server_options& options, load_profile profile = {}, event_sink tell = {});
    ~simulated_server();
    simulated_server(const simulated_server&) = delete;
    simulated_server& operator=(const simulated_server&) = delete;

    // False if the loop was stopped.
    bool run_until(double seconds);
    bool run_for(double seconds) { return run_until(now() + seconds); }
    double now() const;  // seconds since power-on

    // Asks the manager to read the rule file again, as an operator would.
    void reload_rules() { _manager->ipmicmd_load_algorithm(); }

    // Who won a fan in the last complete cycle.
    struct fan_claim {
        bool claimed = false;
        unsigned rule = 0;  // from 1
        std::uint8_t duty = 0;
        bool operator==(const fan_claim&) const = default;
    };
    const fan_claim& claim(unsigned fan) const { return _claims.at(fan - 1); }
    // The rule's NAME, or what stands in its place; "-" for a fan that nobody claimed.
    std::string winner(unsigned fan) const;
    unsigned cycles() const { return _cycles; }

    // What the rules of the last cycle did to a slot, and which of them.
    struct slot_state {
        unsigned limit_percent = 100;
        std::string limit_winner{};
        bool is_braked = false;
        std::string brake_winner{};

        // 0 % is no limit, as the library has it.
        bool is_limited() const { return limit_percent != 0 && limit_percent != 100; }
    };
    slot_state slot(unsigned number) const;

    thermal_host::platform& host() { return _host; }
    const thermal_host::platform& host() const { return _host; }
    common_thermal_manager& manager() { return *_manager; }
    const common_thermal_scheduler& scheduler() const { return *_scheduler; }
    common_thermal_dao& store() { return *_dao; }
    const common_thermal_dao& store() const { return *_dao; }
    server_physics& physics() { return _physics; }
    const server_physics& physics() const { return _physics; }
    const server_caps& caps() const { return _caps; }
    const machine_plan& plan() const { return _physics.plan(); }

private:
    void boot();
    void move_world();
    power_limits limits() const;
    void note_cycle();
    void note_claims();
    std::string rule_name(unsigned number) const;

    load_profile _profile;
    event_sink _tell;
    thermal_host::platform _host;
    server_physics _physics;
    server_caps _caps;
    double _moved_to = 0.0;
    bool _host_started = false;
    std::unique_ptr<common_thermal_scheduler> _scheduler;
    std::unique_ptr<common_thermal_dao> _dao;
    std::unique_ptr<common_thermal_manager> _manager;
    std::unique_ptr<server_board> _board;
    bool _cycle_noted = false;
    unsigned _cycles = 0;
    std::array<fan_claim, server_fans> _claims{};
};

}  // namespace sim
