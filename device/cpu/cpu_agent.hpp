#pragma once

#include "device/common_thermal_device.hpp"
#include "platform/host_cpu.hpp"

// Holds the out-of-band connection to one processor. Publishes nothing.
class THERMAL_API cpu_agent : public common_thermal_device {
public:
    // Never null; lives as long as the agent.
    host_cpu_interface* get_host_cpu_channel() { return &_interface; }
    std::uint8_t get_host_cpu_address() const { return _address; }

    std::string debug() override { return {}; }

protected:
    cpu_agent(const char* class_name, int instance, tdev_type_t type, const char* interface_name,
              host_cpu_vendor vendor, const host_cpu_bus& bus);

    host_cpu_interface _interface;
    std::uint8_t _address = 0;
};

// Over PECI. The address, 0x30 to 0x37, comes from the low three bits of a port, or from the instance where the port is
// unbound or fails; the first poll finds it, and it stays. 0 until then.
class THERMAL_API common_thermal_device_cpu_agent_intel : public cpu_agent {
public:
    explicit common_thermal_device_cpu_agent_intel(int instance);

    void set_port_input(unsigned port) { _port.bind(port); }
    void set_port_input(const std::string& key) { _port.bind(key); }
    // Some processors answer a relative temperature of 0 when they have none.
    void set_ignore_dts_zero_reads() { _interface.set_ignore_dts_zero_reads(); }

    void poll(common_thermal_dao* dao, unsigned long now) override;

private:
    device_port _port;
};

// Over APML, where processors are numbered from 0.
class THERMAL_API common_thermal_device_cpu_agent_amd : public cpu_agent {
public:
    explicit common_thermal_device_cpu_agent_amd(int instance);

    void poll(common_thermal_dao*, unsigned long) override {}
};
