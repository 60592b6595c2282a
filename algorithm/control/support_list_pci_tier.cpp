#include "algorithm/control/support_list_pci_tier.hpp"

#include <algorithm>

namespace {

using p = support_list_pci_tier_parameter;
using row_p = support_list_pci_tier_row;

constexpr auto fields = joined_fields(
    std::array{
        parameter<p>{"\nt_key=", "PARAMETER_T_PREFIX", &p::t_reference, "PARAMETER_T_INST"},
    },
    identity_reference_fields<p>);

constexpr auto row_fields =
    joined_fields(identity_fields<row_p>, std::array{
                                              parameter<row_p>{"\nt=", "PARAMETER_TMIN", &row_p::t_min},
                                              parameter<row_p>{" - ", "PARAMETER_TMAX", &row_p::t_max},
                                              parameter<row_p>{"\na=", "PARAMETER_A", &row_p::a},
                                              parameter<row_p>{"\nb=", "PARAMETER_B", &row_p::b},
                                              parameter<row_p>{"\nc=", "PARAMETER_C", &row_p::c},
                                              parameter<row_p>{"\nd=", "PARAMETER_D", &row_p::d},
                                              parameter<row_p>{"\nr_max=", "PARAMETER_R_MAX", &row_p::r_max},
                                              parameter<row_p>{"\nr=a * (x^3) + b * (x^2) + c * x + d"},
                                          });

constexpr parameter_layout<p> layout{
    .fields = fields,
    .rows = {.count_key = "PARAMETER_TXYZABCD_COUNT", .fields = row_fields},
};

}  // namespace

common_thermal_algorithm_support_list_pci_tier::common_thermal_algorithm_support_list_pci_tier(int instance)
    : adapter_list(layout, "common_thermal_algorithm_support_list_pci_tier", instance,
                   common_thermal_utils::talg_support_list_pci_tier, action_fan_map) {}

void common_thermal_algorithm_support_list_pci_tier::poll(common_thermal_dao* dao, unsigned long) {
    float largest = 0.0f;
    for_each_match(*dao, [&](p& slot, const row_p& row) {
        float t = 0.0f;
        slot.t_reference.fetch(*dao, &t);
        t = at_least(at_most(t, row.t_max), row.t_min);
        const float r = cubic(row, t, row.r_max);
        largest = std::max(largest, r);
        if (LOG::is_enabled(log_mask::calculation | log_mask::outcome)) {
            log_pass(row, r, t);
        }
    });
    set_result(largest);
}

void common_thermal_algorithm_support_list_pci_tier::log_pass(const row_p& row, float r, float t) const {
    log_row(row);
    LOG::log(log_source, log_mask::calculation,
             "%s::%s - [%3.2f]=%3.2f, %3.2f, %3.2f, %3.2f, %3.2f, %3.2f, %3.2f, %3.2f\n", get_name().c_str(),
             get_key_custom_result().c_str(), shown(r), shown(row.a), shown(row.b), shown(row.c), shown(row.d),
             shown(t), shown(row.t_min), shown(row.t_max), shown(row.r_max));
}
