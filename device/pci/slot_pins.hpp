#pragma once

#include "device/port_sensors.hpp"

// Whether a card sits in the slot, always read. Keeps its last value while the port is unbound or fails; a port bound
// by key cannot tell low from failing, so bound that way it never falls again.
class THERMAL_API common_thermal_device_pci_slot_presence : public presence_sensor {
public:
    explicit common_thermal_device_pci_slot_presence(int instance);
};

// A pin that allows the side band of a slot: high starts the polling of its card, anything else stops it, an unbound or
// failing port too.
class THERMAL_API common_thermal_device_pci_slot_stop_polling : public common_thermal_device {
public:
    explicit common_thermal_device_pci_slot_stop_polling(int instance);

    // By number, or by the key of a line of another process.
    void set_port_input(unsigned port) { _port.bind(port); }
    void set_port_input(const std::string& key) { _port.bind(key); }

    bool is_stop() const;

    void poll(common_thermal_dao* dao, unsigned long now) override;
    std::string debug() override { return _values.debug_text(); }

private:
    published_values _values;
    device_port _port;
};
