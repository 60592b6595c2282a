#include "algorithm/control/cubic_equation.hpp"

#include "foundation/float_conversion.hpp"
#include "foundation/log_masks.hpp"

namespace {

using p = cubic_equation_parameter;

constexpr parameter<p> curve_fields[] = {
    {"\nx_key=", "PARAMETER_X_PREFIX", &p::x_reference, "PARAMETER_X_INST"},
    {"\na=", "PARAMETER_A", &p::a},
    {"\nb=", "PARAMETER_B", &p::b},
    {"\nc=", "PARAMETER_C", &p::c},
    {"\nd=", "PARAMETER_D", &p::d},
    {"\nr=", nullptr, &p::r},
};

constexpr parameter<p> limit_fields_v1[] = {
    {"\nr_max=", "PARAMETER_R_MAX", &p::r_max},
};

constexpr parameter<p> limit_fields_v2[] = {
    {"\nx_min=", "PARAMETER_X_MIN", &p::x_min},
    {"\nx_max=", "PARAMETER_X_MAX", &p::x_max, nullptr, "100"},
    {"\nr_max=", "PARAMETER_R_MAX", &p::r_max, nullptr, "100"},
};

constexpr const char* formula = "\nr=a * (x^3) + b * (x^2) + c * x + d";
constexpr parameter_layout<p> layout_v1{.fields = curve_fields, .closing = formula, .behind_rows = limit_fields_v1};
constexpr parameter_layout<p> layout_v2{.fields = curve_fields, .closing = formula, .behind_rows = limit_fields_v2};

}  // namespace

cubic_equation_rule::cubic_equation_rule(const parameter_layout<p>& layout, const char* name, int instance,
                                         bool limits_x)
    : algorithm_with_parameters(layout, name, instance, common_thermal_utils::talg_cubic_equation, action_fan_map),
      _limits_x(limits_x) {}

void cubic_equation_rule::poll(common_thermal_dao* dao, unsigned long) {
    float largest = 0.0f;
    for (auto& [number, record] : records()) {
        float x = 0.0f;
        if (!record.x_reference.fetch(*dao, &x)) {
            continue;
        }
        if (_limits_x) {
            x = at_most(at_least(x, record.x_min), record.x_max);
        }
        record.r = cubic(record, x, record.r_max);
        largest = std::max(largest, record.r);
        if (LOG::is_enabled(log_mask::calculation | log_mask::outcome)) {
            log_record(record, x);
        }
    }
    set_result(largest);
}

void cubic_equation_rule::log_record(const cubic_equation_parameter& record, float x) const {
    const char* class_name = get_name().c_str();
    const char* key = get_key_custom_result().c_str();
    LOG::log(log_source, log_mask::outcome, "%s::%s - %s.%d\n", class_name, "poll", record.x_reference.name().c_str(),
             record.x_reference.instance());
    if (_limits_x) {
        LOG::log(log_source, log_mask::calculation,
                 "%s::%s - [%3.2f]=%3.2f, %3.2f, %3.2f, %3.2f, %3.2f, %3.2f, %3.2f, %3.2f\n", class_name, key,
                 shown(record.r), shown(record.a), shown(record.b), shown(record.c), shown(record.d), shown(x),
                 shown(record.x_min), shown(record.x_max), shown(record.r_max));
    } else {
        LOG::log(log_source, log_mask::calculation, "%s::%s - [%3.2f, %3.2f]=%3.2f, %3.2f, %3.2f, %3.2f, %3.2f\n",
                 class_name, key, shown(record.r_max), shown(record.r), shown(record.a), shown(record.b),
                 shown(record.c), shown(record.d), shown(x));
    }
}

common_thermal_algorithm_cubic_equation::common_thermal_algorithm_cubic_equation(int instance)
    : cubic_equation_rule(layout_v1, "common_thermal_algorithm_cubic_equation", instance, false) {}

common_thermal_algorithm_cubic_equation_v2::common_thermal_algorithm_cubic_equation_v2(int instance)
    : cubic_equation_rule(layout_v2, "common_thermal_algorithm_cubic_equation_v2", instance, true) {}
