#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace sim {

// Names of what was added to a model. An id of another model, or one made up, makes a call throw std::out_of_range.
enum class zone_id : std::size_t {};
enum class fan_id : std::size_t {};
enum class part_id : std::size_t {};

// A channel of air from the inlet to the rear. Its fans stand side by side, its parts one behind the other.
struct zone_parameters {
    std::string name;
    double draught_m3_s = 0.001;  // air that moves with every fan stopped
};

struct fan_parameters {
    std::string name;
    double full_rpm = 0.0;        // at 100 % duty; proportional below
    double full_power_w = 0.0;    // at 100 % duty; falls with the cube of the speed
    double full_flow_m3_s = 0.0;  // at 100 % duty, in the chassis, not in free air; proportional below
    double inertia_s = 3.0;       // time constant of the speed, also while coasting
    double start_percent = 0.0;   // a lower duty leaves the fan standing
};

// Two heat capacities in a row: power enters the fast one, the air cools the slow one. The conductance to the air is
// still + flow * share^exponent, where share is the air flow of the zone against all its fans at full speed.
struct part_parameters {
    std::string name;
    double fast_capacity_j_k = 0.0;      // die and lid, or the tip of a sensor: what temperature() shows
    double slow_capacity_j_k = 0.0;      // heat sink, board or case
    double link_w_k = 0.0;               // from the fast to the slow node
    double still_conductance_w_k = 0.0;  // slow node to air with the fans stopped
    double flow_conductance_w_k = 0.0;   // comes on top at full air flow
    double flow_exponent = 0.5;
};

// Temperatures of parts and air, and the fans that move it. Deterministic; knows nothing of sensors, ports and rules.
// The heat of the fan motors stays outside: it is spent behind or beside the parts. Temperatures are in °C.
class heat_model {
public:
    explicit heat_model(double inlet_c = 25.0);

    // A new part has the temperature of the inlet and no power, a new fan stands still at 0 % duty. Parts of a zone are
    // added in the order in which the air reaches them. Parameters that no real thing has throw std::invalid_argument.
    zone_id add_zone(zone_parameters parameters);
    fan_id add_fan(zone_id zone, fan_parameters parameters);
    part_id add_part(zone_id zone, part_parameters parameters);

    std::optional<part_id> find_part(std::string_view name) const;
    std::optional<fan_id> find_fan(std::string_view name) const;
    const std::string& name(part_id part) const { return at(part).parameters.name; }
    const std::string& name(fan_id fan) const { return at(fan).parameters.name; }
    std::size_t part_count() const { return _parts.size(); }
    std::size_t fan_count() const { return _fans.size(); }

    // What is not a finite number is ignored; power is at least 0, duty within 0..100 %.
    void set_inlet(double celsius);
    void set_power(part_id part, double watts);
    void set_duty(fan_id fan, double percent);
    // A failed fan coasts to a stop whatever its duty says, until it is repaired.
    void fail_fan(fan_id fan);
    void repair_fan(fan_id fan);

    // Moves on by `seconds`, in substeps of at most 0.1 s; stable for any parameters.
    void step(double seconds);
    // Jumps to where everything would end if power, duty and inlet stayed as they are.
    void settle();

    double inlet() const { return _inlet_c; }
    double temperature(part_id part) const { return at(part).fast_c; }
    double sink_temperature(part_id part) const { return at(part).slow_c; }
    double air_before(part_id part) const { return at(part).air_c; }
    double heat_to_air(part_id part) const { return at(part).heat_w; }  // W
    double outlet(zone_id zone) const { return at(zone).air_c; }
    double air_flow(zone_id zone) const { return at(zone).flow_m3_s; }  // m3/s
    double rpm(fan_id fan) const;
    double fan_power(fan_id fan) const;  // W

private:
    struct zone_state {
        zone_parameters parameters;
        double full_flow_m3_s = 0.0;
        double flow_m3_s = 0.0;
        double share = 0.0;  // of the full flow, 0..1
        double air_c = 0.0;  // while a substep walks the parts: behind the part just done
    };
    struct fan_state {
        fan_parameters parameters;
        std::size_t zone = 0;
        double duty = 0.0;   // asked for, 0..1
        double speed = 0.0;  // reached, 0..1
        bool failed = false;
    };
    struct part_state {
        part_parameters parameters;
        std::size_t zone = 0;
        double power_w = 0.0;
        double fast_c = 0.0, slow_c = 0.0;
        double air_c = 0.0, heat_w = 0.0;
    };

    const zone_state& at(zone_id zone) const { return _zones.at(static_cast<std::size_t>(zone)); }
    const fan_state& at(fan_id fan) const { return _fans.at(static_cast<std::size_t>(fan)); }
    const part_state& at(part_id part) const { return _parts.at(static_cast<std::size_t>(part)); }
    fan_state& at(fan_id fan) { return _fans.at(static_cast<std::size_t>(fan)); }
    part_state& at(part_id part) { return _parts.at(static_cast<std::size_t>(part)); }

    void substep(double seconds);
    void move_air(double seconds);
    static void warm(part_state& part, zone_state& zone, double seconds);

    double _inlet_c;
    std::vector<zone_state> _zones;
    std::vector<fan_state> _fans;
    std::vector<part_state> _parts;
};

// Heat that a cubic metre of air takes up per kelvin at 30 °C and sea level: 1.164 kg/m3 * 1006 J/(kg K), handbook.
constexpr double air_heat_j_m3_k = 1.164 * 1006.0;

}  // namespace sim
