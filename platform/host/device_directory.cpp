#include "platform/host/device_directory.hpp"

#include <string>

namespace thermal_host {

namespace {

class recorded_device : public logical_device {
public:
    recorded_device(const std::string& name, std::uint32_t record_id)
        : logical_device(nullptr, name.c_str(), "hardware", true) {
        set_record_id(record_id);
    }
};

}  // namespace

logical_device& device_directory::add(std::uint8_t entity, std::uint8_t instance, std::uint32_t record_id) {
    const std::string name = "entity " + std::to_string(entity) + "." + std::to_string(instance);
    auto& device = _devices[{entity, instance}];
    device = std::make_unique<recorded_device>(name, record_id);
    return *device;
}

void device_directory::remove(std::uint8_t entity, std::uint8_t instance) { _devices.erase({entity, instance}); }

logical_device* device_directory::find(std::uint8_t entity, std::uint8_t instance) const {
    const auto found = _devices.find({entity, instance});
    return found != _devices.end() ? found->second.get() : nullptr;
}

}  // namespace thermal_host
