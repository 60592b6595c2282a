#pragma once

#include <initializer_list>
#include <string>

#include "device/common_thermal_device.hpp"
#include "device/event_status.hpp"
#include "tests/support/host_fixture.hpp"

// Devices on a host and a store of their own.
class device_test : public host_fixture {
protected:
    void poll(common_thermal_device& device, int times = 1) {
        for (int i = 0; i < times; ++i) {
            device.polling(&dao, 0);
        }
    }

    static void link(common_thermal_device& device, std::initializer_list<common_thermal_device*> dependencies) {
        for (common_thermal_device* dependency : dependencies) {
            device.add_depend(dependency);
        }
    }

    // What the store holds, by class name without the common part; NaN for a key that nobody wrote.
    float stored(const std::string& name, int instance = 1) const {
        return value_of("common_thermal_device_" + name, instance);
    }

    // Polls a device and takes its first value.
    float reading(common_thermal_device& device) {
        poll(device);
        return std::stof(device.debug().substr(device.debug().find('=') + 1));
    }

    // 0 for a property that does not exist.
    std::uint32_t fan_bits(const std::string& name) {
        const auto* property = host.properties.find("/v2/zorm/dm/planar/" + name);
        return property != nullptr ? property->get_dword() : 0;
    }

    int lines_with(const std::string& text) {
        int count = 0;
        for (const auto& line : host.log.captured().entries()) {
            count += line.text.find(text) != std::string::npos ? 1 : 0;
        }
        return count;
    }
};
