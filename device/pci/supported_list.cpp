#include "device/pci/supported_list.hpp"

#include "device/event_status.hpp"

using utils = common_thermal_utils;

namespace {

constexpr const char* class_name = "common_thermal_device_pci_supported_list";

// In the order of the values; `actived` follows the last one.
enum family : std::uint8_t {
    amd_gpu,
    amd_rf_gpu,
    intel_gaudi3_gpu,
    intel_fpga,
    pensando_cpld,
    nvidia_gpu,
    nvidia_rf_gpu,
    xilinx_fpga,
    nvmemi,
    pldm,
    intel_nic,
    family_count,
};
constexpr std::size_t actived = family_count;

// family_count for a group that is none. Every request device asks on every poll: a search would cost more.
family family_of(pci_group::group_t group) {
    switch (static_cast<unsigned>(group)) {
        case pci_group::amd_gpu:
            return amd_gpu;
        case pci_group::amd_rf_gpu:
            return amd_rf_gpu;
        case pci_group::intel_gaudi3_gpu:
            return intel_gaudi3_gpu;
        case pci_group::intel_fpga:
            return intel_fpga;
        case pci_group::pensando_cpld:
            return pensando_cpld;
        case pci_group::nvidia_gpu:
            return nvidia_gpu;
        case pci_group::nvidia_rf_gpu:
            return nvidia_rf_gpu;
        case pci_group::xilinx_fpga:
            return xilinx_fpga;
        case pci_group::nvmemi:
            return nvmemi;
        case pci_group::pldm:
            return pldm;
        case pci_group::intel_nic:
            return intel_nic;
        default:
            return family_count;
    }
}

constexpr int any = -1;
constexpr std::uint32_t accelerator_class = 0x120000;

enum class only {
    always,
    on_baseboard,  // the accelerator baseboard is there
    accelerators,  // by class code; the rules that follow are tried as well
};

struct identity_rule {
    std::uint16_t vendor = 0;
    int device = any;
    int sub_device = any;
    family sets{};
    only where = only::always;
    std::uint32_t force_cap = 0;  // 0 leaves it alone
};

// The first rule that matches ends the search.
constexpr identity_rule rules[] = {
    {0x1002, 0x74A1, any, amd_rf_gpu},
    {0x1002, 0x6981, any, amd_gpu, only::always, 1},
    {0x1002, 0x7312, any, amd_gpu, only::always, 1},
    {0x1002, 0x7341, any, amd_gpu, only::always, 1},
    {0x1002, 0x66A1, any, amd_gpu, only::always, 1},
    {0x1002, 0x6860, any, amd_gpu, only::always, 1},
    {0x1002, 0x6864, any, amd_gpu, only::always, 1},
    {0x1002, any, any, amd_gpu},
    {0x1DA3, 0x1060, any, intel_gaudi3_gpu},
    {0x8086, any, any, intel_fpga, only::accelerators},
    {0x8086, 0x0A54, any, nvmemi},
    {0x8086, 0x2701, any, nvmemi},
    {0x8086, 0x56C1, 0x4905, pldm},
    {0x8086, 0x56C0, 0x4905, pldm},
    {0x8086, 0x159B, any, pldm},
    {0x8086, 0x1593, any, pldm},
    {0x8086, 0x15FF, any, pldm},
    {0x8086, 0x1521, any, intel_nic},
    {0x1DD8, 0x1002, any, pensando_cpld},
    {0x10DE, 0x2330, 0x16C0, nvidia_rf_gpu, only::on_baseboard},
    {0x10DE, 0x2330, 0x16C1, nvidia_rf_gpu, only::on_baseboard},
    {0x10DE, 0x2335, 0x18BE, nvidia_rf_gpu, only::on_baseboard},
    {0x10DE, 0x2335, 0x18BF, nvidia_rf_gpu, only::on_baseboard},
    {0x10DE, 0x2901, 0x1999, nvidia_rf_gpu, only::on_baseboard},
    {0x10DE, 0x2901, 0x199B, nvidia_rf_gpu, only::on_baseboard},
    {0x10DE, 0x2920, 0x197F, nvidia_rf_gpu, only::on_baseboard},
    {0x10DE, 0x25B6, 0x14A9, nvidia_gpu, only::always, 2},
    {0x10DE, any, any, nvidia_gpu},
    {0x10EE, any, any, xilinx_fpga},
    {0x1179, 0x0110, any, nvmemi},
    {0x17CB, 0xA100, any, nvmemi},
    {0x15B3, 0xA2D6, any, pldm},
    {0x15B3, 0xA2DC, any, pldm},
    {0x15B3, 0x101B, any, pldm},
    {0x15B3, 0x101D, any, pldm},
    {0x15B3, 0x101F, any, pldm},
    {0x15B3, 0x1021, any, pldm},
    {0x14E4, 0x16D6, 0xA140, pldm},
    {0x14E4, 0x16D6, 0xA340, pldm},
};

bool has_identity(const identity_rule& rule, const utils::pci_info_t& function) {
    return rule.vendor == function.vendor_id && (rule.device == any || rule.device == function.device_id) &&
           (rule.sub_device == any || rule.sub_device == function.sub_device_id);
}

}  // namespace

common_thermal_device_pci_supported_list::common_thermal_device_pci_supported_list(int instance)
    : common_thermal_device(class_name, class_name, instance, utils::tdev_pci_supported_list),
      _values(class_name, instance,
              {{"supported_amd_gpu"},
               {"supported_amd_rf_gpu"},
               {"supported_intel_gaudi3_gpu"},
               {"supported_intel_fpga"},
               {"supported_pensando_cpld"},
               {"supported_nvidia_gpu"},
               {"supported_nvidia_rf_gpu"},
               {"supported_xilinx_fpga"},
               {"supported_nvmemi"},
               {"supported_pldm"},
               {"supported_intel_nic"},
               {"actived"}}),
      _ubb_port(*this, device_port::kind::bit, "PCI_LIST_NV_UBB_PRESENT") {
    _ubb_port.bind("GPU_UBB_PRESENT");
}

bool common_thermal_device_pci_supported_list::is_on_baseboard() {
    std::uint8_t bit = 0;
    return _ubb_port.is_bound() && _ubb_port.read_port_bit(&bit) && bit != 0;
}

void common_thermal_device_pci_supported_list::active_command(const pci_info_t* function) {
    if (function == nullptr) {
        return;
    }
    for (const identity_rule& rule : rules) {
        if (!has_identity(rule, *function) ||
            (rule.where == only::accelerators && function->class_code != accelerator_class) ||
            (rule.where == only::on_baseboard && !is_on_baseboard())) {
            continue;
        }
        _values[rule.sets] = 1.0f;
        _force_cap = rule.force_cap != 0 ? rule.force_cap : _force_cap;
        if (rule.where != only::accelerators) {
            return;
        }
    }
}

void common_thermal_device_pci_supported_list::deactive_command() {
    for (std::size_t position = 0; position < family_count; ++position) {
        _values[position] = 0.0f;
    }
    _force_cap = 0;
}

bool common_thermal_device_pci_supported_list::is_actived(tdev_type_t group) const {
    if (group == pci_group::pldm_status) {
        return any_depend<common_thermal_device_event_status>(
            utils::tdev_event_status,
            [](const common_thermal_device_event_status& status) { return status.get_stage(utils::dp_ready); });
    }
    const family asked = family_of(group);
    return asked != family_count && _values[asked] > 0.0f;
}

bool common_thermal_device_pci_supported_list::has_any_family() const {
    for (std::size_t position = 0; position < family_count; ++position) {
        if (_values[position] != 0.0f) {
            return true;
        }
    }
    return false;
}

void common_thermal_device_pci_supported_list::poll(common_thermal_dao* dao, unsigned long) {
    float any_family = 0.0f;
    for_each_depend<common_thermal_device_event_status>(utils::tdev_event_status,
                                                        [&](const common_thermal_device_event_status& status) {
                                                            if (!status.get_stage(utils::dp_ready)) {
                                                                deactive_command();
                                                            } else if (has_any_family()) {
                                                                any_family = 1.0f;
                                                            }
                                                        });
    _values[actived] = any_family;
    _values.publish(dao, common_thermal_dao::spike_none);
}
