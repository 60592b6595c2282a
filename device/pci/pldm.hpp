#pragma once

#include "device/pci/request_device.hpp"
#include "platform/pcie_device_manager.hpp"

// Adapters that the firmware reads through PLDM. None of these devices talks to a card: the firmware's manager does,
// and they take what it remembers.

// One status level of an adapter: a port that is not 0 while the adapter is on that level.
class THERMAL_API common_thermal_device_pci_agent_pldm : public common_thermal_device {
public:
    explicit common_thermal_device_pci_agent_pldm(int instance);

    void set_port_input(unsigned port) { _port.bind(port); }
    void set_port_input(const std::string& key) { _port.bind(key); }

    // 1 to 5; anything else is 0, which is no level. Level 1 says that the adapter reports at all, and an agent that
    // once had it stays that kind of agent.
    void set_num(unsigned level);
    unsigned get_num() const { return _level; }
    bool is_ready() const { return _ready; }

    // 0 for success, 1 while the port is unbound, 2 if it fails.
    unsigned read_data(unsigned* value);

    void poll(common_thermal_dao*, unsigned long) override {}
    std::string debug() override { return {}; }

private:
    device_port _port;
    std::uint32_t _level = 0;
    bool _ready = false;
};

// Which level an adapter is on, as a bit: 1, 2, 4, 8 for levels 2 to 5, the last active agent being the one shown. 0.0
// while no agent of level 1 is active, and while the data path to the adapters is down.
class THERMAL_API common_thermal_device_pci_request_pldm_status : public pci_request_device {
public:
    explicit common_thermal_device_pci_request_pldm_status(int instance);

    void poll(common_thermal_dao* dao, unsigned long now) override;
};

// One adapter of the firmware's manager.
class THERMAL_API common_thermal_device_pci_agent_pldm_api : public common_thermal_device {
public:
    explicit common_thermal_device_pci_agent_pldm_api(int instance);

    // 8 and 16 bits.
    void set_num(unsigned bus, unsigned device);
    // Whether the manager knows how often to ask this adapter.
    bool init_status() const { return _init_done; }
    // False if it refused; ask again.
    bool set_pldm_config();
    // False leaves `out` alone.
    bool read_data(device_temperature_margin& out);

    void poll(common_thermal_dao*, unsigned long) override {}
    std::string debug() override { return {}; }

private:
    std::uint32_t _device_key = 0;
    bool _init_done = false;
};

// Margin and temperature of an adapter, each 4 seconds. A quiet adapter keeps its last values for three more passes;
// then its margin is 255.0, and slots are told nothing until a new time stamp comes: they keep what they were told
// last.
class THERMAL_API common_thermal_device_pci_request_pldm_info : public pci_request_device {
public:
    explicit common_thermal_device_pci_request_pldm_info(int instance);

    void poll(common_thermal_dao* dao, unsigned long now) override;

private:
    device_temperature_margin read_adapters();
    bool is_news(const device_temperature_margin& data) const;
    void take(const device_temperature_margin& data);
    void miss();

    float _last_margin = common_thermal_utils::invalid_temperature;
    float _last_reading = 0.0f;
    std::uint64_t _last_timestamp = 0;
    std::uint8_t _heartbroken_countdown;
};
