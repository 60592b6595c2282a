#pragma once

#include "device/event_status.hpp"
#include "device/pci/amd_requests.hpp"
#include "device/pci/card_temperatures.hpp"
#include "device/pci/edp_info.hpp"
#include "device/pci/nvidia_capability.hpp"
#include "device/pci/nvidia_readings.hpp"
#include "device/pci/pciegen_pwrbrk.hpp"
#include "device/pci/pldm.hpp"
#include "device/pci/rf_agents.hpp"
#include "device/pci/rf_temperatures.hpp"
#include "device/pci/slot.hpp"
#include "device/pci/slot_pins.hpp"
#include "device/pci/supported_list.hpp"
#include "device/uefi.hpp"
#include "orchestration/common_thermal_manager.hpp"

namespace sim {

// The devices of one slot: whatever card is plugged, the requests of its vendor are there, and the supported list says
// which of them run. All agents share the side band of the slot.
class slot_board {
public:
    // The instance of every device is the slot's number: limits that are set by slot number reach the instance of it.
    explicit slot_board(unsigned number);

    // Binds, links and hands over.
    void add_to(common_thermal_manager& manager, common_thermal_device_event_status& stages,
                common_thermal_device_uefi& inventory);

private:
    // A request asks through its agent for as long as the list supports the card, and tells the slot.
    void link(common_thermal_device& request, common_thermal_device& agent);
    void link_mailbox();

    unsigned _number;
    common_thermal_device_pci_slot _slot;
    common_thermal_device_pci_supported_list _list;
    common_thermal_device_pci_slot_presence _presence;
    common_thermal_device_pci_request_pciegen_pwrbrk _brake;

    common_thermal_device_pci_agent_nvidia _mailbox;
    common_thermal_device_pci_request_nvidia_capability _capability;
    common_thermal_device_pci_request_nvidia_temperature _die;
    common_thermal_device_pci_request_nvidia_memory_temperature _memory;
    common_thermal_device_pci_request_nvidia_tlimit_temperature _headroom;
    common_thermal_device_pci_request_nvidia_power _power;
    common_thermal_device_pci_request_nvidia_edp_info _limit;

    common_thermal_device_pci_agent_amd _other;
    common_thermal_device_pci_request_amd_temperature _other_die;
    common_thermal_device_pci_request_amd_memory_temperature _other_memory;
    common_thermal_device_pci_request_amd_power _other_power;

    common_thermal_device_pci_agent_nvmemi _drive;
    common_thermal_device_pci_request_ai100_temperature _drive_temperature;
    common_thermal_device_pci_agent_intel_nic _network;
    common_thermal_device_pci_request_intel_nic_temperature _network_temperature;
    common_thermal_device_pci_agent_pldm_api _managed;
    common_thermal_device_pci_request_pldm_info _managed_temperature;
    common_thermal_device_pci_agent_nvidia_rf _module;
    common_thermal_device_pci_request_nvidia_rf_temperature _module_temperature;
};

}  // namespace sim
