#pragma once

#include <span>
#include <string_view>

#include "device/common_thermal_device.hpp"

// Who may use the bus of a card now. A name is unique to one request device and one target, so that a device that polls
// again finds its own request in flight. There is no time limit: whoever takes the bus has to give it back.
class THERMAL_API agent_token {
public:
    // A new token for a new hold, the same token again for the holder, and 0 while another name has the bus.
    std::uint32_t take(std::string_view name);
    void release();

    bool in_use() const { return _in_use; }
    bool is_owned_by(std::string_view name) const { return _in_use && name == _owner; }
    const std::string& owner() const { return _owner; }
    // Goes by the number alone: the last token stays the current one after a release.
    bool is_current(std::uint32_t token) const { return token == _token; }

private:
    std::string _owner;
    bool _in_use = false;
    std::uint32_t _token = 0;
};

// Owner of the side-band bus of one card: lets one request device at a time on it and speaks its framing. Publishes
// nothing. Whatever goes wrong on the bus comes back as cmd_failed; nothing is retried and nothing is remembered.
class THERMAL_API pci_agent : public common_thermal_device {
public:
    using status_t = common_thermal_utils::nv_cmd_status_t;

    void set_port_input(unsigned port) { _port.bind(port); }
    void set_port_input(const std::string& key) { _port.bind(key); }

    // 0 while another name holds the bus.
    std::uint32_t get_agent_token(std::string_view name);
    void release_agent_token() { _token.release(); }

    void poll(common_thermal_dao*, unsigned long) override {}
    std::string debug() override { return {}; }

    struct identity {
        const char* class_name = nullptr;
        tdev_type_t type{};
        const char* port_name = nullptr;
        bool logs = false;  // what happens to the token or on the bus
    };

protected:
    pci_agent(const identity& agent, int instance);

    bool logs_now() const;
    // One transaction. `missing` stands in for each byte that the card leaves out of its answer.
    bool transfer(std::span<const std::uint8_t> tx, std::span<std::uint8_t> rx, std::uint8_t missing = 0);

    const identity& _identity;
    agent_token _token;
    device_port _port;
};

// Writes a request and reads its answer in one transaction: nothing is ever in flight between two polls.
class THERMAL_API plain_pci_agent : public pci_agent {
public:
    struct row;

    // cmd_complete or cmd_failed. `name` and `instance` tell the log whose request it is.
    status_t write_read_bus(std::span<const std::uint8_t> tx, std::span<std::uint8_t> rx, std::string_view name,
                            unsigned instance);
    // The same for the holder of the bus, with the check of the card's answer. Takes cmd_idle only.
    status_t write_read_command(std::uint32_t token, status_t state, std::span<const std::uint8_t> tx,
                                std::span<std::uint8_t> rx, std::string_view name, unsigned instance);

protected:
    plain_pci_agent(const row& kind, int instance);

private:
    const row& _row;
};

#define THERMAL_PLAIN_AGENT(name)                     \
    class THERMAL_API name : public plain_pci_agent { \
    public:                                           \
        explicit name(int instance);                  \
    }

THERMAL_PLAIN_AGENT(common_thermal_device_pci_agent_amd);
THERMAL_PLAIN_AGENT(common_thermal_device_pci_agent_intel_nic);
THERMAL_PLAIN_AGENT(common_thermal_device_pci_agent_xilinx);
// Its port bears the name of the one above.
THERMAL_PLAIN_AGENT(common_thermal_device_pci_agent_intel_fpga);
THERMAL_PLAIN_AGENT(common_thermal_device_pci_agent_pensando_cpld);
// Takes only a drive's status record of at least five bytes: length 6, a temperature below 128 in byte 3, and a byte 4
// below 255.
THERMAL_PLAIN_AGENT(common_thermal_device_pci_agent_nvmemi);

#undef THERMAL_PLAIN_AGENT
