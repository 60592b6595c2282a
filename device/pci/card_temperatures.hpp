#pragma once

#include "device/pci/reading_request.hpp"

// Temperatures of cards that are read over a plain write-read channel, in degrees Celsius. An operation takes the token
// of a hold on the agent and cmd_idle, and returns what its exchange came to.

// One exchange, one value. Each class is a row of a table in card_temperatures.cpp: frame, decoding, and what a failed
// read leaves. A poll that does not get the bus publishes 0.0 and tells it to the slots.
class THERMAL_API card_temperature : public reading_request {
public:
    struct card;

    status_t request_temperature(std::uint32_t token, status_t state, plain_pci_agent* agent, float* value);

protected:
    card_temperature(const card& polled, int instance);
    status_t request_reading(std::uint32_t token, plain_pci_agent& agent, float* reading) override;

private:
    const card& _card;
};

#define THERMAL_CARD_TEMPERATURE(name)                 \
    class THERMAL_API name : public card_temperature { \
    public:                                            \
        explicit name(int instance);                   \
    }

// 255.0 after a failed read.
THERMAL_CARD_TEMPERATURE(common_thermal_device_pci_request_intel_fpga_board_temperature);
THERMAL_CARD_TEMPERATURE(common_thermal_device_pci_request_intel_fpga_die_temperature);
THERMAL_CARD_TEMPERATURE(common_thermal_device_pci_request_xilinx_memory_temperature);
// 0.0 after a failed read.
THERMAL_CARD_TEMPERATURE(common_thermal_device_pci_request_xilinx_temperature);
THERMAL_CARD_TEMPERATURE(common_thermal_device_pci_request_ai100_temperature);

#undef THERMAL_CARD_TEMPERATURE

// A command and its answer in two exchanges. 255.0 and not `valid` after a failed read; a poll that does not get the bus
// leaves both.
class THERMAL_API common_thermal_device_pci_request_intel_nic_temperature : public reading_request {
public:
    explicit common_thermal_device_pci_request_intel_nic_temperature(int instance);

    status_t request_temperature(std::uint32_t token, status_t state, common_thermal_device_pci_agent_intel_nic* agent,
                                 float* value);

protected:
    status_t request_reading(std::uint32_t token, plain_pci_agent& agent, float* reading) override;
};

// Registers of the card's logic device. A register that fails leaves 255.0, a network module that is not there 0.0. The
// slots get chip or, without it, board, and the hotter of the two modules; 0.0 for what has no reading.
class THERMAL_API common_thermal_device_pci_request_pensando_cpld_temperature : public pci_request_device {
public:
    using status_t = common_thermal_utils::nv_cmd_status_t;
    using agent_t = common_thermal_device_pci_agent_pensando_cpld;

    explicit common_thermal_device_pci_request_pensando_cpld_temperature(int instance);

    status_t request_register_reading(std::uint32_t token, status_t state, agent_t* agent, std::uint8_t register_number,
                                      float* value);

    void poll(common_thermal_dao* dao, unsigned long now) override;

private:
    // Held by this device.
    struct bus {
        agent_t* agent;
        std::uint32_t token;
    };
    bool read(const bus& card, std::uint8_t register_number, float& value);
    // These give what goes to the slots.
    float read_module(const bus& card, bool is_there, std::uint8_t register_number, float& value);
    float read_primary(const bus& card);
    float read_secondary(const bus& card);

    token_name _token_name;
};
