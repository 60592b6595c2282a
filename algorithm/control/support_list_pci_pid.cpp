#include "algorithm/control/support_list_pci_pid.hpp"

#include <algorithm>

namespace {

using p = support_list_pci_pid_parameter;
using row_p = support_list_pci_pid_row;

constexpr auto fields = joined_fields(
    std::array{
        parameter<p>{"\nt_key=", "PARAMETER_T_PREFIX", &p::t_reference, "PARAMETER_T_INST"},
        parameter<p>{"\nf_key=", "PARAMETER_F_PREFIX", &p::f_reference, "PARAMETER_F_INST"},
    },
    identity_reference_fields<p>);

constexpr auto row_fields =
    joined_fields(identity_fields<row_p>, std::array{
                                              parameter<row_p>{"\nkp=", "PARAMETER_KP", &row_p::kp},
                                              parameter<row_p>{"\nki=", "PARAMETER_KI", &row_p::ki},
                                              parameter<row_p>{"\nkd=", "PARAMETER_KD", &row_p::kd},
                                              parameter<row_p>{"\nhi=", "PARAMETER_HI", &row_p::target_high},
                                              parameter<row_p>{"\nlo=", "PARAMETER_LO", &row_p::target_low},
                                              parameter<row_p>{"\nr_max=", "PARAMETER_R_MAX", &row_p::r_max},
                                          });

constexpr parameter_layout<p> layout{
    .fields = fields,
    .rows = {.count_key = "PARAMETER_TFXYZPID_COUNT", .fields = row_fields},
};

}  // namespace

support_list_pci_pid::support_list_pci_pid(const char* name, int instance, pid_band_policy policy)
    : adapter_list(layout, name, instance, common_thermal_utils::talg_support_list_pci_pid, action_fan_map),
      _policy(policy) {}

void support_list_pci_pid::poll(common_thermal_dao* dao, unsigned long) {
    float largest = 0.0f;
    for_each_match(*dao, [&](p& slot, const row_p& row) {
        float t = 0.0f;
        float f = 0.0f;
        slot.t_reference.fetch(*dao, &t);
        slot.f_reference.fetch(*dao, &f);
        const float r = pid_step(row, _policy, t, f, slot, _r_hold);
        largest = std::max(largest, r);
        if (LOG::is_enabled(log_mask::calculation | log_mask::outcome)) {
            log_pass(slot, row, r, t, f);
        }
    });
    set_result(largest);
}

void support_list_pci_pid::log_pass(const pid_history& history, const row_p& row, float r, float t, float f) const {
    log_row(row);
    LOG::log(log_source, log_mask::calculation,
             "%s::%s - [%3.2f, %3.2f]=%3.2f, %3.2f, %3.2f, %3.2f, [%3.2f, %3.2f, %3.2f]\n", get_name().c_str(),
             get_key_custom_result().c_str(), shown(row.r_max), shown(r), shown(row.target_high), shown(row.target_low),
             shown(t), shown(f), shown(history.error1), shown(history.error2), shown(history.error3));
}

common_thermal_algorithm_support_list_pci_pid::common_thermal_algorithm_support_list_pci_pid(int instance)
    : support_list_pci_pid("common_thermal_algorithm_support_list_pci_pid", instance, pid_band_policy::run_on) {}

common_thermal_algorithm_support_list_pci_pid_v2::common_thermal_algorithm_support_list_pci_pid_v2(int instance)
    : support_list_pci_pid("common_thermal_algorithm_support_list_pci_pid_v2", instance, pid_band_policy::clear) {}

common_thermal_algorithm_support_list_pci_pid_v3::common_thermal_algorithm_support_list_pci_pid_v3(int instance)
    : support_list_pci_pid("common_thermal_algorithm_support_list_pci_pid_v3", instance, pid_band_policy::hold) {}
