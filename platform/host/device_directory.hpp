#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <utility>

#include "platform/devices.hpp"

namespace thermal_host {

// The devices that stand for pieces of hardware, by IPMI entity and instance. Loop thread only.
class device_directory {
public:
    // Replaces a device of the same identity.
    logical_device& add(std::uint8_t entity, std::uint8_t instance, std::uint32_t record_id);
    void remove(std::uint8_t entity, std::uint8_t instance);
    // Null if there is none.
    logical_device* find(std::uint8_t entity, std::uint8_t instance) const;

private:
    std::map<std::pair<std::uint8_t, std::uint8_t>, std::unique_ptr<logical_device>> _devices;
};

}  // namespace thermal_host
