#pragma once

#include <cstdint>

#include "device/pci/slot.hpp"
#include "orchestration/common_thermal_scheduler.hpp"

// (location << 16) | slot number
inline std::uint32_t slot_key_of(const common_thermal_device_pci_slot& slot) {
    return slot.get_location() << 16 | (slot.get_slot_no() & 0xFFFF);
}

// Calls visit(slot device, its key) for each of these indices that is a device.
template <class Visitor>
void for_each_slot(const common_thermal_scheduler& scheduler, const common_thermal_scheduler::index_list& slots,
                   Visitor&& visit) {
    for (const unsigned long index : slots) {
        if (auto* slot = static_cast<common_thermal_device_pci_slot*>(scheduler.get_thermal_device_by_index(index))) {
            visit(*slot, slot_key_of(*slot));
        }
    }
}

// The same for every slot of the machine.
template <class Visitor>
void for_each_slot(const common_thermal_scheduler& scheduler, Visitor&& visit) {
    for_each_slot(scheduler, scheduler.pci_indices(), visit);
}
