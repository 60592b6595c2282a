#pragma once

#include "device/port_sensors.hpp"

// Whether a drive backplane is there. Gated on the stage ipmi_ready of any event status device it depends on.
class THERMAL_API common_thermal_device_disk_drive_backplane_presence : public presence_sensor {
public:
    explicit common_thermal_device_disk_drive_backplane_presence(int instance);
};

// Which backplane is there: its VPD and position identifiers, read once after it came; both are 0.0 without a backplane
// and until it answers. The number of drives that it can hold is published but unknown, 0.0.
class THERMAL_API common_thermal_device_disk_drive_backplane_info : public common_thermal_device {
public:
    explicit common_thermal_device_disk_drive_backplane_info(int instance);

    void set_port_input(unsigned port) { _port.bind(port); }
    void set_port_input(const std::string& key) { _port.bind(key); }
    // What follows from the identifiers.
    void update_bp_info(std::uint16_t vpd_id, std::uint16_t position_id);

    void poll(common_thermal_dao* dao, unsigned long now) override;
    std::string debug() override { return _values.debug_text(); }

private:
    struct identifiers {
        std::uint16_t vpd = 0;
        std::uint16_t position = 0;
    };

    void read(identifiers& backplane);

    published_values _values;
    device_port _port;
};
