#include <algorithm>
#include <string>

#include "foundation/float_conversion.hpp"
#include "foundation/log_masks.hpp"
#include "foundation/seq_str.hpp"
#include "orchestration/common_thermal_manager.hpp"
#include "orchestration/pci_slots.hpp"
#include "platform/ipmi.hpp"
#include "platform/software_events.hpp"

// Limits of the cards that an operator or the firmware sets, and what the firmware is told about the cards.
namespace {

using manager_t = common_thermal_manager;
using utils = common_thermal_utils;
using slot_device = common_thermal_device_pci_slot;

constexpr const char* adapter_properties = "/ac/nrv/therm_config/pci_adapters/";
constexpr const char* adapter_count_property = "/ac/nrv/therm_config/pci_adapters/count";
constexpr const char* adapter_bits_property = "/ac/nrv/therm_config/pci_adapters/max_count_bitmap";
constexpr const char* powered_bits_property = "/ac/nrv/therm_config/pci_adapters/act_count_bitmap";

constexpr const char* tgp_user_name = "common_thermal_device_pci_slot.tgp_user";
constexpr const char* tgp_vpd_name = "common_thermal_device_pci_slot.tgp_vpd";
constexpr const char* tgp_platform_name = "common_thermal_device_pci_slot.tgp_platform";
constexpr float unlimited_vpd = 65535.0f;

constexpr const char* tgp_leaf = "/TGP_user";
constexpr const char* edpp_leaf = "/EDPp_user";

constexpr unsigned adapter_location = 1;
constexpr std::uint8_t all_slots = 255;
constexpr unsigned most_counted_cards = 255;

// Slots with cards that an operator may limit, and their place in the list of all slots.
template <class Visitor>
void for_each_adapter(Visitor&& visit) {
    unsigned position = 0;
    for_each_slot(*manager_t::_scheduler, [&](slot_device& slot, std::uint32_t) {
        if (slot.get_location() == adapter_location) {
            visit(slot, position);
        }
        ++position;
    });
}

int slot_number(const slot_device& slot) { return static_cast<int>(slot.get_slot_no()); }

slot_device* find_adapter(std::uint8_t number) {
    slot_device* found = nullptr;
    for_each_adapter([&](slot_device& slot, unsigned) {
        if (found == nullptr && slot.get_slot_no() == number) {
            found = &slot;
        }
    });
    return found;
}

bool is_chosen(const slot_device& slot, std::uint8_t number) {
    return number == all_slots || slot.get_slot_no() == number;
}

std::string adapter_property(const slot_device& slot, const char* leaf) {
    return seq_str(adapter_properties, slot_number(slot), leaf, 2);
}

// 0.0 for a limit that nobody told.
float limit_of(const slot_device& slot, const char* name) {
    float watts = 0.0f;
    manager_t::_dao->fetch_dev(name, slot_number(slot), &watts);
    return watts;
}

void store_limit(const slot_device& slot, const char* name, float watts) {
    manager_t::_dao->update_dev(name, slot_number(slot), watts, false);
}

bool is_allowed_too_much(const slot_device& slot) {
    const float vpd = limit_of(slot, tgp_vpd_name);
    return vpd != 0.0f && vpd != unlimited_vpd && vpd < limit_of(slot, tgp_user_name);
}

}  // namespace

void common_thermal_manager::ipmicmd_get_tgp_user(ipmi_message* message) {
    if (_scheduler == nullptr || _dao == nullptr) {
        return;
    }
    if (const slot_device* slot = find_adapter(message->request.pop())) {
        message->response.push_16(saturate_to_word(limit_of(*slot, tgp_user_name)));
    }
}

void common_thermal_manager::ipmicmd_set_tgp_user(ipmi_message* message) {
    if (_scheduler == nullptr || _dao == nullptr) {
        return;
    }
    const std::uint8_t number = message->request.pop();
    const std::uint16_t watts = message->request.pop_16();
    unsigned over = 0;
    for_each_adapter([&](const slot_device& slot, unsigned) {
        if (is_chosen(slot, number)) {
            store_limit(slot, tgp_user_name, static_cast<float>(watts));
            utils::set_ipmi_property(adapter_property(slot, tgp_leaf).c_str(), watts);
        }
        over += is_allowed_too_much(slot) ? 1 : 0;
    });
    send_tgp_user_exceed_notification(static_cast<std::uint8_t>(std::min(over, most_counted_cards)));
}

void common_thermal_manager::send_tgp_user_exceed_notification(std::uint8_t cards) {
    const bool exceeds = cards != 0;
    if (exceeds == _tgp_announced) {
        return;
    }
    if (sw_msg_dispatcher(exceeds ? power_limit_exceeded_event : power_limit_within_event, nullptr) != 0) {
        LOG::err(log_source, "%s", exceeds ? "TGP exceeded preconfig value!\n" : "TGP within preconfig value!\n");
    }
    _tgp_announced = exceeds;
}

void common_thermal_manager::ipmicmd_get_edpp_user(ipmi_message* message) {
    if (_scheduler == nullptr) {
        return;
    }
    if (const slot_device* slot = find_adapter(message->request.pop())) {
        message->response.push(slot->get_edpp_percentage());
    }
}

void common_thermal_manager::ipmicmd_set_edpp_user(ipmi_message* message) {
    if (_scheduler == nullptr) {
        return;
    }
    const std::uint8_t number = message->request.pop();
    const std::uint8_t percentage = message->request.pop();
    for_each_adapter([&](slot_device& slot, unsigned) {
        if (is_chosen(slot, number)) {
            slot.set_edpp_percentage(percentage);
            utils::set_ipmi_property(adapter_property(slot, edpp_leaf).c_str(), percentage);
        }
    });
}

int common_thermal_manager::load_ipmiprop_pci_tgp_user() {
    if (_scheduler == nullptr || _dao == nullptr) {
        return 0;
    }
    for_each_adapter([](const slot_device& slot, unsigned) {
        std::uint16_t watts = 0;
        utils::get_ipmi_property(adapter_property(slot, tgp_leaf).c_str(), watts);
        store_limit(slot, tgp_user_name, static_cast<float>(watts));
    });
    return 1;
}

int common_thermal_manager::load_ipmiprop_pci_edpp_user() {
    if (_scheduler == nullptr || _dao == nullptr) {
        return 0;
    }
    for_each_adapter([](slot_device& slot, unsigned) {
        std::uint8_t percentage = 0;
        utils::get_ipmi_property(adapter_property(slot, edpp_leaf).c_str(), percentage);
        slot.set_edpp_percentage(percentage);
    });
    return 1;
}

int common_thermal_manager::import_config(config_type type, unsigned value) {
    const bool is_known = type == config_tgp_platform || type == config_tgp_vpd;
    if (value == 0 || !is_known || _scheduler == nullptr || _dao == nullptr) {
        return 0;
    }
    const char* name = type == config_tgp_platform ? tgp_platform_name : tgp_vpd_name;
    for_each_adapter([&](const slot_device& slot, unsigned) { store_limit(slot, name, static_cast<float>(value)); });
    return 1;
}

int common_thermal_manager::update_ipmiprop_pci_maxwatt() const {
    if (_scheduler == nullptr || _dp_ready_cycles < settled_cycles) {
        return 0;
    }
    std::uint8_t count = 0;
    std::uint32_t adapters = 0;
    std::uint32_t powered = 0;
    for_each_adapter([&](const slot_device& slot, unsigned position) {
        const float watts = slot.get_max_power();
        utils::set_ipmi_property(adapter_property(slot, "/MaxWatt").c_str(), saturate_to_word(watts));
        const std::uint32_t bit = position < 32 ? std::uint32_t{1} << position : 0;
        ++count;
        adapters |= bit;
        powered |= watts != 0.0f ? bit : 0;
    });
    utils::set_ipmi_property(adapter_count_property, count);
    utils::set_ipmi_property(adapter_bits_property, adapters);
    utils::set_ipmi_property(powered_bits_property, powered);
    return 1;
}
