#pragma once

#include "device/pci/reading_request.hpp"

// What an AMD adapter is asked for. Its cards speak one of two dialects; the operations of the second have `_rm` in
// their names. An operation takes the token of a hold on the agent and cmd_idle, and returns cmd_complete or cmd_failed.

// Degrees Celsius, 255.0 after a failed read. The ambient is asked for only when the die did not answer, and stands
// otherwise; the higher of the two goes to the slots, 0.0 without any.
class THERMAL_API common_thermal_device_pci_request_amd_temperature : public pci_request_device {
public:
    using status_t = common_thermal_utils::nv_cmd_status_t;
    using agent_t = common_thermal_device_pci_agent_amd;

    explicit common_thermal_device_pci_request_amd_temperature(int instance);

    status_t request_die_temperature(std::uint32_t token, status_t state, agent_t* agent, float* value);
    status_t request_amb_temperature(std::uint32_t token, status_t state, agent_t* agent, float* value);
    status_t request_die_temperature_rm(std::uint32_t token, status_t state, agent_t* agent, float* value);
    // The dialect has none: always fails.
    status_t request_amb_temperature_rm(std::uint32_t token, status_t state, agent_t* agent, float* value);

    void poll(common_thermal_dao* dao, unsigned long now) override;

private:
    using operation = status_t (common_thermal_device_pci_request_amd_temperature::*)(std::uint32_t, status_t, agent_t*,
                                                                                      float*);
    // False when the bus is taken, which leaves `value` alone, or the read fails.
    bool read(agent_t& agent, token_name& name, operation request, float& value);

    token_name _die_token;
    token_name _ambient_token;
};

// Degrees Celsius, 255.0 after a failed read. `valid` from the first good read until another request has the bus.
class THERMAL_API common_thermal_device_pci_request_amd_memory_temperature : public reading_request {
public:
    using agent_t = common_thermal_device_pci_agent_amd;

    explicit common_thermal_device_pci_request_amd_memory_temperature(int instance);

    status_t request_temperature(std::uint32_t token, status_t state, agent_t* agent, float* value);
    status_t request_temperature_rm(std::uint32_t token, status_t state, agent_t* agent, float* value);

protected:
    status_t request_reading(std::uint32_t token, plain_pci_agent& agent, float* reading) override;
};

// Watts, the last ones after a failed read. `valid` from the first good read until another request has the bus.
class THERMAL_API common_thermal_device_pci_request_amd_power : public reading_request {
public:
    using agent_t = common_thermal_device_pci_agent_amd;

    explicit common_thermal_device_pci_request_amd_power(int instance);

    // The dialect has none: always fails.
    status_t request_power(std::uint32_t token, status_t state, agent_t* agent, float* value);
    status_t request_power_rm(std::uint32_t token, status_t state, agent_t* agent, float* value);

protected:
    status_t request_reading(std::uint32_t token, plain_pci_agent& agent, float* reading) override;
};
