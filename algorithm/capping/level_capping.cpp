#include "algorithm/capping/level_capping.hpp"

#include "foundation/float_conversion.hpp"
#include "foundation/log_masks.hpp"

using utils = common_thermal_utils;

namespace {

using f = fan_capping_parameter;
using g = gpu_capping_parameter;

constexpr float no_cap = 100.0f;
constexpr unsigned deferment_mask = log_mask::bus;  // the two share a bit

constexpr parameter<f> fan_fields[] = {
    {.shown = "\npercentage=", .key = "PARAMETER_PERCENTAGE", .member = &f::percentage, .missing = "100"},
    {.shown = "\nreassertion_deferment=",
     .key = "PARAMETER_REASSERTION_DEFERMENT",
     .member = &f::reassertion_deferment,
     .missing = "120"},
};
constexpr parameter_layout<f> fan_layout{.fields = fan_fields};

constexpr parameter<g> gpu_fields[] = {{"\npercentage=", "PARAMETER_PERCENTAGE", &g::percentage}};
constexpr parameter_layout<g> gpu_layout{.fields = gpu_fields};

}  // namespace

common_thermal_algorithm_sensor_capping_power_permission::common_thermal_algorithm_sensor_capping_power_permission(
    int instance)
    : holding_capping_rule("common_thermal_algorithm_sensor_capping_power_permission", instance,
                           utils::talg_sensor_capping_power_permission, action_capping_power_permission, 1.0f, 0.0f) {}

common_thermal_algorithm_sensor_capping_pciegen_pwrbrk::common_thermal_algorithm_sensor_capping_pciegen_pwrbrk(
    int instance)
    : holding_capping_rule("common_thermal_algorithm_sensor_capping_pciegen_pwrbrk", instance,
                           utils::talg_sensor_capping_pciegen_pwrbrk, action_pciegen_pwrbrk, 0.0f, 1.0f) {}

common_thermal_algorithm_sensor_capping_fan_percentage::common_thermal_algorithm_sensor_capping_fan_percentage(
    int instance)
    : algorithm_with_parameters(fan_layout, "common_thermal_algorithm_sensor_capping_fan_percentage", instance,
                                utils::talg_sensor_capping_fan_percentage,
                                action_capping_fan | action_reassertion_deferment) {}

void common_thermal_algorithm_sensor_capping_fan_percentage::poll(common_thermal_dao*, unsigned long timestamp) {
    set_result(no_cap);
    const bool is_reassertion = has_first_assertion() && !is_pre_asserted();
    if (!has_first_assertion()) {
        set_first_assertion(true);
    } else if (!is_reassertion && nap_chk(timestamp)) {
        return;
    }
    for (const auto& [number, entry] : records()) {
        if (is_reassertion && entry.reassertion_deferment != 0.0f) {
            defer(entry.reassertion_deferment, timestamp);
        } else if (result() > entry.percentage) {
            set_result(entry.percentage);
        }
        if (LOG::is_enabled(log_mask::calculation)) {
            LOG::log(log_source, log_mask::calculation, "%s::%s - [%3.2f][%3.2f]\n", get_name().c_str(),
                     get_key_custom_result().c_str(), shown(entry.percentage), shown(entry.reassertion_deferment));
        }
    }
}

void common_thermal_algorithm_sensor_capping_fan_percentage::defer(float seconds, unsigned long timestamp) {
    nap_set(timestamp, saturate_to_byte(seconds));
    if (LOG::is_enabled(deferment_mask)) {
        LOG::log(log_source, deferment_mask, "%s::%s Reassertion Started\n", get_name().c_str(),
                 get_key_custom_result().c_str());
    }
}

common_thermal_algorithm_sensor_capping_gpu_percentage::common_thermal_algorithm_sensor_capping_gpu_percentage(
    int instance)
    : algorithm_with_parameters(gpu_layout, "common_thermal_algorithm_sensor_capping_gpu_percentage", instance,
                                utils::talg_sensor_capping_gpu_percentage, action_powerlimit_pci) {}

void common_thermal_algorithm_sensor_capping_gpu_percentage::poll(common_thermal_dao*, unsigned long) {
    float lowest = no_cap;
    for (const auto& [number, entry] : records()) {
        if (entry.percentage < lowest) {
            lowest = entry.percentage;
        }
    }
    set_result(lowest);
    if (LOG::is_enabled(log_mask::calculation)) {
        LOG::log(log_source, log_mask::calculation, "%s::%s - %3.2f\n", get_name().c_str(),
                 get_key_custom_result().c_str(), shown(lowest));
    }
}
