#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "sim/simulated_server.hpp"

namespace sim {

// Judges a run from samples taken at an even pace: limits, regulation, noise, energy, caps and alarms.
class verdict {
public:
    // `period`: seconds between samples.
    verdict(const machine_plan& plan, double period) : _plan(plan), _period(period) {}

    const machine_plan& plan() const { return _plan; }

    void sample(const simulated_server& server);
    // Conditions changed: what follows is judged as a phase of its own.
    void begin_phase();

    // Of the hottest part of a group at any time.
    struct part_report {
        double highest_c = 0.0;
        double highest_at = 0.0;    // seconds since power-on
        double seconds_over = 0.0;  // its limit
        // Over all phases of a minute and more. A phase settles at its mean of the last half minute.
        double overshoot_c = 0.0;  // above where a phase began and where it settled
        double settling_s = 0.0;   // until a phase stayed within two degrees of where it settled
    };
    part_report part(std::size_t group) const;
    // By the group's name; throws std::out_of_range for a name that stands for none.
    part_report part(std::string_view name) const;

    struct fan_report {
        double mean_percent = 0.0;
        double reversals_a_minute = 0.0;  // turns after a swing of two percent, which is what an ear notices
    };
    fan_report fan(unsigned number) const;

    struct cap_report {
        const char* name = "";
        const char* unit = "";
        double seconds_on = 0.0;
        unsigned tightest = 0;  // the highest level of the drives, the lowest value of all others
        unsigned requests = 0;  // releases among them
    };
    const std::array<cap_report, cap_kinds>& caps() const { return _caps; }
    const cap_report& cap(cap_kind kind) const { return _caps[static_cast<std::size_t>(kind)]; }

    struct sensor_history {
        std::string name;
        std::optional<thermal_host::sensor_state> worst = {};  // nothing for a sensor that never had a reading
        double seconds = 0.0;                                  // in that state
    };
    const std::vector<sensor_history>& sensors() const { return _sensors; }

    double fan_energy_wh() const { return _fan_energy_ws / 3600.0; }
    bool limits_held() const;
    bool host_power_held() const { return cap(cap_kind::host_power).requests == 0; }
    bool passed() const { return limits_held() && host_power_held(); }

private:
    struct fan_history {
        double sum = 0.0;
        double extreme = 0.0;  // of the swing under way
        int direction = 0;
        unsigned reversals = 0;

        void add(double percent);
    };
    using temperatures = std::vector<float>;  // by group

    void add_caps(const server_caps& caps);
    void add_sensors(const std::vector<thermal_host::sensor_report>& sensors);
    void judge_phase(std::size_t begin, std::size_t end, std::size_t group, part_report& report) const;

    const machine_plan& _plan;
    double _period;
    std::vector<double> _times;
    std::vector<temperatures> _samples;
    std::vector<std::size_t> _phases{0};
    std::array<fan_history, server_fans> _fans{};
    std::array<cap_report, cap_kinds> _caps{};
    std::vector<sensor_history> _sensors;
    double _fan_energy_ws = 0.0;
};

}  // namespace sim
