#include "device/pci/request_device.hpp"

#include "device/pci/supported_list.hpp"

using utils = common_thermal_utils;
using supported_list = common_thermal_device_pci_supported_list;

void token_name::compose(std::uint32_t target) {
    _target = target;
    _text = _prefix + std::to_string(target);
}

void token_name::compose(std::uint32_t group, std::uint32_t target) {
    _group = group;
    _target = target;
    _text = _prefix + std::to_string(group) + "." + std::to_string(target);
}

pci_request_device::pci_request_device(const kind& row, int instance,
                                       std::initializer_list<published_values::start_value> values)
    : common_thermal_device(row.class_name, row.class_name, instance, row.type),
      _kind(row),
      _values(row.class_name, instance, values) {}

bool pci_request_device::is_card_supported() const {
    return any_depend<supported_list>(utils::tdev_pci_supported_list,
                                      [this](const supported_list& list) { return list.is_actived(_kind.group); });
}

bool pci_request_device::is_card_forced(std::uint32_t force_cap) const {
    return any_depend<supported_list>(utils::tdev_pci_supported_list, [&](const supported_list& list) {
        return list.is_actived(_kind.group) && list.get_force_cap() == force_cap;
    });
}

void pci_request_device::tell_slots(slot_setter set, float value) const {
    for_each_depend<common_thermal_device_pci_slot>(utils::tdev_pci_slot,
                                                    [&](common_thermal_device_pci_slot& slot) { (slot.*set)(value); });
}
