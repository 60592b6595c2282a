#include "algorithm/common_thermal_algorithm.hpp"

#include <algorithm>
#include <array>
#include <initializer_list>
#include <string_view>

#include "foundation/float_conversion.hpp"
#include "foundation/log_masks.hpp"

using utils = common_thermal_utils;

namespace {

constexpr std::uint8_t no_power_limit = 100;
constexpr std::uint16_t no_cap = 0xFFFF;
constexpr int custom_result_instance = 1;

constexpr std::array<std::string_view, 9> operator_names{"OP_NON", "OP_EQ", "OP_LE", "OP_GE",  "OP_MASK",
                                                         "OP_NE",  "OP_LT", "OP_GT", "OP_LAST"};

// OP_MASK and OP_LAST have names but no meaning in a rule.
utils::operator_t operator_from_text(std::string_view text) {
    for (const auto op : {utils::OP_EQ, utils::OP_LE, utils::OP_GE, utils::OP_NE, utils::OP_LT, utils::OP_GT}) {
        if (operator_names[static_cast<std::size_t>(op)] == text) {
            return op;
        }
    }
    return utils::OP_NON;
}

bool holds(float live, utils::operator_t op, float value) {
    switch (op) {
        case utils::OP_EQ:
            return live == value;
        case utils::OP_LE:
            return live <= value;
        case utils::OP_GE:
            return live >= value;
        case utils::OP_NE:
            return live != value;
        case utils::OP_LT:
            return live < value;
        case utils::OP_GT:
            return live > value;
        default:
            return false;
    }
}

std::string joined(std::initializer_list<std::string_view> parts) {
    std::size_t size = 0;
    for (const std::string_view part : parts) {
        size += part.size();
    }
    std::string text;
    text.reserve(size);
    for (const std::string_view part : parts) {
        text += part;
    }
    return text;
}

std::uint32_t slot_key(std::uint16_t location, std::uint16_t slot_no) {
    return static_cast<std::uint32_t>(location) << 16 | slot_no;
}

// The demand on a fan, or where it would stand.
template <class Demands>
auto place_of(Demands& demands, std::uint8_t instance) {
    return std::lower_bound(demands.begin(), demands.end(), instance,
                            [](const auto& demand, std::uint8_t wanted) { return demand.instance < wanted; });
}

// Calls `enter` with location and slot number of each row of a rule's list of PCI slots.
template <class Enter>
void for_each_slot(const rule_group& rule, Enter&& enter) {
    const unsigned count = rule.count("PCI_MAP_COUNT");
    for (unsigned i = 1; i <= count; ++i) {
        numbered_key key(i);
        const auto location = static_cast<std::uint16_t>(rule.unsigned_integer(key("PCI_LOCATION")));
        enter(location, static_cast<std::uint16_t>(rule.unsigned_integer(key("PCI_SLOT_NO"))));
    }
}

template <class Map>
std::string slot_lines(const Map& slots) {
    std::string text;
    for (const auto& [key, value] : slots) {
        text += "\npci_" + std::to_string(key) + "=" + std::to_string(static_cast<int>(value));
    }
    return text;
}

}  // namespace

common_thermal_algorithm::common_thermal_algorithm(const char* name, int instance, talg_type_t type,
                                                   std::uint32_t action_support)
    : _name(name), _alg_type(type), _action_support(action_support), _result(joined({name, ".result"}), instance) {}

bool common_thermal_algorithm::are_conditions_asserted(common_thermal_dao* dao) {
    for (condition& each : _conditions) {
        const float* live = each.live.find(*dao);
        if (live == nullptr || !holds(*live, each.op, each.value)) {
            return false;
        }
    }
    return true;
}

void common_thermal_algorithm::add_condition(unsigned number, std::string key, int instance, operator_t op,
                                             float value) {
    condition added{number, op, value, store_reference(std::move(key), instance)};
    const auto place = std::lower_bound(_conditions.begin(), _conditions.end(), number,
                                        [](const condition& each, unsigned wanted) { return each.number < wanted; });
    if (place != _conditions.end() && place->number == number) {
        *place = std::move(added);
    } else {
        _conditions.insert(place, std::move(added));
    }
}

void common_thermal_algorithm::polling(common_thermal_dao* dao, unsigned long timestamp) {
    poll(dao, timestamp);
    dao->update_dev(&_result, common_thermal_dao::spike_none, false);
    dao->store_dev(_custom_result.name, custom_result_instance, _custom_result.place, _result.value);
    hand_result_to_targets();
    if (LOG::is_enabled(log_mask::outcome)) {
        log_result();
    }
}

void common_thermal_algorithm::hand_result_to_targets() {
    if (is_supported_action_fan_map()) {
        const std::uint8_t duty = saturate_to_byte(_result.value);
        for (fan_demand& demand : _fan_demands) {
            demand.duty = duty;
        }
    }
    if (!supports_more_than_fans()) {
        return;
    }
    offer_caps(saturate_to_word(_result.value));
    // A result of 0.5 brakes, although as a whole number it is 0.
    if (is_supported_action_sensor_pciegen_pwrbrk()) {
        for (const auto& [key, brake] : _action_pciegen_pwrbrk) {
            enter_pciegen_pwrbrk(key, _result.value != 0.0f);
        }
    }
    if (is_supported_action_sensor_powerlimit_pci()) {
        for (const auto& [key, limit] : _action_powerlimit_pci) {
            enter_powerlimit_pci(key, saturate_to_byte(_result.value));
        }
    }
}

void common_thermal_algorithm::offer_caps(std::uint16_t value) {
    if (is_supported_action_sensor_capping_cpu()) set_action_sensor_capping_cpu(value);
    if (is_supported_action_sensor_capping_dimm()) set_action_sensor_capping_dimm(value);
    if (is_supported_action_sensor_capping_system()) set_action_sensor_capping_system(value);
    if (is_supported_action_sensor_capping_nvme()) set_action_sensor_capping_nvme(value);
    if (is_supported_action_sensor_capping_fan()) set_action_sensor_capping_fan(value);
    if (is_supported_action_sensor_capping_power_permission()) set_action_sensor_capping_power_permission(value);
}

void common_thermal_algorithm::log_result() const {
    LOG::log(log_source, log_mask::outcome, "common_thermal_algorithm - %s.%d\n", _name.c_str(), get_instance());
    LOG::log(log_source, log_mask::outcome, "common_thermal_algorithm - %s = %f\n", _custom_result.name.c_str(),
             shown(_result.value));
}

void common_thermal_algorithm::set_action_fan_map(std::uint8_t instance, std::uint8_t duty) {
    const auto place = place_of(_fan_demands, instance);
    if (place != _fan_demands.end() && place->instance == instance) {
        place->duty = duty;
    } else {
        _fan_demands.insert(place, {instance, duty});
    }
}

bool common_thermal_algorithm::is_in_action_fan(std::uint8_t instance) const {
    const auto place = place_of(_fan_demands, instance);
    return place != _fan_demands.end() && place->instance == instance;
}

std::uint8_t common_thermal_algorithm::get_action_fan_duty_by_instance(std::uint8_t instance) const {
    const auto place = place_of(_fan_demands, instance);
    return place != _fan_demands.end() && place->instance == instance ? place->duty : std::uint8_t{0};
}

void common_thermal_algorithm::set_action_pciegen_pwrbrk(std::uint16_t location, std::uint16_t slot_no, bool brake) {
    enter_pciegen_pwrbrk(slot_key(location, slot_no), brake);
}

void common_thermal_algorithm::enter_pciegen_pwrbrk(std::uint32_t key, bool brake) {
    _action_pciegen_pwrbrk[key] = brake;
    LOG::log(log_source, log_mask::slot_arbitration, "set_action_pciegen_pwrbrk[%02lX][%02X]\n",
             static_cast<unsigned long>(key), brake ? 1u : 0u);
}

bool common_thermal_algorithm::is_in_action_pciegen_pwrbrk_slot(unsigned long key) const {
    return _action_pciegen_pwrbrk.contains(static_cast<std::uint32_t>(key));
}

bool common_thermal_algorithm::get_action_pciegen_pwrbrk_by_location_slot_no(std::uint16_t location,
                                                                             std::uint16_t slot_no) {
    return _action_pciegen_pwrbrk[slot_key(location, slot_no)];
}

void common_thermal_algorithm::set_action_powerlimit_pci(std::uint16_t location, std::uint16_t slot_no,
                                                         std::uint8_t limit) {
    enter_powerlimit_pci(slot_key(location, slot_no), limit);
}

void common_thermal_algorithm::enter_powerlimit_pci(std::uint32_t key, std::uint8_t limit) {
    _action_powerlimit_pci[key] = limit;
    LOG::log(log_source, log_mask::slot_arbitration, "set_action_powerlimit_pci[%02lX][%02d]\n",
             static_cast<unsigned long>(key), static_cast<int>(limit));
}

bool common_thermal_algorithm::is_in_action_powerlimit_pci_slot(unsigned long key) const {
    return _action_powerlimit_pci.contains(static_cast<std::uint32_t>(key));
}

std::uint8_t common_thermal_algorithm::get_action_powerlimit_pci_by_location_slot_no(std::uint16_t location,
                                                                                     std::uint16_t slot_no) {
    return _action_powerlimit_pci[slot_key(location, slot_no)];
}

std::string common_thermal_algorithm::op_to_string(operator_t op) {
    const int number = op;
    return number >= 0 && number < static_cast<int>(operator_names.size())
               ? std::string(operator_names[static_cast<std::size_t>(number)])
               : std::to_string(number);
}

void common_thermal_algorithm::parse_result_name(ini_file::std_handler* rules, const std::string& group) {
    const char* name = rule_group(*rules, group.c_str()).text("NAME");
    _custom_result = {joined({"custom.", name, ".result"}), {}};
}

void common_thermal_algorithm::parse_conditions(ini_file::std_handler* rules, const std::string& group) {
    const rule_group rule(*rules, group.c_str());
    const unsigned count = rule.count("CONDITION_COUNT");
    _conditions.reserve(count);
    for (unsigned i = 1; i <= count; ++i) {
        numbered_key key(i);
        std::string value_key = rule.text(key("CONDITION_KEY_PREFIX"));
        const int value_instance = rule.integer(key("CONDITION_INST"));
        const operator_t op = operator_from_text(rule.text(key("CONDITION_OPS")));
        add_condition(i, std::move(value_key), value_instance, op, rule.number(key("CONDITION_VAL")));
    }
}

void common_thermal_algorithm::parse_action(ini_file::std_handler* rules, const std::string& group) {
    if (is_supported_action_fan_map()) parse_action_fan_map(rules, group);
    if (is_supported_action_sensor_pciegen_pwrbrk()) parse_action_pciegen_pwrbrk(rules, group);
    if (is_supported_action_sensor_powerlimit_pci()) parse_action_powerlimit_pci(rules, group);
    offer_caps(no_cap);
}

void common_thermal_algorithm::parse_action_fan_map(ini_file::std_handler* rules, const std::string& group) {
    const rule_group rule(*rules, group.c_str());
    const unsigned count = rule.count("FAN_MAP_COUNT");
    _fan_demands.reserve(std::min(count, 256u));
    for (unsigned i = 1; i <= count; ++i) {
        set_action_fan_map(static_cast<std::uint8_t>(rule.integer(numbered_key(i)("FAN_MAP"))), 0);
    }
}

void common_thermal_algorithm::parse_action_pciegen_pwrbrk(ini_file::std_handler* rules, const std::string& group) {
    for_each_slot(rule_group(*rules, group.c_str()), [this](std::uint16_t location, std::uint16_t slot_no) {
        set_action_pciegen_pwrbrk(location, slot_no, false);
    });
}

void common_thermal_algorithm::parse_action_powerlimit_pci(ini_file::std_handler* rules, const std::string& group) {
    for_each_slot(rule_group(*rules, group.c_str()), [this](std::uint16_t location, std::uint16_t slot_no) {
        set_action_powerlimit_pci(location, slot_no, no_power_limit);
    });
}

std::string common_thermal_algorithm::get_debug_txt() const {
    const std::string instance = std::to_string(get_instance());
    std::string text = "\n\n[name.instance]\n" + get_name() + "." + instance;
    text += "\n[Result]\n" + _result.name + "." + instance + "=" + std::to_string(_result.value);
    text += "\n" + _custom_result.name + ".1=" + std::to_string(_result.value);
    text += std::string("\n[Assertion State]\n") + (_asserted_now ? "True" : "False");
    text += "\n[condition list]";
    for (const condition& each : _conditions) {
        text += "\n" + each.live.name() + "." + std::to_string(each.live.instance()) + " - " + op_to_string(each.op) +
                " - val:" + std::to_string(each.value);
    }
    if (is_supported_action_fan_map()) {
        text += "\n[fan list]";
        for (const fan_demand& demand : _fan_demands) {
            text += "\nfan" + std::to_string(demand.instance) + "=" + std::to_string(demand.duty);
        }
    }
    if (is_supported_action_sensor_pciegen_pwrbrk()) {
        text += "\n[pciegen_pwrbrk list]" + slot_lines(_action_pciegen_pwrbrk);
    }
    if (is_supported_action_sensor_powerlimit_pci()) {
        text += "\n[powerlimit pci list]" + slot_lines(_action_powerlimit_pci);
    }
    return text + "\n[parameter list]";
}
