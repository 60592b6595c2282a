#include "device/exhaust_temperature.hpp"

#include <algorithm>

#include "device/ambient.hpp"
#include "foundation/log_masks.hpp"

using utils = common_thermal_utils;

namespace {

constexpr const char* class_name = "common_thermal_device_exhaust_temperature";
enum word : std::size_t { temperature, system_power, cfm, factor };

float read_number(common_thermal_utils& port) {
    std::uint32_t reading = 0;
    port.read_port_integer(&reading);
    return static_cast<float>(reading);
}

}  // namespace

common_thermal_device_exhaust_temperature::common_thermal_device_exhaust_temperature(int instance)
    : common_thermal_device(class_name, class_name, instance, utils::tdev_exhaust_temperature),
      _values(class_name, instance, {{"temperature"}, {"system_power"}, {"cfm"}, {"factor"}}),
      _ports{{{*this, device_port::kind::integer, "PORT_EXHAUST_SYSPOWER"},
              {*this, device_port::kind::integer, "PORT_EXHAUST_CFM"},
              {*this, device_port::kind::integer, "PORT_EXHAUST_FACOR"}}} {}

device_port* common_thermal_device_exhaust_temperature::next_port() {
    if (_assigned == _ports.size()) {
        LOG::log(log_source, log_mask::calculation,
                 "common_thermal_device_exhaust_temperature::%s port input assignment exceeded.\n", "set_port_input");
        return nullptr;
    }
    return &_ports[_assigned++];
}

float common_thermal_device_exhaust_temperature::inlet() const {
    float degrees = 0.0f;
    for_each_depend<common_thermal_device_ambient>(utils::tdev_ambient,
                                                   [&degrees](const common_thermal_device_ambient& ambient) {
                                                       if (ambient.is_presence()) {
                                                           ambient.get_temperature(&degrees);
                                                       }
                                                   });
    return degrees;
}

void common_thermal_device_exhaust_temperature::estimate() {
    const float power = read_number(_ports[0]);
    const float volume = read_number(_ports[1]);
    _values[system_power] = power;
    _values[cfm] = volume == 0.0f ? 1.0f : volume;
    _values[factor] = read_number(_ports[2]);
    _values[temperature] = power * _values[factor] / (_values[cfm] * 1000.0f) + inlet();
}

void common_thermal_device_exhaust_temperature::poll(common_thermal_dao* dao, unsigned long) {
    if (std::all_of(_ports.begin(), _ports.end(), [](const device_port& port) { return port.is_bound(); })) {
        estimate();
    } else {
        _values[temperature] = utils::invalid_temperature;
    }
    _values.publish(dao, common_thermal_dao::spike_going_high);
}
