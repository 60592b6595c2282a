#pragma once

#include <cstdint>

#include "platform/host_settings.hpp"

constexpr const char* power_brake_attribute = "Power.Q1003";

// One session with the host's settings service about the power-brake setting.
struct host_attribute_query {
    enum class outcome { not_initialized, failed, answered };

    outcome result = outcome::not_initialized;
    int error = 0;          // of the step that failed
    std::uint8_t mode = 0;  // 0 to 3, where answered
    hvt_attribute_request request{};
};

// Asks for the power-brake attribute. A number above 3 reads as 2, a text that is no number as 0.
host_attribute_query query_power_brake_mode();
