#pragma once

#include <initializer_list>
#include <string>
#include <utility>

// What a device shows with these values, in order; `name` is its class without the common part.
inline std::string debug_text(const std::string& name, int instance,
                              std::initializer_list<std::pair<const char*, float>> values) {
    std::string text;
    for (const auto& [word, value] : values) {
        text += "\ncommon_thermal_device_" + name + "." + word + "." + std::to_string(instance) + "=" +
                std::to_string(value);
    }
    return text;
}
