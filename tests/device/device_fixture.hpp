#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <initializer_list>
#include <limits>
#include <string>

#include "device/common_thermal_device.hpp"
#include "device/event_status.hpp"
#include "platform/host/host.hpp"
#include "store/common_thermal_dao.hpp"

// Devices on a host of their own, with every log line kept.
class device_test : public ::testing::Test {
protected:
    device_test() {
        host.log.set_file(nullptr);
        host.log.set_mask(~0u);
        host.log.captured().set_capacity(256);
    }

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
        float value = std::numeric_limits<float>::quiet_NaN();
        dao.fetch_dev("common_thermal_device_" + name, instance, &value);
        return value;
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

    thermal_host::platform host{{.virtual_time = true}};
    common_thermal_dao dao;
};
