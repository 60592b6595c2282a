#pragma once

#include <cstdint>

#include "platform/drives.hpp"

// What a drive's management record says, as the store shows it. What the numbers stand for is the firmware's.

float drive_form_factor(const drive_record& drive);

constexpr float drive_interface(const drive_record& drive) {
    return (drive.flags & 0x02u) != 0 ? 2.0f : static_cast<float>(drive.flags & 0x01u);
}

constexpr float drive_media(const drive_record& drive) {
    return (drive.flags & 0x80u) != 0 ? 1.0f : 2.0f * static_cast<float>(drive.placement & 0x01u);
}

constexpr float drive_location(const drive_record& drive) { return static_cast<float>(drive.placement >> 1 & 0x03u); }

// The temperature that a drive warns at, degrees Celsius; a usual one where it names none.
constexpr std::uint32_t threshold_or_usual(std::uint32_t given) { return given != 0 ? given : 70; }

constexpr bool has_valid_temperature(const drive_record& drive) {
    return drive.temperature != 0 && drive.temperature != 255;
}

// Degrees below the warning temperature; 0.0, with a log line, above it.
float drive_margin(const drive_record& drive);
