#pragma once

#include <initializer_list>
#include <sstream>
#include <string>

#include "device/common_thermal_device.hpp"
#include "device/event_status.hpp"
#include "tests/support/host_fixture.hpp"

// Devices on a host and a store of their own.
class device_test : public host_fixture {
protected:
    void poll(common_thermal_device& device, int times = 1) {
        for (int i = 0; i < times; ++i) device.polling(&dao, 0);
    }

    static void link(common_thermal_device& device, std::initializer_list<common_thermal_device*> dependencies) {
        for (common_thermal_device* dependency : dependencies) device.add_depend(dependency);
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

    // Its values in order, as "margin=35 ..." or without the words.
    static std::string listed(common_thermal_device& device, bool with_words) {
        std::istringstream lines(device.debug());
        std::ostringstream text;
        for (std::string line; std::getline(lines, line);) {
            const std::size_t word = line.find('.') + 1, equal = line.find('=');
            if (word == 0) continue;  // the text starts with a line break
            text << (text.tellp() != 0 ? " " : "");
            if (with_words) text << line.substr(word, line.find('.', word) - word) << "=";
            text << std::stof(line.substr(equal + 1));
        }
        return text.str();
    }
    static std::string named_values(common_thermal_device& device) { return listed(device, true); }
    // Polls devices one after the other and takes the values of the last: "40 75 35".
    template <class... Device>
    std::string told(Device&... devices) {
        std::string text;
        (..., (poll(devices), text = listed(devices, false)));
        return text;
    }
    // Lets the spike filter believe a value from `critical` up when it has been polled twice.
    void filter(const std::string& name, float critical, int instance = 1) {
        dao.update_dev("1SMC.common_thermal_device_" + name, instance, 2.0f, false);
        dao.update_dev("1SC.common_thermal_device_" + name, instance, critical, false);
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
