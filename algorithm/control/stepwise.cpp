#include "algorithm/control/stepwise.hpp"

#include <iterator>

#include "foundation/float_conversion.hpp"
#include "foundation/log_masks.hpp"

namespace {

constexpr parameter<stepwise_parameter> fields[] = {
    {"\nt_key=", "PARAMETER_T_PREFIX", &stepwise_parameter::t_reference, "PARAMETER_T_INST"},
    {"\nhysteresis=", "PARAMETER_HYSTERESIS", &stepwise_parameter::hysteresis},
};

constexpr parameter<stepwise_row> row_fields[] = {
    {"\nx=", "PARAMETER_X", &stepwise_row::x},
    {"\npwm=", "PARAMETER_PWM", &stepwise_row::pwm},
};

constexpr parameter_layout<stepwise_parameter> layout{
    .fields = fields, .rows = {.count_key = "PARAMETER_STEPWISE_COUNT", .fields = row_fields}};

}  // namespace

stepwise_choice choose_row(const stepwise_table& table, float t, float hysteresis) {
    const auto above = table.upper_bound(t);
    const auto first = table.begin();
    if (above != table.end() && t <= first->first) {
        // A single row has no row above it: an empty range, so the next pass decides afresh.
        const auto second = std::next(first);
        return {{first->first, first->second}, first->first, second == table.end() ? first->first : second->first};
    }
    // Without a row above, NaN included.
    const auto chosen = std::prev(above);
    const float high = above == table.end() ? chosen->first : above->first;
    float low = chosen->first - hysteresis;
    if (chosen != first) {
        low = std::max(low, std::prev(chosen)->first);
    }
    return {{chosen->first, chosen->second}, low, high};
}

common_thermal_algorithm_stepwise::common_thermal_algorithm_stepwise(int instance)
    : algorithm_with_parameters(layout, "common_thermal_algorithm_stepwise", instance,
                                common_thermal_utils::talg_stepwise, action_fan_map) {}

void common_thermal_algorithm_stepwise::parse_parameters(ini_file::std_handler* rules, const std::string& group) {
    algorithm_with_parameters::parse_parameters(rules, group);
    for (const auto& [number, record] : records()) {
        for (const auto& [row_number, row] : record.rows) {
            set_x_pwm_table(row.x, row.pwm);
        }
    }
}

void common_thermal_algorithm_stepwise::poll(common_thermal_dao* dao, unsigned long) {
    float largest = 0.0f;
    for (auto& [number, record] : records()) {
        float t = 0.0f;
        record.t_reference.fetch(*dao, &t);
        if (_current.holds(t)) {
            LOG::log(log_source, log_mask::bus, "%s::%s - Within the hysteresis range, keep the same value\n",
                     get_name().c_str(), "poll");
        } else if (_x_pwm_table.empty()) {
            LOG::log(log_source, log_mask::bus, "%s::%s - No stepwise configuration\n", get_name().c_str(), "poll");
            break;
        } else {
            _current = choose_row(_x_pwm_table, t, record.hysteresis);
        }
        largest = std::max(largest, _current.row.pwm);
        if (LOG::is_enabled(log_mask::calculation | log_mask::outcome)) {
            log_record(record, t);
        }
    }
    set_result(largest);
}

void common_thermal_algorithm_stepwise::log_record(const stepwise_parameter& record, float t) const {
    const char* class_name = get_name().c_str();
    const float pwm = _current.row.pwm;
    LOG::log(log_source, log_mask::outcome, "%s::%s\n", class_name, "poll");
    LOG::log(log_source, log_mask::calculation, "%s::%s - [%3.2f]=%3.2f %3.2f %3.2f %3.2f %3.2f %3.2f\n", class_name,
             get_key_custom_result().c_str(), shown(pwm), shown(t), shown(_current.row.x), shown(pwm),
             shown(record.hysteresis), shown(_current.hold_low), shown(_current.hold_high));
}
