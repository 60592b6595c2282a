#pragma once

#include <cstdint>

#include "platform/api.hpp"

// The firmware's link to the NVMe drives, which caps their power by itself. It reads these in its own time and without
// a lock; units and meaning are the firmware's.
struct PLATFORM_API sep_comm_logical_device {
    // First generation.
    static std::uint8_t NVME_PWR_CAP_MARGIN1;
    static std::uint8_t NVME_PWR_CAP_MARGIN2;
    static std::uint8_t NVME_PWR_CAP_HYSTERESIS;

    // Second generation.
    static std::uint8_t NVME_PWR_CAP_MARGIN_LOWER;
    static std::uint8_t NVME_PWR_CAP_MARGIN_UPPER;
    static std::uint16_t NVME_PWR_CAP_TIMER_LOWER;
    static std::uint16_t NVME_PWR_CAP_TIMER_UPPER;
    static std::uint8_t NVME_PWR_CAP_ALG_VER;  // 2 once the second generation is in use
};
