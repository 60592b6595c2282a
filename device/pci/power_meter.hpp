#pragma once

#include "device/port_sensors.hpp"

// A meter in the supply of a slot, in the slot's unit, mW. Without a reading 0.0, and the slots keep their last one.
class THERMAL_API common_thermal_device_pci_request_pci_power_meter : public port_sensor {
public:
    explicit common_thermal_device_pci_request_pci_power_meter(int instance);

    void poll(common_thermal_dao* dao, unsigned long now) override;
};
