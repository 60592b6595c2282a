#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <random>
#include <vector>

#include "platform/devices.hpp"
#include "platform/host/host.hpp"
#include "sim/heat_model.hpp"
#include "sim/server_parts.hpp"

namespace sim {

// What stands behind the ports of the simulated server. It reads the duties that were written to the fans' ports, lets
// time pass in the heat model, and writes what tachometers and sensors would show; it knows nothing of the library.
class server_physics {
public:
    // Adds the lines to the host's ports. With a `seed` other than 0 readings carry noise: half a degree, 1 % of speed.
    server_physics(thermal_host::platform& host, unsigned seed);
    server_physics(const server_physics&) = delete;
    server_physics& operator=(const server_physics&) = delete;

    // Share of the way from idle to full power, in percent, of every part without a power of its own.
    void set_load(double percent);
    void set_power(std::size_t part, double watts);
    void set_inlet(double celsius) { _model.set_inlet(celsius); }
    void set_fan(unsigned number, bool works);
    void set_sensor(std::size_t part, bool works);

    // What the firmware does about power. A cap in W on the whole machine takes the same share of what each part draws
    // above its idle power; fans and idle power stay, whatever the cap. Without host power parts draw nothing.
    void set_system_cap(std::optional<unsigned> watts) { _system_cap = watts; }
    void set_host_power(bool is_on) { _has_host_power = is_on; }

    void step(double seconds);

    double load() const { return _load; }
    double inlet() const { return _model.inlet(); }
    // Of the part itself, whatever its sensor shows.
    double temperature(std::size_t part) const { return _model.temperature(_parts.at(part).id); }
    double power() const;             // W of all parts, capped as of the last step
    double fan_power() const;         // W
    double duty(unsigned fan) const;  // percent, as the fan's hardware was told
    double rpm(unsigned fan) const { return _model.rpm(_fans.at(fan - 1)); }

private:
    struct part_state {
        part_id id;
        double own_power_w;  // negative: by the load
        bool sensor_works;
        thermal_host::number_line* number;  // one of the two
        thermal_host::block_line* block;
    };

    // The power supply's firmware, which hears its fan's duty in an event.
    class psu_listener : public logical_device {
    public:
        explicit psu_listener(std::uint16_t topic);
        void dispatch_event(const QEvent* event) override;
        std::uint8_t duty() const { return _duty; }

    private:
        std::uint16_t _topic;
        std::uint8_t _duty = 0;
    };

    void add_parts();
    void add_fans();
    double wanted_power(std::size_t part) const;
    double power_of(std::size_t part) const;
    double share_above_idle() const;
    void show_temperature(std::size_t part);
    void show_fans();
    double noise(double amplitude);

    thermal_host::platform& _host;
    std::mt19937 _random;
    bool _noisy;
    heat_model _model;
    double _load = 0.0;
    std::optional<unsigned> _system_cap;
    double _share_above_idle = 1.0;
    bool _has_host_power = true;
    std::vector<part_state> _parts;
    std::vector<fan_id> _fans;
    psu_listener _psu;
    thermal_host::block_line& _records;
    thermal_host::block_line& _fan_records;
    thermal_host::number_line& _psu_tach;
    thermal_host::number_line& _storage_duty;
    thermal_host::number_line& _storage_tach;
    thermal_host::number_line& _system_power;
};

}  // namespace sim
