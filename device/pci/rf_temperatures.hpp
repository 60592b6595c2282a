#pragma once

#include "device/pci/request_device.hpp"
#include "device/pci/rf_agents.hpp"

// All sensors of a module of an accelerator baseboard: temperatures in degrees Celsius and power in W. Reads one agent
// a poll, in turn, and tells the slots. A temperature without a reading is 255.0, a power 0.0; `high_temperature` is
// 0.0 without one. Publishes nothing while no list supports its card, or without an agent.
class THERMAL_API rf_temperature_request : public pci_request_device {
public:
    struct row;

    // The reading decoded into `out`; with cmd_failed `out` is 255.0.
    rf_agent::status_t request_reading(rf_agent& agent, rf_agent::reading_type type, float* out);

    void poll(common_thermal_dao* dao, unsigned long now) override;

protected:
    rf_temperature_request(const row& family, int instance);

private:
    void read_sensors(rf_agent& agent);
    void tell_readings() const;
    void log_lost(rf_agent::status_t status) const;

    const row& _row;
};

#define THERMAL_RF_REQUEST(name)                             \
    class THERMAL_API name : public rf_temperature_request { \
    public:                                                  \
        explicit name(int instance);                         \
    }

// Signed thousandths.
THERMAL_RF_REQUEST(common_thermal_device_pci_request_nvidia_rf_temperature);
// Unsigned thousandths.
THERMAL_RF_REQUEST(common_thermal_device_pci_request_amd_rf_temperature);
// Unsigned: whole degrees below 1000, thousandths from there on. `core2_temperature` is the margin to the module's
// limit. `hbm_temperature` and `power` stay 0.0, as the agent has no reading for them.
THERMAL_RF_REQUEST(common_thermal_device_pci_request_intel_gaudi3_temperature);

#undef THERMAL_RF_REQUEST
