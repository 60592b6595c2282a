#pragma once

#include "device/common_thermal_device.hpp"
#include "platform/nvme.hpp"

// An NVMe drive as its management record tells: temperature, warning threshold and the margin between the two in
// degrees Celsius, and what kind of drive it is. Temperature and margin are 255.0 without a valid reading; without a
// record all other values are 0.0.
class THERMAL_API common_thermal_device_nvme_temperature : public common_thermal_device {
public:
    // The instance names the drive; see convert_options().
    explicit common_thermal_device_nvme_temperature(int instance);

    // Whether the last poll found a record, with a valid reading or without.
    bool is_presence() const { return _present; }
    void get_nvme_info(float& temperature, float& form_factor, float& interface, float& threshold, float& margin,
                       std::uint16_t& vid, std::uint16_t& did, std::uint16_t& svid, std::uint16_t& sdid) const;

    // Where the firmware keeps the record: instances 0 to 64 are of kind 1, 65 to 255 of kind 0, counted from 0 again.
    // False for any other.
    static bool convert_options(int instance, std::uint8_t& index, std::uint8_t& kind);

    void poll(common_thermal_dao* dao, unsigned long now) override;
    std::string debug() override { return _values.debug_text(); }

private:
    void take(const drive_complex_info& drive);
    void clear();

    published_values _values;
    bool _present = false;
};
