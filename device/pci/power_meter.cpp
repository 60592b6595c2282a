#include "device/pci/power_meter.hpp"

#include "device/pci/slot.hpp"

using utils = common_thermal_utils;

namespace {

constexpr port_sensor::identity meter{"common_thermal_device_pci_request_pci_power_meter",
                                      utils::tdev_pci_request_pci_power_meter, "power", "PCI_POWER_METER_INPUT"};

}  // namespace

common_thermal_device_pci_request_pci_power_meter::common_thermal_device_pci_request_pci_power_meter(int instance)
    : port_sensor(meter, device_port::kind::integer, instance) {}

void common_thermal_device_pci_request_pci_power_meter::poll(common_thermal_dao* dao, unsigned long) {
    std::uint32_t reading = 0;
    const bool read = _port.is_bound() && _port.read_port_integer(&reading);
    _values[0] = read ? static_cast<float>(reading) : 0.0f;
    if (read) {
        for_each_depend<common_thermal_device_pci_slot>(
            utils::tdev_pci_slot,
            [this](common_thermal_device_pci_slot& slot) { slot.set_power_consumption(_values[0]); });
    }
    _values.publish(dao, common_thermal_dao::spike_none);
}
