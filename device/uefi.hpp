#pragma once

#include <vector>

#include "device/common_thermal_device.hpp"
#include "platform/inventory.hpp"

// What the host's firmware settings and inventory say: operating mode, override tables, the power-brake setting and
// the PCI adapters. Setting and adapters are read once a boot, as soon as the data path to the adapters is up, and
// forgotten on a poll that sees the host's self-test completed without that path.
class THERMAL_API common_thermal_device_uefi : public common_thermal_device {
public:
    using pci_info_t = common_thermal_utils::pci_info_t;

    // A power-brake setting that the host has not told yet.
    static constexpr std::uint8_t mode_unknown = 4;

    explicit common_thermal_device_uefi(int instance);

    void set_op_mode(unsigned char mode);
    // Tables 0 to 3; the duty `pwm` (percent) is kept for table 0 only.
    void set_override_table_status(unsigned table, bool enable, unsigned pwm);

    // Whether the last poll found the data path up.
    bool is_actived() const { return _actived; }

    // Null past the end of the list. The pointer is good until the next poll.
    pci_info_t* get_pci_info_by_index(unsigned index);
    // Ascending.
    std::vector<unsigned> get_pci_info_index_list_by_slot_no_and_location(unsigned short slot_no,
                                                                          unsigned char location) const;
    // The entries themselves, in the same order, without a list of indices. Returns how many there are.
    template <class Visitor>
    unsigned for_each_pci_info(unsigned short slot_no, unsigned char location, Visitor&& visit) const {
        unsigned count = 0;
        for (const pci_info_t& info : _pci_info_list) {
            if (info.slot_no == slot_no && info.location == location) {
                visit(info);
                ++count;
            }
        }
        return count;
    }
    // W; no adapter record tells it yet, so always 0.0.
    float get_pci_max_tdp(const _VEKTDB_PCIGenericInfo* info) const;

    // One entry for each slot and class code: what the list has already is dropped.
    void add_pci_info_to_list(const _VEKTDB_PCIGenericInfo* info);
    // Adds what the inventory knows. Adapters and functions that fail are left out.
    void init_pcie_inventory();
    // The setting, 0 to 3, or `mode_unknown` when it has to be asked for again. A host that does not report its
    // settings for 51 queries counts as 0.
    std::uint8_t get_uefi_pciegen_pwrbrk_mode_setting();

    void poll(common_thermal_dao* dao, unsigned long now) override;
    std::string debug() override { return _values.debug_text(); }

private:
    void forget_host();
    void read_host();
    void add_functions_of(const vektdb_pci_adapter& adapter);

    published_values _values;
    std::uint8_t _attribute_retries = 0;
    bool _pciegen_setting_read = false;
    bool _pcie_inventory_read = false;
    bool _actived = false;
    std::vector<pci_info_t> _pci_info_list;
};
