#include "device/uefi.hpp"

#include <algorithm>
#include <cstdlib>
#include <memory>

#include "device/event_status.hpp"
#include "foundation/host_attribute.hpp"
#include "foundation/log_masks.hpp"

using utils = common_thermal_utils;

namespace {

constexpr const char* class_name = "common_thermal_device_uefi";
constexpr std::uint8_t last_retry = 50;

enum word : std::size_t {
    op_mode,
    table0_enable,
    table0_pwm,
    table1_enable,
    table2_enable,
    table3_enable,
    pciegen_pwrbrk_mode,
};

struct free_deleter {
    void operator()(void* memory) const { std::free(memory); }
};
template <class Entry>
using platform_array = std::unique_ptr<Entry[], free_deleter>;

}  // namespace

common_thermal_device_uefi::common_thermal_device_uefi(int instance)
    : common_thermal_device(class_name, class_name, instance, utils::tdev_uefi),
      _values(class_name, instance,
              {{"op_mode"},
               {"table0_enable"},
               {"table0_pwm"},
               {"table1_enable"},
               {"table2_enable"},
               {"table3_enable"},
               {"pciegen_pwrbrk_mode"}}) {}

void common_thermal_device_uefi::set_op_mode(unsigned char mode) { _values[op_mode] = static_cast<float>(mode); }

void common_thermal_device_uefi::set_override_table_status(unsigned table, bool enable, unsigned pwm) {
    constexpr std::size_t enable_of_table[] = {table0_enable, table1_enable, table2_enable, table3_enable};
    if (table >= std::size(enable_of_table)) {
        return;
    }
    _values[enable_of_table[table]] = enable ? 1.0f : 0.0f;
    if (table == 0) {
        _values[table0_pwm] = static_cast<float>(pwm);
    }
}

common_thermal_utils::pci_info_t* common_thermal_device_uefi::get_pci_info_by_index(unsigned index) {
    return index < _pci_info_list.size() ? &_pci_info_list[index] : nullptr;
}

std::vector<unsigned> common_thermal_device_uefi::get_pci_info_index_list_by_slot_no_and_location(
    unsigned short slot_no, unsigned char location) const {
    std::vector<unsigned> indices;
    for_each_pci_info(slot_no, location, [&](const pci_info_t& info) {
        indices.push_back(static_cast<unsigned>(&info - _pci_info_list.data()));
    });
    return indices;
}

float common_thermal_device_uefi::get_pci_max_tdp(const _VEKTDB_PCIGenericInfo*) const { return 0.0f; }

void common_thermal_device_uefi::add_pci_info_to_list(const _VEKTDB_PCIGenericInfo* info) {
    const bool wanted =
        info != nullptr && std::none_of(_pci_info_list.begin(), _pci_info_list.end(), [info](const pci_info_t& known) {
            return known.location == info->location && known.slot_no == info->slot_no &&
                   known.class_code == info->class_code;
        });
    if (wanted) {
        _pci_info_list.push_back({.class_code = info->class_code,
                                  .max_tdp = get_pci_max_tdp(info),
                                  .slot_no = info->slot_no,
                                  .vendor_id = info->vendor_id,
                                  .device_id = info->device_id,
                                  .sub_vendor_id = info->sub_vendor_id,
                                  .sub_device_id = info->sub_device_id,
                                  .location = info->location});
    }
}

void common_thermal_device_uefi::init_pcie_inventory() {
    vektdb_pci_adapter_list list{};
    if (vektdb_get_pci_adapter_list(&list) != 0) {
        LOG::log(log_source, log_mask::life_cycle, "common_thermal_device_uefi::%s( %d )\n", "init_pcie_inventory", 0);
        return;
    }
    const platform_array<vektdb_pci_adapter> adapters(list.adapters);
    for (std::uint32_t i = 0; adapters && i < list.count; ++i) {
        add_functions_of(adapters[i]);
    }
}

void common_thermal_device_uefi::add_functions_of(const vektdb_pci_adapter& adapter) {
    vektdb_pci_funkey_list list{};
    if (vektdb_get_pci_funkey_list(adapter.key, &list) != 0) {
        return;
    }
    const platform_array<std::uint32_t> keys(list.keys);
    for (std::uint32_t i = 0; keys && i < list.count; ++i) {
        _VEKTDB_PCIGenericInfo info{};
        if (vektdb_get_pci_generic_info(keys[i], &info) == 0) {
            add_pci_info_to_list(&info);
        }
    }
}

std::uint8_t common_thermal_device_uefi::get_uefi_pciegen_pwrbrk_mode_setting() {
    constexpr const char* function = "get_uefi_pciegen_pwrbrk_mode_setting";
    const host_attribute_query query = query_power_brake_mode();
    if (query.result == host_attribute_query::outcome::not_initialized) {
        LOG::log(log_source, log_mask::sensor, "%s - hvt_api_initialize failed: %d\n", function, query.error);
        return mode_unknown;
    }
    if (query.result == host_attribute_query::outcome::answered) {
        LOG::log(log_source, log_mask::sensor, "%s - pciegen_pwrbrk_mode=%d, %s = %s", function, query.mode,
                 query.request.name, query.request.value);
        return query.mode;
    }
    LOG::warn(log_source, log_mask::sensor, "%s - hvt_get_bios_attribute_value failed: setting status=%d[%d]\n",
              function, static_cast<int>(query.request.status), _attribute_retries);
    if (query.request.status != hvt_status_not_ready) {
        return mode_unknown;
    }
    if (_attribute_retries > last_retry) {
        return 0;
    }
    ++_attribute_retries;
    return mode_unknown;
}

void common_thermal_device_uefi::forget_host() {
    _attribute_retries = 0;
    _pci_info_list.clear();
    _pci_info_list.shrink_to_fit();
    _pciegen_setting_read = false;
    _pcie_inventory_read = false;
}

void common_thermal_device_uefi::read_host() {
    if (!_pciegen_setting_read) {
        const std::uint8_t mode = get_uefi_pciegen_pwrbrk_mode_setting();
        if (mode != mode_unknown) {
            _values[pciegen_pwrbrk_mode] = static_cast<float>(mode);
            _pciegen_setting_read = true;
        }
    }
    if (!_pcie_inventory_read) {
        init_pcie_inventory();
        _pcie_inventory_read = true;
    }
}

void common_thermal_device_uefi::poll(common_thermal_dao* dao, unsigned long) {
    _actived = false;
    const auto look_at_stages = [this](const common_thermal_device_event_status& status) {
        if (status.get_stage(utils::dp_ready)) {
            _actived = true;
        } else if (status.get_stage(utils::post_completed)) {
            forget_host();
        }
    };
    for_each_depend<common_thermal_device_event_status>(utils::tdev_event_status, look_at_stages);
    if (_actived) {
        read_host();
    }
    _values.publish(dao, common_thermal_dao::spike_none);
}
