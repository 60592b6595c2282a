#pragma once

#include <span>

#include "device/pci/agent.hpp"

// One operation of a request device on the bus of a plain agent: who asks, how log lines call it, and for which hold.
struct THERMAL_API plain_request {
    using status_t = common_thermal_utils::nv_cmd_status_t;

    const common_thermal_device& device;
    std::string_view operation;  // a literal: log lines take its text
    plain_pci_agent* agent;
    std::uint32_t token;
    status_t state;

    // Without an agent cmd_failed.
    status_t write_read(std::span<const std::uint8_t> tx, std::span<std::uint8_t> rx) const;

    // The end of an operation whose failure leaves 255.0 and a line in the log. Returns `result`.
    status_t conclude(status_t result, float degrees, float* value) const;
    void log_status(status_t result) const;
};
