#include "sim/heat_model.hpp"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <stdexcept>
#include <utility>

namespace sim {

namespace {

constexpr double longest_substep_s = 0.1;
constexpr double longest_step_s = 1e9;  // thirty years; keeps the count of substeps an integer
// Below this share of full speed bearing friction stops a fan that is not driven.
constexpr double standstill = 0.002;

void require(bool valid, const std::string& name, const char* what) {
    if (!valid) {
        throw std::invalid_argument(name + ": " + what);
    }
}

bool positive(double value) { return std::isfinite(value) && value > 0.0; }
bool not_negative(double value) { return std::isfinite(value) && value >= 0.0; }

template <typename Id, typename States>
std::optional<Id> find(const States& states, std::string_view name) {
    const auto found =
        std::find_if(states.begin(), states.end(), [&](const auto& state) { return state.parameters.name == name; });
    if (found == states.end()) {
        return std::nullopt;
    }
    return static_cast<Id>(found - states.begin());
}

}  // namespace

heat_model::heat_model(double inlet_c) : _inlet_c(inlet_c) {
    require(std::isfinite(inlet_c), "inlet", "the temperature must be a finite number");
}

zone_id heat_model::add_zone(zone_parameters parameters) {
    require(positive(parameters.draught_m3_s), parameters.name, "a draught above 0 must remain with the fans stopped");
    const double draught = parameters.draught_m3_s;
    _zones.push_back({std::move(parameters), 0.0, draught, 0.0, _inlet_c});
    return static_cast<zone_id>(_zones.size() - 1);
}

fan_id heat_model::add_fan(zone_id zone, fan_parameters parameters) {
    const auto index = static_cast<std::size_t>(zone);
    require(not_negative(parameters.full_rpm) && not_negative(parameters.full_power_w), parameters.name,
            "speed and power must not be negative");
    require(positive(parameters.full_flow_m3_s) && positive(parameters.inertia_s), parameters.name,
            "air flow and inertia must be above 0");
    _zones.at(index).full_flow_m3_s += parameters.full_flow_m3_s;
    _fans.push_back({std::move(parameters), index, 0.0, 0.0, false});
    return static_cast<fan_id>(_fans.size() - 1);
}

part_id heat_model::add_part(zone_id zone, part_parameters parameters) {
    const auto index = static_cast<std::size_t>(zone);
    require(positive(parameters.fast_capacity_j_k) && positive(parameters.slow_capacity_j_k), parameters.name,
            "both heat capacities must be above 0");
    require(positive(parameters.link_w_k) && positive(parameters.still_conductance_w_k), parameters.name,
            "the link and the conductance to still air must be above 0");
    require(not_negative(parameters.flow_conductance_w_k) && positive(parameters.flow_exponent), parameters.name,
            "the conductance must not fall with air flow");
    const double air_c = at(zone).air_c;
    _parts.push_back({std::move(parameters), index, 0.0, _inlet_c, _inlet_c, air_c, 0.0});
    return static_cast<part_id>(_parts.size() - 1);
}

std::optional<part_id> heat_model::find_part(std::string_view name) const { return find<part_id>(_parts, name); }
std::optional<fan_id> heat_model::find_fan(std::string_view name) const { return find<fan_id>(_fans, name); }

void heat_model::set_inlet(double celsius) {
    if (std::isfinite(celsius)) {
        _inlet_c = celsius;
    }
}

void heat_model::set_power(part_id part, double watts) {
    if (std::isfinite(watts)) {
        at(part).power_w = std::max(watts, 0.0);
    }
}

void heat_model::set_duty(fan_id fan, double percent) {
    if (std::isfinite(percent)) {
        at(fan).duty = std::clamp(percent, 0.0, 100.0) / 100.0;
    }
}

void heat_model::fail_fan(fan_id fan) { at(fan).failed = true; }
void heat_model::repair_fan(fan_id fan) { at(fan).failed = false; }

double heat_model::rpm(fan_id fan) const { return at(fan).parameters.full_rpm * at(fan).speed; }

double heat_model::fan_power(fan_id fan) const {
    const double speed = at(fan).speed;
    return at(fan).parameters.full_power_w * speed * speed * speed;
}

void heat_model::step(double seconds) {
    if (!positive(seconds)) {
        return;
    }
    seconds = std::min(seconds, longest_step_s);
    const double count = std::ceil(seconds / longest_substep_s);
    for (auto left = static_cast<std::uint64_t>(count); left > 0; --left) {
        substep(seconds / count);
    }
}

// An endless substep leaves no memory of the past: implicit integration makes it the steady state.
void heat_model::settle() { substep(std::numeric_limits<double>::infinity()); }

void heat_model::substep(double seconds) {
    move_air(seconds);
    for (part_state& part : _parts) {
        warm(part, _zones[part.zone], seconds);
    }
}

void heat_model::move_air(double seconds) {
    for (zone_state& zone : _zones) {
        zone.flow_m3_s = 0.0;
        zone.air_c = _inlet_c;
    }
    for (fan_state& fan : _fans) {
        const bool driven = !fan.failed && fan.duty > 0.0 && fan.duty * 100.0 >= fan.parameters.start_percent;
        const double target = driven ? fan.duty : 0.0;
        fan.speed += (target - fan.speed) * -std::expm1(-seconds / fan.parameters.inertia_s);
        if (!driven && fan.speed < standstill) {
            fan.speed = 0.0;
        }
        _zones[fan.zone].flow_m3_s += fan.parameters.full_flow_m3_s * fan.speed;
    }
    for (zone_state& zone : _zones) {
        zone.share = zone.full_flow_m3_s > 0.0 ? zone.flow_m3_s / zone.full_flow_m3_s : 0.0;
        zone.flow_m3_s = std::max(zone.flow_m3_s, zone.parameters.draught_m3_s);
    }
}

// One implicit Euler step of both nodes. The air takes the heat of the new temperature, so that no energy is lost
// between part and air, and it can take no more than would bring it to the temperature of the part.
void heat_model::warm(part_state& part, zone_state& zone, double seconds) {
    const part_parameters& p = part.parameters;
    const double air_w_k = zone.flow_m3_s * air_heat_j_m3_k;
    const double conductance_w_k =
        std::min(p.still_conductance_w_k + p.flow_conductance_w_k * std::pow(zone.share, p.flow_exponent), air_w_k);
    const double fast_w_k = p.fast_capacity_j_k / seconds;
    const double slow_w_k = p.slow_capacity_j_k / seconds;
    // Solved for the rise over the incoming air.
    const double fast_w = fast_w_k * (part.fast_c - zone.air_c) + part.power_w;
    const double slow_w = slow_w_k * (part.slow_c - zone.air_c);
    const double fast_sum = fast_w_k + p.link_w_k;
    const double slow_sum = slow_w_k + conductance_w_k;
    // (fast_sum)(slow_sum + link) - link^2 without the difference of two large products.
    const double determinant = fast_sum * slow_sum + fast_w_k * p.link_w_k;
    const double slow_rise = (fast_sum * slow_w + p.link_w_k * fast_w) / determinant;

    part.air_c = zone.air_c;
    part.slow_c = zone.air_c + slow_rise;
    part.fast_c = zone.air_c + (fast_w + p.link_w_k * slow_rise) / fast_sum;
    part.heat_w = conductance_w_k * slow_rise;
    zone.air_c += part.heat_w / air_w_k;
}

}  // namespace sim
