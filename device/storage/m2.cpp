#include "device/storage/m2.hpp"

#include <array>

#include "device/storage/drive_values.hpp"
#include "foundation/float_conversion.hpp"
#include "foundation/log_masks.hpp"

using utils = common_thermal_utils;

namespace {

constexpr presence_sensor::row ambient_presence_row{
    {"common_thermal_device_m2_ambient_presence", utils::tdev_m2_ambient_presence, "presence", "M2_PRESENCE_INPUT"},
    presence_sensor::gate::none,
    false,
    common_thermal_dao::spike_none,
    "common_thermal_device_m2_ambient_presence"};
constexpr presence_sensor::row drive_presence_row{
    {"common_thermal_device_m2_drive_presence", utils::tdev_m2_drive_presence, "presence", "M2_PRESENCE_INPUT"},
    presence_sensor::gate::none,
    false,
    common_thermal_dao::spike_none,
    "common_thermal_device_m2_driver_presence"};

constexpr const char* ambient_class = "common_thermal_device_m2_ambient";
constexpr const char* drive_class = "common_thermal_device_m2_drive_temperature";
constexpr const char* composite_class = "common_thermal_device_m2_composite";

enum ambient_word : std::size_t { ambient_temperature, port_type };
enum drive_word : std::size_t { drive_temperature, threshold, margin };
enum composite_word : std::size_t { composite_type, high_amb_temperature, high_drive_temperature };

constexpr unsigned last_port_type = 5;
constexpr std::uint32_t no_threshold = 255;

}  // namespace

common_thermal_device_m2_ambient_presence::common_thermal_device_m2_ambient_presence(int instance)
    : presence_sensor(ambient_presence_row, instance) {}

common_thermal_device_m2_drive_presence::common_thermal_device_m2_drive_presence(int instance)
    : presence_sensor(drive_presence_row, instance) {}

common_thermal_device_m2_ambient::common_thermal_device_m2_ambient(int instance)
    : common_thermal_device(ambient_class, ambient_class, instance, utils::tdev_m2_ambient),
      _values(ambient_class, instance, {{"temperature"}, {"port_type"}}),
      _port(*this, device_port::kind::block, "M2_AMB_TEMP_INPUT") {}

void common_thermal_device_m2_ambient::set_port_type(unsigned type) {
    _port_type = type <= last_port_type ? type : 0;
    _values[port_type] = static_cast<float>(_port_type);
}

void common_thermal_device_m2_ambient::get_temperature(float* destination) const {
    *destination = _values[ambient_temperature];
}

bool common_thermal_device_m2_ambient::read_temperature(float& reading) {
    return read_chip_by_number(_port, _port_type, reading);
}

void common_thermal_device_m2_ambient::poll(common_thermal_dao* dao, unsigned long) {
    float reading = no_chip_reading;
    const bool bound = _port.is_bound();
    bool read = false;
    for_each_depend<common_thermal_device_m2_ambient_presence>(
        utils::tdev_m2_ambient_presence, [&](const common_thermal_device_m2_ambient_presence& sensor) {
            read = (sensor.is_presence() && bound && read_temperature(reading)) || read;
        });
    LOG::log(log_source, log_mask::outcome, "common_thermal_device_m2_ambient::%s - isbound(%d), read(%d), temp(%f)\n",
             "poll", bound ? 1 : 0, read ? 1 : 0, shown(reading));
    _values[ambient_temperature] = read && reading != no_chip_reading ? reading : utils::invalid_temperature;
    _values.publish(dao, common_thermal_dao::spike_going_high);
}

common_thermal_device_m2_drive_temperature::common_thermal_device_m2_drive_temperature(int instance)
    : common_thermal_device(drive_class, drive_class, instance, utils::tdev_m2_drive_temperature),
      _values(drive_class, instance, {{"temperature"}, {"threshold"}, {"margin"}}),
      _port_temperature(*this, device_port::kind::integer, "M2_DRIVE_TEMP_INPUT"),
      _port_threshold(*this, device_port::kind::integer, "M2_DRIVE_THRESHOLD_INPUT") {}

device_port* common_thermal_device_m2_drive_temperature::next_input() {
    const std::array<device_port*, 2> inputs{&_port_temperature, &_port_threshold};
    if (_port_inputs < inputs.size()) {
        return inputs[_port_inputs++];
    }
    LOG::log(log_source, log_mask::calculation,
             "common_thermal_device_m2_drive_temperature::%s port input assignment exceeded.\n", "set_port_input");
    return nullptr;
}

void common_thermal_device_m2_drive_temperature::get_temperature(float* destination) const {
    *destination = _values[drive_temperature];
}

void common_thermal_device_m2_drive_temperature::poll(common_thermal_dao* dao, unsigned long) {
    std::uint32_t degrees = 0;
    const bool bound = _port_temperature.is_bound();
    bool read = false;
    for_each_depend<common_thermal_device_m2_drive_presence>(
        utils::tdev_m2_drive_presence, [&](const common_thermal_device_m2_drive_presence& drive) {
            read = (drive.is_presence() && bound && _port_temperature.read_port_integer(&degrees)) || read;
        });
    LOG::log(log_source, log_mask::outcome,
             "common_thermal_device_m2_drive_temperature::%s - isbound(%d), read(%d), temp(%d)\n", "poll",
             bound ? 1 : 0, read ? 1 : 0, static_cast<int>(degrees));

    std::uint32_t limit = 0;
    const bool limit_bound = _port_threshold.is_bound();
    const bool limit_read = read && limit_bound && _port_threshold.read_port_integer(&limit);
    LOG::log(log_source, log_mask::outcome,
             "common_thermal_device_m2_drive_temperature::%s - isbound(%d), read(%d), threshold(%d)\n", "poll",
             limit_bound ? 1 : 0, limit_read ? 1 : 0, static_cast<int>(limit));

    const bool valid = read && degrees != 0;
    _values[drive_temperature] = valid ? static_cast<float>(degrees) : utils::invalid_temperature;
    _values[threshold] = _values[margin] = utils::invalid_temperature;
    if (limit_read) {
        const std::uint32_t warning = threshold_or_usual(limit);
        _values[threshold] = static_cast<float>(warning);
        if (valid && limit != no_threshold) {
            _values[margin] = degrees < warning ? static_cast<float>(warning - degrees) : 0.0f;
        }
    }
    _values.publish(dao, common_thermal_dao::spike_going_high);
}

common_thermal_device_m2_composite::common_thermal_device_m2_composite(int instance)
    : common_thermal_device(composite_class, composite_class, instance, utils::tdev_m2_composite),
      _values(composite_class, instance, {{"type"}, {"high_amb_temperature"}, {"high_drive_temperature"}}) {}

template <class Sensor>
void common_thermal_device_m2_composite::raise(tdev_type_t kind, float& high) const {
    for_each_depend<Sensor>(kind, [&high](const Sensor& sensor) {
        float reading = 0.0f;
        sensor.get_temperature(&reading);
        high = reading != utils::invalid_temperature && reading > high ? reading : high;
    });
}

void common_thermal_device_m2_composite::poll(common_thermal_dao* dao, unsigned long) {
    const auto or_zero = [](float high) { return high != no_chip_reading ? high : 0.0f; };
    float high = no_chip_reading;
    raise<common_thermal_device_m2_ambient>(utils::tdev_m2_ambient, high);
    _values[high_amb_temperature] = or_zero(high);
    raise<common_thermal_device_m2_drive_temperature>(utils::tdev_m2_drive_temperature, high);
    _values[high_drive_temperature] = or_zero(high);
    _values[composite_type] = 1.0f;
    LOG::log(log_source, log_mask::outcome,
             "common_thermal_device_m2_composite::%s - type(%f) high amb(%f), high drive(%f)\n", "poll",
             shown(_values[composite_type]), shown(_values[high_amb_temperature]),
             shown(_values[high_drive_temperature]));
    _values.publish(dao, common_thermal_dao::spike_going_high);
}
