#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>
#include <random>
#include <vector>

#include "platform/devices.hpp"
#include "platform/host/host.hpp"
#include "sim/heat_model.hpp"
#include "sim/server_parts.hpp"
#include "sim/server_readings.hpp"
#include "sim/server_slots.hpp"

namespace sim {

// What the firmware allows; nothing for no limit.
struct power_limits {
    std::optional<unsigned> system_w;  // of the whole machine, fans among it
    std::optional<unsigned> processors_w;
    std::optional<unsigned> memory_w;
    std::optional<unsigned> memory_percent;  // of what it draws above idle
    unsigned drives_level = 0;               // 1 leaves 80 % of what drives draw above idle, 2 leaves 60 %
};

// What stands behind the ports of the simulated server. It reads the duties that were written to the fans' ports, lets
// time pass in the heat model, and has tachometers and sensors show what comes of it; it knows nothing of the rules.
class server_physics {
public:
    // Adds the lines to the host's ports. With a `seed` other than 0 readings carry noise: half a degree, 1 % of speed.
    server_physics(thermal_host::platform& host, const machine_plan& plan, unsigned seed);
    server_physics(const server_physics&) = delete;
    server_physics& operator=(const server_physics&) = delete;

    // Share of the way from idle to full power in percent, of every part without a power of its own; the parts of a
    // kind take the higher one of this and their own.
    void set_load(double percent);
    void set_load(load_kind kind, double percent);
    void set_power(std::size_t part, double watts);
    void set_inlet(double celsius) { _model.set_inlet(celsius); }
    void set_fan(unsigned number, bool works);
    void set_sensor(std::size_t part, bool works);
    // A drive or card that is pulled draws nothing.
    void set_drive(unsigned bay, bool plugged) { _readings.set_drive(bay, plugged); }

    // What the firmware does about power. Limits take the same share of what each part draws above its idle power;
    // idle power stays, whatever the limit. Without host power parts draw nothing and processors do not answer.
    void set_limits(const power_limits& limits) { _limits = limits; }
    void set_host_power(bool is_on);

    void step(double seconds);

    // The load that is the highest of all kinds'.
    double highest_load() const { return std::max(_load, *std::ranges::max_element(_load_of)); }
    double inlet() const { return _model.inlet(); }
    double outlet() const { return _model.outlet(static_cast<zone_id>(air_zone::main)); }
    // Of the part itself, whatever its sensor shows.
    double temperature(std::size_t part) const { return _model.temperature(_parts.at(part).id); }
    double hottest(const part_group& group) const;
    bool throttles(unsigned socket) const { return _throttles.at(socket - 1); }
    double power() const;  // W of all parts, limited as of the last step
    double power(std::size_t part) const { return _parts.at(part).drawn_w; }
    double fan_power() const;         // W
    double duty(unsigned fan) const;  // percent, as the fan's hardware was told
    double rpm(unsigned fan) const { return _model.rpm(_fans.at(fan - 1)); }

    const machine_plan& plan() const { return _plan; }
    server_slots& slots() { return _slots; }
    const server_slots& slots() const { return _slots; }
    server_readings& readings() { return _readings; }

private:
    struct part_state {
        part_id id;
        double own_power_w;  // negative: by the load
        double drawn_w;
    };

    // The power supplies' firmware, which hears its fans' duty in an event.
    class psu_listener : public logical_device {
    public:
        explicit psu_listener(std::uint16_t topic);
        void dispatch_event(const QEvent* event) override;
        std::uint8_t duty() const { return _duty; }

    private:
        std::uint16_t _topic;
        std::uint8_t _duty = 0;
    };

    void add_fans();
    void share_power();
    double wanted_power(std::size_t part) const;
    double share_of(std::size_t part) const;
    // Leaves of what the chosen parts draw above idle as much as fits into `watts` together with `fixed_w`.
    template <class Choose>
    void limit_to(double watts, double fixed_w, Choose&& choose);
    void note_throttle();
    void show_parts();
    void show_fans();
    double noise(double amplitude);

    thermal_host::platform& _host;
    const machine_plan& _plan;
    std::mt19937 _random;
    bool _noisy;
    heat_model _model;
    server_readings _readings;
    server_slots _slots;
    double _load = 0.0;
    std::array<double, load_names.size()> _load_of{};
    power_limits _limits;
    bool _has_host_power = false;
    std::array<bool, sockets> _throttles{};
    std::vector<part_state> _parts;
    std::vector<fan_id> _fans;
    psu_listener _psu;
    thermal_host::block_line& _fan_records;
    std::vector<thermal_host::number_line*> _psu_tachs;
    thermal_host::number_line& _storage_duty;
    thermal_host::number_line& _storage_tach;
    thermal_host::number_line& _system_power;
};

}  // namespace sim
