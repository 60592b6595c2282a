#include "device/generic_temperature.hpp"

#include "foundation/float_conversion.hpp"
#include "foundation/log_masks.hpp"

namespace {
constexpr const char* class_name = "common_thermal_device_generic_temperature";
enum word : std::size_t { temperature, port_type, avg_temperature };
}  // namespace

common_thermal_device_generic_temperature::common_thermal_device_generic_temperature(int instance)
    : common_thermal_device(class_name, class_name, instance, common_thermal_utils::tdev_generic_temperature),
      _values(class_name, instance, {{"temperature"}, {"port_type"}, {"avg_temperature"}}),
      _port(*this, device_port::kind::block, "GENERIC_TEMP_INPUT") {}

void common_thermal_device_generic_temperature::set_port_type(unsigned type) {
    _port_type = type <= port_type_none ? type : 0;
    _values[port_type] = static_cast<float>(_port_type);
}

void common_thermal_device_generic_temperature::get_temperature(float* destination) const {
    *destination = _values[temperature];
}

float common_thermal_device_generic_temperature::read_tmp75_device() {
    return read_temperature_chip(_port, temperature_chip::tmp75);
}

float common_thermal_device_generic_temperature::read_lmp75_device() {
    return read_temperature_chip(_port, temperature_chip::lmp75);
}

float common_thermal_device_generic_temperature::read_lm92_device() {
    return read_temperature_chip(_port, temperature_chip::lm92);
}

float common_thermal_device_generic_temperature::read_emc1001_device() {
    return read_temperature_chip(_port, temperature_chip::emc1001);
}

bool common_thermal_device_generic_temperature::read_temperature(float& reading) {
    if (_port_type == port_type_none) {
        reading = no_chip_reading;
        return true;
    }
    return read_chip_by_number(_port, _port_type, reading);
}

void common_thermal_device_generic_temperature::poll(common_thermal_dao* dao, unsigned long) {
    float reading = no_chip_reading;
    const bool bound = _port.is_bound();
    const bool read = bound && read_temperature(reading);
    LOG::log(log_source, log_mask::outcome,
             "common_thermal_device_generic_temperature::%s - isbound(%d), read(%d), temp(%f)\n", "poll", bound ? 1 : 0,
             read ? 1 : 0, shown(reading));

    const float published = read && reading != no_chip_reading ? reading : common_thermal_utils::invalid_temperature;
    _values[temperature] = published;
    if (published != common_thermal_utils::invalid_temperature) {
        _average.add(published, _values[avg_temperature]);
    }
    LOG::log(log_source, log_mask::bus,
             "common_thermal_device_generic_temperature::%s - val(%f), val_avg(%f), avg_cnt(%d)\n", "poll",
             shown(published), shown(_average.value), _average.count);
    _values.publish(dao, common_thermal_dao::spike_going_high);
}
