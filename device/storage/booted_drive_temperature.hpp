#pragma once

#include "device/common_thermal_device.hpp"
#include "platform/drives.hpp"

// The drive that the host boots from: temperature, warning threshold and the margin between the two in degrees Celsius,
// and what kind of drive it is. Without a record those three are 255.0 and all others 0.0. A temperature of 0.0 or
// 255.0 in a record is no valid reading and shows as it is, with a margin of 0.0.
class THERMAL_API common_thermal_device_booted_drive_temperature : public common_thermal_device {
public:
    explicit common_thermal_device_booted_drive_temperature(int instance);

    // The boot drive's place, counted from 1.
    void set_num(unsigned number) { _slot_num = number; }
    void get_temperature(float* destination) const;
    // 0 for a vendor without a number.
    static std::uint32_t convert_to_vendor_id(const std::string& vendor);

    void poll(common_thermal_dao* dao, unsigned long now) override;
    std::string debug() override { return _values.debug_text(); }

private:
    // Tries one form factor after the other.
    const boot_drive_complex_info* find(CARD_FORM_FACTOR& found_as) const;
    void take(const boot_drive_complex_info& drive, CARD_FORM_FACTOR found_as);
    void clear();

    published_values _values;
    std::uint32_t _slot_num = ~std::uint32_t{0};
};
