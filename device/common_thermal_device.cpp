#include "device/common_thermal_device.hpp"

#include <cmath>

#include "foundation/log_masks.hpp"

namespace {

bool is_unseeded(float average) { return average == 0.0f || std::isnan(average); }

float weighed(float reading, float average, std::uint8_t count) {
    const auto weight = static_cast<float>(count);
    return (reading + (weight - 1.0f) * average) / weight;
}

}  // namespace

common_thermal_device::common_thermal_device(const char* name, const char* type_name, int instance, tdev_type_t type)
    : logical_device(common_thermal_utils::thermal_controller_device(), name, type_name, true),
      _tdev_type(type),
      _name(name),
      _instance(instance) {}

void common_thermal_device::set_avg_count(std::uint8_t count) { _avg_count = count == 0 ? std::uint8_t{1} : count; }

void common_thermal_device::calculate_avg_reading(float new_value, float& average) {
    average = is_unseeded(average) ? new_value : weighed(new_value, average, _avg_count);
}

void common_thermal_device::deactivate() {
    _activated = false;
    LOG::err(log_source, "Thermal device deactivated: %s.%d.\n", _name.c_str(), _instance);
}

void common_thermal_device::add_depend(common_thermal_device* device) {
    if (device != nullptr) {
        _depends.push_back(device);
    }
}

std::vector<common_thermal_device*> common_thermal_device::get_depends(tdev_type_t kind) const {
    std::vector<common_thermal_device*> found;
    for_each_depend<common_thermal_device>(kind, [&found](common_thermal_device& device) { found.push_back(&device); });
    return found;
}

void device_port::bind(unsigned port) {
    const int instance = _owner.get_instance();
    switch (_kind) {
        case kind::bit:
            return create_port_bit(_owner, _name, instance, port, false);
        case kind::integer:
            return create_port_integer(_owner, _name, instance, port, false);
        case kind::block:
            return create_port_block(_owner, _name, instance, port, false);
        case kind::fantach:
            return create_port_fantach(_owner, _name, instance, port, false);
    }
}

void device_port::bind(const std::string& key) {
    switch (_kind) {
        case kind::bit:
            return create_port_bit(_owner, key);
        case kind::integer:
            return create_port_integer(_owner, key);
        case kind::block:
            return create_port_block(_owner, key);
        case kind::fantach:
            return;
    }
}

std::optional<device_port::record> device_port::read_record(std::uint32_t& got) {
    if (!is_bound()) {
        return {};
    }
    record bytes{};
    seek_port_block(0);
    if (!read_port_block(bytes.data(), &got, bytes.size())) {
        return {};
    }
    return bytes;
}

void running_average::add(float reading, float& published) {
    if (is_unseeded(value)) {
        value = reading;
        return;
    }
    value = weighed(reading, value, count);
    published = value;
}
