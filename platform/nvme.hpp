#pragma once

#include <cstdint>

#include "platform/drives.hpp"

// The firmware's link to the NVMe drives, which caps their power by itself.
struct PLATFORM_API sep_comm_logical_device {
    // `index` counts the drives of a `kind` of place, 0 or 1. Null for a place without a drive, and for a drive that
    // has no management record or does not answer.
    static const drive_complex_info* get_drive_complex_info(std::uint8_t index, std::uint8_t kind);

    // How the power is capped. The firmware reads these in its own time and without a lock; units and meaning are its
    // own. First generation.
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
