#include "device/pci/pciegen_pwrbrk.hpp"

namespace {

constexpr const char* class_name = "common_thermal_device_pci_request_pciegen_pwrbrk";

}  // namespace

common_thermal_device_pci_request_pciegen_pwrbrk::common_thermal_device_pci_request_pciegen_pwrbrk(int instance)
    : common_thermal_device(class_name, class_name, instance, common_thermal_utils::tdev_pci_request_pciegen_pwrbrk),
      _port(*this, device_port::kind::bit, "PORT_PCIEGEN_PWRBRK") {}

void common_thermal_device_pci_request_pciegen_pwrbrk::request(bool brake) {
    if (_port.is_bound() && _requested != brake) {
        _port.write_port_bit(brake ? 1 : 0);
        _requested = brake;
    }
}
