#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "device/published_values.hpp"
#include "foundation/common_thermal_utils.hpp"
#include "foundation/export.hpp"
#include "foundation/nap.hpp"
#include "platform/devices.hpp"
#include "store/common_thermal_dao.hpp"

// What the schedule polls. A device reads its ports or the devices it depends on and publishes each of its values on
// every poll; a failed read leaves a defined value, told by its class. Lives as long as the process.
class THERMAL_API common_thermal_device : public logical_device {
public:
    using tdev_type_t = common_thermal_utils::tdev_type_t;

    common_thermal_device(const char* name, const char* type_name, int instance, tdev_type_t type);

    // Reads and publishes. Runs on the thermal thread and must return quickly; `now` is the wall clock in seconds.
    virtual void poll(common_thermal_dao* dao, unsigned long now) = 0;
    // A line for each value.
    virtual std::string debug() = 0;
    virtual void set_avg_count(std::uint8_t count);
    // Running average in single precision; restarts from `new_value` while `average` is 0.0 or NaN.
    virtual void calculate_avg_reading(float new_value, float& average);

    tdev_type_t get_tdev_type() const { return _tdev_type; }
    const std::string& get_name() const { return _name; }
    int get_instance() const { return _instance; }

    bool is_activated() const { return _activated; }
    // For good: nothing activates a device again.
    void deactivate();

    void polling(common_thermal_dao* dao, unsigned long now) { poll(dao, now); }
    std::string debugging() { return debug(); }
    std::string get_debug_txt() const { return {}; }

    static std::string create_dao_key_prefix(const std::string& prefix, const std::string& key) {
        return prefix + "." + key;
    }

    // Board code links devices before the first poll; both live as long as the process.
    void add_depend(common_thermal_device* device);
    std::vector<common_thermal_device*> get_depends(tdev_type_t kind) const;

    // Sleep for some seconds of the monotonic clock, the end second included. A clock that fails means no nap.
    void nap_set(unsigned long now, std::uint8_t seconds) { _nap.set(_name.c_str(), now, seconds); }
    bool nap_chk(unsigned long now) { return _nap.check(_name.c_str(), now); }

    // The dependencies of a kind, in order of addition, as the class that this kind belongs to.
    template <class Device, class Visitor>
    void for_each_depend(tdev_type_t kind, Visitor&& visit) const {
        for (common_thermal_device* device : _depends) {
            if (device->_tdev_type == kind) {
                visit(*static_cast<Device*>(device));
            }
        }
    }

    // False without a dependency of that kind.
    template <class Device, class Predicate>
    bool any_depend(tdev_type_t kind, Predicate&& holds) const {
        for (common_thermal_device* device : _depends) {
            if (device->_tdev_type == kind && holds(*static_cast<Device*>(device))) {
                return true;
            }
        }
        return false;
    }

private:
    tdev_type_t _tdev_type;
    std::string _name;
    int _instance;
    nap _nap;
    std::uint8_t _avg_count = 1;
    std::vector<common_thermal_device*> _depends;
    bool _activated = true;
};

// The port of a device under its name, bound by the board by number or by key.
class THERMAL_API device_port : public common_thermal_utils {
public:
    enum class kind { bit, integer, block, fantach };

    device_port(common_thermal_device& owner, kind port_kind, const char* name)
        : _owner(owner), _kind(port_kind), _name(name) {}

    void bind(unsigned port);
    // A tachometer has no keyed form: nothing is bound.
    void bind(const std::string& key);

    // The record at the start of a block port. What a short read leaves out is 0; `got` tells the bytes that came.
    // Nothing while the port is unbound or fails.
    using record = std::array<std::uint8_t, 16>;
    std::optional<record> read_record(std::uint32_t& got);

private:
    common_thermal_device& _owner;
    kind _kind;
    const char* _name;
};

// The `count` that a running average weighs its history with; 0 counts as 1. An average of 0.0 or NaN restarts.
struct running_average {
    std::uint8_t count = 20;
    float value = 0.0f;

    void set_count(std::uint8_t new_count) { count = new_count == 0 ? std::uint8_t{1} : new_count; }
    // The seed moves only the state; from the second reading on `published` follows.
    void add(float reading, float& published);
};
