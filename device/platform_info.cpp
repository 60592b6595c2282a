#include "device/platform_info.hpp"

#include "device/published_values.hpp"

namespace {
constexpr const char* class_name = "common_thermal_device_platform_info";
}  // namespace

common_thermal_device_platform_info::common_thermal_device_platform_info(int instance)
    : common_thermal_device(class_name, class_name, instance, common_thermal_utils::tdev_platform_info) {}

common_thermal_device_platform_info::mapping::mapping(const std::string& name, int instance)
    : data(create_dao_key_prefix(class_name, name), instance) {}

common_thermal_utils& common_thermal_device_platform_info::add_port(const std::string& name) {
    _mappings.erase(name);
    return _mappings.try_emplace(name, name, get_instance()).first->second.port;
}

void common_thermal_device_platform_info::add_mapping_port_integer_input(const std::string& name, unsigned port) {
    add_port(name).create_port_integer(*this, name, get_instance(), port, false);
}

void common_thermal_device_platform_info::add_mapping_port_integer_input(const std::string& name,
                                                                         const std::string& key) {
    add_port(name).create_port_integer(*this, name, get_instance(), key);
}

void common_thermal_device_platform_info::poll(common_thermal_dao* dao, unsigned long) {
    for (auto& [name, entry] : _mappings) {
        std::uint32_t reading = 0;
        if (entry.port.is_bound()) {
            entry.port.read_port_integer(&reading);
        }
        entry.data.value = static_cast<float>(reading);
        if (dao != nullptr) {
            dao->update_dev(&entry.data, common_thermal_dao::spike_none, false);
        }
    }
}

std::string common_thermal_device_platform_info::debug() {
    std::string text;
    for (const auto& [name, entry] : _mappings) {
        text += debug_line(entry.data);
    }
    return text;
}
