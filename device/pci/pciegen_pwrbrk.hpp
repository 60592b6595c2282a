#pragma once

#include "device/common_thermal_device.hpp"

// The pin that brakes the power of a slot's card. Publishes nothing; the slot drives it. The pin is written once per
// change of the request, also for the first one.
class THERMAL_API common_thermal_device_pci_request_pciegen_pwrbrk : public common_thermal_device {
public:
    explicit common_thermal_device_pci_request_pciegen_pwrbrk(int instance);

    void set_port_input(unsigned port) { _port.bind(port); }
    void set_port_input(const std::string& key) { _port.bind(key); }

    // Nothing happens, and nothing is remembered, while the port is unbound. A failed write is not repeated.
    void enable() { request(true); }
    void disable() { request(false); }

    void poll(common_thermal_dao*, unsigned long) override {}
    std::string debug() override { return {}; }

private:
    void request(bool brake);

    device_port _port;
    std::optional<bool> _requested;
};
