#pragma once

#include "device/port_sensors.hpp"

// Whether a drive is in the bay, as a property of the firmware has it; 0.0 without that property.
class THERMAL_API common_thermal_device_disk_drive_presence : public common_thermal_device {
public:
    explicit common_thermal_device_disk_drive_presence(int instance);

    bool is_presence() const { return _values[0] > 0.0f; }

    void poll(common_thermal_dao* dao, unsigned long now) override;
    std::string debug() override { return _values.debug_text(); }

private:
    published_values _values;
    std::string _presence_path;
};

// A drive's temperature in degrees Celsius from an integer port, read while any drive it depends on is present. Keeps
// its last reading without a drive and after a failed read.
class THERMAL_API common_thermal_device_disk_drive_temp : public port_sensor {
public:
    explicit common_thermal_device_disk_drive_temp(int instance);

    void get_temperature(float* destination) const { *destination = _values[0]; }

    void poll(common_thermal_dao* dao, unsigned long now) override;
};

// How many of the drives it depends on are present.
class THERMAL_API common_thermal_device_disk_drive_quantity : public common_thermal_device {
public:
    explicit common_thermal_device_disk_drive_quantity(int instance);

    void poll(common_thermal_dao* dao, unsigned long now) override;
    std::string debug() override { return _values.debug_text(); }

private:
    published_values _values;
};

// Which of its first 30 bays hold a drive, a bit for each in the order of their linking, and how many bays more there
// are, with a drive or without. A float keeps 24 bits: a mask with a high bit loses its lowest ones.
class THERMAL_API common_thermal_device_disk_drive_quantity_mask_30 : public common_thermal_device {
public:
    explicit common_thermal_device_disk_drive_quantity_mask_30(int instance);

    void poll(common_thermal_dao* dao, unsigned long now) override;
    std::string debug() override { return _values.debug_text(); }

private:
    published_values _values;
};

// What is known of the drive in a bay, from its presence, temperature and NVMe devices and its type property. A drive
// without a type shows 255.0 degrees. Values keep their last state while no drive, or no NVMe drive, is present; an
// NVMe drive gives `high_temperature`. The manufacturer is published but unknown, 0.0.
class THERMAL_API common_thermal_device_disk_drive_info : public common_thermal_device {
public:
    explicit common_thermal_device_disk_drive_info(int instance);

    void poll(common_thermal_dao* dao, unsigned long now) override;
    std::string debug() override { return _values.debug_text(); }

private:
    void take_drive();
    void take_nvme();

    published_values _values;
    std::string _type_path;
};
