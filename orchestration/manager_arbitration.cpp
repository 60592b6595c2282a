#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <string_view>
#include <utility>

#include "device/fan/fan.hpp"
#include "orchestration/common_thermal_manager.hpp"

// Any number of rules may want the same fan or the same cap. Each rule that runs is compared at once with the best wish
// of the cycle so far.
namespace {

// Operators who think in raw duties, 0 to 255, set this in the firmware's environment.
bool is_manual_speed_raw() {
    const char* setting = std::getenv("SCALE_FAN_SPEED_COMMAND");
    return setting != nullptr && std::string_view(setting) == "YES";
}

const interned_name manual_fan_speed("manual_fan_speed");

// The row of a fan, or where it would stand.
template <class Rows>
auto row_of(Rows& rows, unsigned instance) {
    return std::ranges::lower_bound(rows, instance, {}, &common_thermal_manager::fan_alg_t::fan);
}

bool is_replaced(const common_thermal_manager::fan_alg_t& row, std::uint8_t duty) {
    return !row.claimed || duty > row.value || row.name == manual_fan_speed;
}

using rule_action = common_thermal_algorithm::action_support_t;

// In the order in which a rule's wishes are compared.
constexpr std::pair<rule_action, void (common_thermal_manager::*)(common_thermal_algorithm*)> capping_comparisons[] = {
    {rule_action::action_capping_cpu, &common_thermal_manager::compare_algorithm_capping_cpu},
    {rule_action::action_capping_dimm, &common_thermal_manager::compare_algorithm_capping_dimm},
    {rule_action::action_capping_system, &common_thermal_manager::compare_algorithm_capping_system},
    {rule_action::action_capping_nvme, &common_thermal_manager::compare_algorithm_capping_nvme},
    {rule_action::action_capping_fan, &common_thermal_manager::compare_algorithm_capping_fan},
    {rule_action::action_capping_power_permission, &common_thermal_manager::compare_algorithm_capping_power_permission},
};

}  // namespace

// Between two ticks an operator may have turned to a fan.
void common_thermal_manager::begin_claims(const index_list& fans) {
    know_fans(fans);
    _scale_manual_speed.reset();
    for (fan_alg_t& row : _fan_alg) {
        row.unbeaten = -1;
    }
}

void common_thermal_manager::know_fans(const index_list& fans) {
    if (_known_scheduler == _scheduler && _known_fans == fans) {
        return;
    }
    _known_scheduler = _scheduler;
    _known_fans = fans;
    _fan_targets.clear();
    for (const unsigned long index : fans) {
        auto* fan = static_cast<common_thermal_device_fan*>(_scheduler->get_thermal_device_by_index(index));
        if (fan != nullptr) {
            add_fan_row(static_cast<unsigned>(fan->get_instance()));
            _fan_targets.push_back({fan, nullptr, false, nullptr});
        }
    }
    _targets_by_byte = {};
    for (fan_target& target : _fan_targets) {
        const auto instance = static_cast<unsigned>(target.fan->get_instance());
        target.row = &*row_of(_fan_alg, instance);
        fan_target** end = &_targets_by_byte[instance & 0xFFu];
        while (*end != nullptr) {
            if ((*end)->row == target.row) {
                target.shares_row = (*end)->shares_row = true;
            }
            end = &(*end)->next;
        }
        *end = &target;
    }
}

// A row stays for good: what was claimed before a fan was added still stands.
void common_thermal_manager::add_fan_row(unsigned instance) {
    const auto place = row_of(_fan_alg, instance);
    if (place == _fan_alg.end() || place->fan != instance) {
        _fan_alg.insert(place, {.fan = instance});
    }
}

const common_thermal_manager::fan_alg_t* common_thermal_manager::fan_winner(unsigned fan) const {
    const auto row = row_of(_fan_alg, fan);
    return row != _fan_alg.end() && row->fan == fan ? &*row : nullptr;
}

bool common_thermal_manager::replaced_algorithm_fan(unsigned fan, std::uint8_t duty) const {
    const fan_alg_t* row = fan_winner(fan);
    return row == nullptr || is_replaced(*row, duty);
}

void common_thermal_manager::compare_algorithm_fan(common_thermal_algorithm* rule, const index_list& fans) {
    begin_claims(fans);
    claim_fans(*rule);
}

// A fan's row depends on no other fan, so the rule's own fans are walked, not all fans of the machine.
void common_thermal_manager::claim_fans(const common_thermal_algorithm& rule) {
    for (const common_thermal_algorithm::fan_demand& demand : rule.fan_demands()) {
        for (fan_target* target = _targets_by_byte[demand.instance]; target != nullptr; target = target->next) {
            if (demand.duty > target->row->unbeaten) {
                claim_fan(*target, rule, demand.duty);
            }
        }
    }
}

inline void common_thermal_manager::claim_fan(fan_target& target, const common_thermal_algorithm& rule,
                                              std::uint8_t duty) {
    fan_alg_t& row = *target.row;
    if (target.fan->is_manual_speed()) {
        claim_manually(target);
    } else if (is_replaced(row, duty)) {
        row.claimed = true;
        row.name = rule.name_handle();
        row.instance = static_cast<std::uint32_t>(rule.get_instance());
        row.value = duty;
        row.unbeaten = target.shares_row ? -1 : duty;
    } else if (target.fan->is_expected_speed(row.value)) {
        row.unbeaten = target.shares_row ? -1 : row.value;
        return;  // the store has it since the row was claimed
    }
    target.fan->set_expected_speed(row.value);
    target.fan->commit_expected_speed_to_dao(_dao);
}

void common_thermal_manager::claim_manually(fan_target& target) {
    if (!_scale_manual_speed) {
        _scale_manual_speed = is_manual_speed_raw();
    }
    const unsigned speed = target.fan->get_manual_speed();
    const long duty = *_scale_manual_speed ? std::lround(speed * 100.0 / 255.0) : static_cast<long>(speed);
    *target.row = {target.row->fan, true, manual_fan_speed, 1, static_cast<std::uint8_t>(duty), -1};
}

bool common_thermal_manager::replaced_algorithm_capping(unsigned kind, std::uint16_t value) const {
    if (kind >= capping_kinds) {
        return false;
    }
    const cap_alg_t& row = _cap_alg[kind];
    return row.name.empty() || row.instance == 0 || row.value >= value;
}

void common_thermal_manager::compare_capping(capping_kind kind, const common_thermal_algorithm& rule,
                                             std::uint16_t value) {
    if (replaced_algorithm_capping(kind, value)) {
        cap_alg_t& row = _cap_alg[kind];
        row.name = rule.name_handle();
        row.instance = static_cast<std::uint32_t>(rule.get_instance());
        row.value = value;
    }
}

void common_thermal_manager::compare_algorithm_capping_cpu(common_thermal_algorithm* rule) {
    compare_capping(capping_cpu, *rule, rule->get_action_sensor_capping_cpu_value());
}

void common_thermal_manager::compare_algorithm_capping_dimm(common_thermal_algorithm* rule) {
    if (rule->get_alg_type() == common_thermal_utils::talg_sensor_capping_dimm_percentage) {
        compare_capping(capping_dimm_percentage, *rule, rule->get_action_sensor_capping_dimm_value_percentage());
    } else {
        compare_capping(capping_dimm, *rule, rule->get_action_sensor_capping_dimm_value());
    }
}

void common_thermal_manager::compare_algorithm_capping_system(common_thermal_algorithm* rule) {
    compare_capping(capping_system, *rule, rule->get_action_sensor_capping_system_value());
}

void common_thermal_manager::compare_algorithm_capping_nvme(common_thermal_algorithm* rule) {
    compare_capping(capping_nvme, *rule, rule->get_action_sensor_capping_nvme_value());
}

void common_thermal_manager::compare_algorithm_capping_fan(common_thermal_algorithm* rule) {
    compare_capping(capping_fan_maximum, *rule, rule->get_action_sensor_capping_fan_value());
}

void common_thermal_manager::compare_algorithm_capping_power_permission(common_thermal_algorithm* rule) {
    compare_capping(capping_power_permission, *rule, rule->get_action_sensor_capping_power_permission_value());
}

// Fans first, then the caps.
void common_thermal_manager::compare_asserted_rule(common_thermal_algorithm& rule) {
    if (rule.is_supported_action_fan_map()) {
        claim_fans(rule);
    }
    if (!rule.supports_more_than_fans()) {
        return;
    }
    for (const auto& [action, compare] : capping_comparisons) {
        if (rule.supports(action)) {
            (this->*compare)(&rule);
        }
    }
}
