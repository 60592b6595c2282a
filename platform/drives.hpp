#pragma once

#include <cstdint>
#include <string>

#include "platform/api.hpp"

// Drives with a management path of their own, as the firmware read them last. A call answers from memory and does not
// block. The record belongs to the firmware and may change as soon as the caller returns to it: take what is needed,
// keep no pointer. No lock is held.

// What every drive tells.
struct drive_record {
    std::uint8_t slot = 0;
    std::uint8_t flags = 0;                // interface in 0x03, form factor in 0x7C, medium in 0x80
    std::uint8_t placement = 0;            // medium in bit 0, location in bits 1 and 2
    std::uint8_t warning_temperature = 0;  // degrees Celsius; 0 where the drive gives none
    std::uint8_t temperature = 0;          // composite, degrees Celsius; 0 and 255 are no valid reading
};

struct drive_complex_info : drive_record {
    std::uint16_t vendor_id = 0;
    std::uint16_t device_id = 0;
    std::uint16_t sub_vendor_id = 0;
    std::uint16_t sub_device_id = 0;
};

struct boot_drive_complex_info : drive_record {
    std::uint8_t generic_firmware = 0;
    std::string vendor;
    std::string firmware_version;
    std::string model_number;
};

// Carriers that a boot drive may sit on.
enum CARD_FORM_FACTOR : std::uint32_t { card_form_factor_0 = 0, card_form_factor_1 = 1 };

struct PLATFORM_API sys_boot_logical_device {
    // `index` counts from 0. Null for a place without a drive, and for a drive that does not answer.
    static const boot_drive_complex_info* get_drive_complex_info(std::uint8_t index, CARD_FORM_FACTOR form_factor);
};
