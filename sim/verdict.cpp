#include "sim/verdict.hpp"

#include <algorithm>
#include <cmath>
#include <stdexcept>

namespace sim {

namespace {

constexpr double shortest_phase_s = 60.0;
constexpr double settled_s = 30.0;
constexpr double settled_band_c = 2.0;
constexpr double audible_percent = 2.0;

}  // namespace

void verdict::sample(const simulated_server& server) {
    _times.push_back(server.now());
    temperatures& now = _samples.emplace_back();
    for (const part_group& group : _plan.groups()) {
        now.push_back(static_cast<float>(server.physics().hottest(group)));
    }
    for (unsigned number = 1; number <= server_fans; ++number) {
        _fans[number - 1].add(server.physics().duty(number));
    }
    _fan_energy_ws += server.physics().fan_power() * _period;
    add_caps(server.caps());
    add_sensors(server.host().sensors.list());
}

void verdict::add_caps(const server_caps& caps) {
    for (std::size_t kind = 0; kind < cap_kinds; ++kind) {
        const cap_state& now = caps.all()[kind];
        cap_report& report = _caps[kind];
        report.name = now.name;
        report.unit = now.unit;
        report.requests = now.requests;
        if (!now.value) {
            continue;
        }
        const bool is_level = kind == static_cast<std::size_t>(cap_kind::drives);
        const unsigned tighter =
            is_level ? std::max(report.tightest, *now.value) : std::min(report.tightest, *now.value);
        report.tightest = report.seconds_on > 0.0 ? tighter : *now.value;
        report.seconds_on += _period;
    }
}

// No reading is no alarm: sensors have none until their firmware is up.
void verdict::add_sensors(const std::vector<thermal_host::sensor_report>& sensors) {
    _sensors.resize(std::max(_sensors.size(), sensors.size()));
    for (std::size_t i = 0; i < sensors.size(); ++i) {
        const auto state = sensors[i].state;
        sensor_history& history = _sensors[i];
        history.name = sensors[i].name;
        if (state == thermal_host::sensor_state::no_reading || (history.worst && state < *history.worst)) {
            continue;
        }
        history.seconds = history.worst == state ? history.seconds + _period : _period;
        history.worst = state;
    }
}

void verdict::fan_history::add(double percent) {
    sum += percent;
    if (direction == 0 || (percent - extreme) * direction > 0.0) {
        direction = direction == 0 ? 1 : direction;
        extreme = percent;
    } else if (std::abs(percent - extreme) >= audible_percent) {
        ++reversals;
        direction = -direction;
        extreme = percent;
    }
}

void verdict::begin_phase() {
    if (_phases.back() != _samples.size()) {
        _phases.push_back(_samples.size());
    }
}

verdict::part_report verdict::part(std::string_view name) const {
    for (std::size_t group = 0; group < _plan.groups().size(); ++group) {
        if (name == _plan.groups()[group].name) {
            return part(group);
        }
    }
    throw std::out_of_range("no parts of this name: " + std::string(name));
}

verdict::part_report verdict::part(std::size_t group) const {
    part_report report;
    for (std::size_t i = 0; i < _samples.size(); ++i) {
        const auto celsius = static_cast<double>(_samples[i].at(group));
        if (i == 0 || celsius > report.highest_c) {
            report.highest_c = celsius;
            report.highest_at = _times[i];
        }
        report.seconds_over += celsius > _plan.groups()[group].limit_c ? _period : 0.0;
    }
    for (std::size_t i = 0; i < _phases.size(); ++i) {
        judge_phase(_phases[i], i + 1 < _phases.size() ? _phases[i + 1] : _samples.size(), group, report);
    }
    return report;
}

void verdict::judge_phase(std::size_t begin, std::size_t end, std::size_t group, part_report& report) const {
    if (static_cast<double>(end - begin) * _period < shortest_phase_s) {
        return;
    }
    const auto at = [&](std::size_t i) { return static_cast<double>(_samples[i][group]); };
    const auto tail = std::max<std::size_t>(1, static_cast<std::size_t>(settled_s / _period));
    double level = 0.0;
    for (std::size_t i = end - tail; i < end; ++i) {
        level += at(i) / static_cast<double>(tail);
    }
    const double expected = std::max(level, at(begin));
    for (std::size_t i = begin; i < end; ++i) {
        report.overshoot_c = std::max(report.overshoot_c, at(i) - expected);
        if (std::abs(at(i) - level) > settled_band_c) {
            report.settling_s = std::max(report.settling_s, static_cast<double>(i + 1 - begin) * _period);
        }
    }
}

verdict::fan_report verdict::fan(unsigned number) const {
    const fan_history& fan = _fans.at(number - 1);
    const auto samples = static_cast<double>(std::max<std::size_t>(_samples.size(), 1));
    return {fan.sum / samples, fan.reversals * 60.0 / (samples * _period)};
}

bool verdict::limits_held() const {
    return std::ranges::all_of(_samples, [this](const temperatures& sample) {
        for (std::size_t group = 0; group < sample.size(); ++group) {
            if (static_cast<double>(sample[group]) > _plan.groups()[group].limit_c) {
                return false;
            }
        }
        return true;
    });
}

}  // namespace sim
