#pragma once

#include "device/pci/nvidia_request.hpp"

// Reads one thing from each core of a card in turn, or one thing of the whole card. Polled without such a card, it
// publishes nothing: the last values stay in the store.
class THERMAL_API nvidia_reading : public nvidia_supported_request {
public:
    void poll(common_thermal_dao* dao, unsigned long now) override;

    struct row;

protected:
    nvidia_reading(const row& reading, int instance, std::initializer_list<published_values::start_value> values);

    // One step of the request for a reading; sets `value` with cmd_complete.
    virtual status_t request(std::uint32_t token, status_t state, agent_t* agent, float& value) = 0;

    const row& _row;

private:
    void ask(agent_t& agent);
    void pass_over(agent_t& agent);
    // With the total that follows from it. A core that has no value of its own is left out.
    void store(std::uint32_t core, float value);
};

class THERMAL_API nvidia_temperature_reading : public nvidia_reading {
public:
    // Whole degrees Celsius, rounded down, with cmd_complete; 255.0 with cmd_failed; left alone otherwise.
    status_t request_temperature(std::uint32_t token, status_t state, agent_t* agent, float& degrees) const;

protected:
    using nvidia_reading::nvidia_reading;

private:
    status_t request(std::uint32_t token, status_t state, agent_t* agent, float& value) override {
        return request_temperature(token, state, agent, value);
    }
};

// Each die, and the hottest of those that have a reading for the slot.
class THERMAL_API common_thermal_device_pci_request_nvidia_temperature : public nvidia_temperature_reading {
public:
    explicit common_thermal_device_pci_request_nvidia_temperature(int instance);
};

class THERMAL_API common_thermal_device_pci_request_nvidia_memory_temperature : public nvidia_temperature_reading {
public:
    explicit common_thermal_device_pci_request_nvidia_memory_temperature(int instance);
};

// Degrees left to the card's own thermal limit; 255.0 for no reading.
class THERMAL_API common_thermal_device_pci_request_nvidia_tlimit_temperature : public nvidia_temperature_reading {
public:
    explicit common_thermal_device_pci_request_nvidia_tlimit_temperature(int instance);
};

// Each core and their sum in mW. A failed read leaves what the core drew before; the host's driver has to be loaded.
class THERMAL_API common_thermal_device_pci_request_nvidia_power : public nvidia_reading {
public:
    explicit common_thermal_device_pci_request_nvidia_power(int instance);

    // `milliwatts` is set with cmd_complete only.
    status_t request_power(std::uint32_t token, status_t state, agent_t* agent, std::uint32_t& milliwatts) const;

private:
    status_t request(std::uint32_t token, status_t state, agent_t* agent, float& value) override;
};
