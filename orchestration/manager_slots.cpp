#include <algorithm>

#include "foundation/float_conversion.hpp"
#include "foundation/log_masks.hpp"
#include "orchestration/common_thermal_manager.hpp"
#include "orchestration/pci_slots.hpp"
#include "platform/ipmi.hpp"

// Power brake and power limit of the PCI slots: what rules want of them, who wins, and what goes out at the end of a
// cycle.
namespace {

using manager = common_thermal_manager;
using rule_t = common_thermal_algorithm;
using slot_device = common_thermal_device_pci_slot;

constexpr const char* brake_mode_property = "/ac/nrv/therm_config/pciegen_pwrbrk_mode";
constexpr std::uint8_t brake_off = 0;
constexpr std::uint8_t brake_by_rules = 1;  // above: by the machine's power as well

constexpr float high_power = 60.0f;  // W; cards below draw what the slot gives
constexpr double share_of_supplies = 0.33;
constexpr unsigned most_announced_slots = 255;

constexpr std::uint8_t no_limit = 100;
const slot_claim free_slot{"NA", 0, no_limit};

// How a rule tells what it wants of a slot, and what it wants once its conditions fail.
template <class Value>
struct slot_wish {
    bool (rule_t::*names)(unsigned long key) const;
    void (rule_t::*set)(std::uint16_t location, std::uint16_t slot_no, Value value);
    Value (rule_t::*get)(std::uint16_t location, std::uint16_t slot_no);
    bool (manager::*is_replaced)(unsigned long key, Value value) const;
    Value withdrawn;
};

constexpr slot_wish<bool> brake_wish{&rule_t::is_in_action_pciegen_pwrbrk_slot, &rule_t::set_action_pciegen_pwrbrk,
                                     &rule_t::get_action_pciegen_pwrbrk_by_location_slot_no,
                                     &manager::replaced_algorithm_pciegen_pwrbrk, false};
constexpr slot_wish<std::uint8_t> limit_wish{
    &rule_t::is_in_action_powerlimit_pci_slot, &rule_t::set_action_powerlimit_pci,
    &rule_t::get_action_powerlimit_pci_by_location_slot_no, &manager::replaced_algorithm_powerlimit_pci, no_limit};

// Each slot device of the list with its key.
template <class Visitor>
void for_each_listed(const manager::index_list& pci, Visitor&& visit) {
    for_each_slot(*manager::_scheduler, pci, visit);
}

}  // namespace

// A rule that does not hold takes its wish back, and is compared all the same.
template <class Wish>
void common_thermal_manager::claim_slots(common_thermal_algorithm& rule, const index_list& pci, const Wish& wish,
                                         slot_table& rows) {
    for_each_listed(pci, [&](const slot_device& slot, std::uint32_t key) {
        if (!(rule.*wish.names)(key)) {
            return;
        }
        const auto location = static_cast<std::uint16_t>(slot.get_location());
        const auto slot_no = static_cast<std::uint16_t>(slot.get_slot_no());
        if (!rule.is_asserted()) {
            (rule.*wish.set)(location, slot_no, wish.withdrawn);
        }
        const auto value = (rule.*wish.get)(location, slot_no);
        if ((this->*wish.is_replaced)(key, value)) {
            rows[key].claim = {rule.name_handle(), static_cast<std::uint32_t>(rule.get_instance()), value};
        }
    });
}

void common_thermal_manager::compare_algorithm_pciegen_pwrbrk(common_thermal_algorithm* rule, const index_list& pci) {
    LOG::log(log_source, log_mask::slot_arbitration, "compare_algorithm_pciegen_pwrbrk[%s][%d]\n",
             rule->get_name().c_str(), rule->get_instance());
    claim_slots(*rule, pci, brake_wish, _pwrbrk_alg);
}

void common_thermal_manager::compare_algorithm_powerlimit_pci(common_thermal_algorithm* rule, const index_list& pci) {
    LOG::log(log_source, log_mask::slot_arbitration, "compare_algorithm_powerlimit_pci[%s][%d]\n",
             rule->get_name().c_str(), rule->get_instance());
    claim_slots(*rule, pci, limit_wish, _pwrlmt_alg);
}

void common_thermal_manager::compare_slot_wishes(common_thermal_algorithm& rule) {
    if (rule.is_supported_action_sensor_pciegen_pwrbrk()) {
        compare_algorithm_pciegen_pwrbrk(&rule, _scheduler->pci_indices());
    }
    if (rule.is_supported_action_sensor_powerlimit_pci()) {
        compare_algorithm_powerlimit_pci(&rule, _scheduler->pci_indices());
    }
}

// The first wish to brake stays. A claim by a rule of instance 0 is never replaced.
bool common_thermal_manager::replaced_algorithm_pciegen_pwrbrk(unsigned long key, bool brake) const {
    const slot_claim& claim = _pwrbrk_alg.claim_on(static_cast<std::uint32_t>(key));
    const bool is_free = claim.name.empty() ? claim.instance == 0 : claim.instance != 0 && claim.value == 0;
    const bool replaced = brake && is_free;
    LOG::log(log_source, log_mask::arbitration, "replaced_algorithm_pciegen_pwrbrk[%02lX][%02X][%02X]\n", key,
             replaced ? 1u : 0u, brake ? 1u : 0u);
    return replaced;
}

// Only 1 to 99 take a free slot, but 0 beats any claim. No slot is free until the end of its first cycle.
bool common_thermal_manager::replaced_algorithm_powerlimit_pci(unsigned long key, std::uint8_t percentage) const {
    const slot_claim& claim = _pwrlmt_alg.claim_on(static_cast<std::uint32_t>(key));
    const bool is_claimed = !claim.name.empty() && claim.instance != 0;
    const bool is_free = claim.name == free_slot.name && claim.instance == 0;
    const bool replaced = is_claimed ? claim.value > percentage : is_free && percentage >= 1 && percentage < no_limit;
    LOG::log(log_source, log_mask::arbitration, "replaced_algorithm_powerlimit_pci[%02lX][%02X][%02X]\n", key,
             replaced ? 1u : 0u, static_cast<unsigned>(percentage));
    return replaced;
}

void common_thermal_manager::apply_slot_claims(unsigned long now, const index_list& pci) {
    if (chk_pciegen_pwrbrk_uefi_setting(pci)) {
        apply_pciegen_pwrbrk_slot(now, pci);
        _pwrbrk_enforced = true;
    } else if (_pwrbrk_enforced) {
        clear_pciegen_pwrbrk_slot();
        apply_pciegen_pwrbrk_slot(now, pci);
        _pwrbrk_enforced = false;
    }
    apply_powerlimit_pci_slot(now, pci);
}

void common_thermal_manager::take_brake_mode() {
    float mode = 0.0f;
    if (_dao != nullptr) {
        _pwrbrk_mode_setting.fetch(*_dao, &mode);
    }
    if (mode != static_cast<float>(_pwrbrk_mode)) {
        _pwrbrk_mode = saturate_to_byte(mode);
        common_thermal_utils::set_ipmi_property(brake_mode_property, _pwrbrk_mode);
    }
    LOG::log(log_source, log_mask::tick, "common_thermal_manager::%s UEFI PCIEGEN_PWRBRK mode[%d]\n",
             "chk_pciegen_pwrbrk_uefi_setting", static_cast<int>(_pwrbrk_mode));
}

bool common_thermal_manager::chk_pciegen_pwrbrk_uefi_setting(const index_list& pci) {
    take_brake_mode();
    if (_pwrbrk_mode > brake_by_rules && is_power_short(pci)) {
        for_each_listed(pci, [this](const slot_device&, std::uint32_t key) { _pwrbrk_alg[key].claim.value = 1; });
    }
    return _pwrbrk_mode != brake_off;
}

// Watts; 0 where nobody tells.
std::uint32_t common_thermal_manager::total_system_power() {
    std::uint32_t watts = 0;
    if (_port_total_system_psu.is_bound() && !_port_total_system_psu.read_port_integer(&watts)) {
        LOG::log(log_source, log_mask::life_cycle, "common_thermal_manager:: system_total_power RD failed.\n");
        watts = 0;
    }
    return watts;
}

// Whether the large cards together may draw a third of what the power supplies give, or more.
bool common_thermal_manager::is_power_short(const index_list& pci) {
    float sum = 0.0f;
    int count = 0;
    for_each_listed(pci, [&](const slot_device& slot, std::uint32_t) {
        if (slot.get_max_power() >= high_power) {
            sum += slot.get_max_power();
            ++count;
        }
    });
    LOG::log(log_source, log_mask::tick, "common_thermal_manager::%s total_max_power_watt[%f][%d].\n",
             "chk_pciegen_pwrbrk_uefi_setting", shown(sum), count);
    if (_port_total_high_power_pcie.is_bound() &&
        !_port_total_high_power_pcie.write_port_integer(saturate_to_unsigned(sum))) {
        LOG::log(log_source, log_mask::life_cycle, "common_thermal_manager:: total_max_power_watt WR failed.\n");
    }
    const std::uint32_t total = total_system_power();
    const double limit = total * share_of_supplies;
    const bool is_short = total != 0 && sum != 0.0f && limit <= shown(sum);
    if (is_short) {
        LOG::log(log_source, log_mask::tick, "common_thermal_manager::%s [%04f] >= [%04.4f].\n",
                 "chk_pciegen_pwrbrk_uefi_setting", shown(sum), limit);
    }
    return is_short;
}

void common_thermal_manager::apply_pciegen_pwrbrk_slot(unsigned long, const index_list& pci) {
    unsigned braked = 0;
    for_each_listed(pci, [&](slot_device& slot, std::uint32_t key) {
        slot_table::row& row = _pwrbrk_alg[key];
        const bool brake = row.claim.value != 0;
        slot.set_pciegen_pwrbrk(brake);
        braked += brake ? 1 : 0;
        row.applied = row.claim;
    });
    send_pciegen_pwrbrk_notification(static_cast<std::uint8_t>(std::min(braked, most_announced_slots)));
}

void common_thermal_manager::send_pciegen_pwrbrk_notification(std::uint8_t slots) {
    const bool brakes = slots != 0;
    if (brakes == _pwrbrk_announced) {
        return;
    }
    LOG::log(log_source, log_mask::slot_arbitration, "common_thermal_manager::%s[%d]\n",
             "send_pciegen_pwrbrk_notification", static_cast<int>(slots));
    IPMI::send_pciegen_pwrbrk_enabled_disabled_overriden("PCIe slots", brakes ? "enabled" : "disabled");
    _pwrbrk_announced = brakes;
}

void common_thermal_manager::apply_powerlimit_pci_slot(unsigned long now, const index_list& pci) {
    for_each_listed(pci, [this, now](slot_device& slot, std::uint32_t key) {
        slot_table::row& row = _pwrlmt_alg[key];
        slot.set_powerlimit_percentage(row.claim.value);
        if (_dao != nullptr) {
            _dao->update_debug_pwrlmt_alg(now, key, row.claim.name, row.claim.instance,
                                          static_cast<std::uint16_t>(row.claim.value));
        }
        row.applied = row.claim;
    });
}

void common_thermal_manager::clear_pciegen_pwrbrk_slot() { _pwrbrk_alg.clear(); }

void common_thermal_manager::clear_powerlimit_pci_slot(const index_list& pci) {
    _pwrlmt_alg.clear();
    for_each_listed(pci, [this](const slot_device&, std::uint32_t key) { _pwrlmt_alg[key].claim = free_slot; });
}
