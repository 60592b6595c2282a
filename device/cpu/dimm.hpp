#pragma once

#include <cstdint>
#include <vector>

#include "device/common_thermal_device.hpp"
#include "device/cpu/channel_walk.hpp"
#include "device/port_sensors.hpp"
#include "platform/spd.hpp"

// Whether a memory module is fitted; always read.
class THERMAL_API common_thermal_device_dimm_presence : public presence_sensor {
public:
    explicit common_thermal_device_dimm_presence(int instance);
};

// The modules of one memory channel, read through their processor in one transaction. A module's place is that of its
// presence device among the channel's; a failing bus, or a module that was taken out, leaves the last temperature.
class THERMAL_API common_thermal_device_dimm_channel : public common_thermal_device {
public:
    static constexpr float no_such_module = -999.0f;

    explicit common_thermal_device_dimm_channel(int instance);

    // The channel's number at the processor, counted from 1; 0 counts as 1.
    void set_num(unsigned number) { _values[0] = number == 0 ? 0.0f : static_cast<float>(number - 1); }

    // Whether a module is there and its processor can be asked, as of the last poll.
    bool is_actived() const;
    // Degrees Celsius of the module at a place counted from 1, 0.0 if it was never read; `no_such_module` outside.
    float get_temperature_by_index(unsigned place) const;

    void poll(common_thermal_dao* dao, unsigned long now) override;
    std::string debug() override { return _values.debug_text(); }

private:
    // Counts the places and makes room for them; true if any module is there.
    bool look_for_modules();
    void read_modules(const cpu_connection& processor);

    published_values _values;
    std::vector<float> _temperatures;
    std::uint32_t _places = 0;
};

// One module's temperature in degrees Celsius, with its place. 0.0 while no channel is active, -999.0 for a place that
// the channel does not have.
class THERMAL_API common_thermal_device_dimm_temperature : public common_thermal_device {
public:
    explicit common_thermal_device_dimm_temperature(int instance);

    // The module's place in its channel, counted from 1.
    void set_num(unsigned place) { _place = place; }

    void poll(common_thermal_dao* dao, unsigned long now) override;
    std::string debug() override { return _values.debug_text(); }

private:
    published_values _values;
    std::uint32_t _place = 0;
};

// What a module tells about itself, as the firmware gives it; the instance is the module's number on the board, counted
// from 1. Both values are 0.0 while the module is absent, or not known.
class THERMAL_API common_thermal_device_dimm_info : public common_thermal_device {
public:
    explicit common_thermal_device_dimm_info(int instance);

    void poll(common_thermal_dao* dao, unsigned long now) override;
    std::string debug() override { return _values.debug_text(); }

private:
    published_values _values;
    const dimm_spd_logical_device* _spd;
};
