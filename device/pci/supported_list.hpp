#pragma once

#include "device/common_thermal_device.hpp"

// What a request device asks the list of its card for: the family it can talk to.
namespace pci_group {
using group_t = common_thermal_utils::tdev_type_t;
constexpr group_t nvidia_gpu{0x1010};
constexpr group_t nvmemi{0x1020};
constexpr group_t xilinx_fpga{0x1030};
constexpr group_t pldm_status{0x1040};  // not a family: any card, once the data path to the adapters is up
constexpr group_t pldm{0x1042};
constexpr group_t amd_gpu{0x1050};
constexpr group_t intel_fpga{0x1070};
constexpr group_t pensando_cpld{0x1080};
constexpr group_t intel_nic{0x1090};
constexpr group_t nvidia_rf_gpu{65};
constexpr group_t amd_rf_gpu{67};
constexpr group_t intel_gaudi3_gpu{70};
}  // namespace pci_group

// Which request devices apply to the card in a slot, from the identities of its functions. The slot shows it every
// function on every poll; flags add up until the data path to the adapters goes down or the slot is stopped. A card
// that no rule knows sets nothing.
class THERMAL_API common_thermal_device_pci_supported_list : public common_thermal_device {
public:
    using pci_info_t = common_thermal_utils::pci_info_t;

    explicit common_thermal_device_pci_supported_list(int instance);

    void active_command(const pci_info_t* function);
    // Clears every family. The published `actived` follows with the next poll.
    void deactive_command();
    // False for a group that is none of pci_group.
    bool is_actived(tdev_type_t group) const;
    // 1 for the cards of the plain dialect, 2 for one that under-reports its cores, otherwise 0.
    std::uint32_t get_force_cap() const { return _force_cap; }

    void poll(common_thermal_dao* dao, unsigned long now) override;
    std::string debug() override { return _values.debug_text(); }

private:
    bool has_any_family() const;
    bool is_on_baseboard();

    published_values _values;
    device_port _ubb_port;
    std::uint32_t _force_cap = 0;
};
