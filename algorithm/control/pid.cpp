#include "algorithm/control/pid.hpp"

#include "foundation/float_conversion.hpp"
#include "foundation/log_masks.hpp"

namespace {

using p = pid_parameter;

constexpr parameter<p> fields[] = {
    {"\nx_key=", "PARAMETER_X_PREFIX", &p::x_reference, "PARAMETER_X_INST"},
    {"\ny_key=", "PARAMETER_Y_PREFIX", &p::y_reference, "PARAMETER_Y_INST"},
    {"\nx=", nullptr, &p::x},
    {"\ny=", nullptr, &p::y},
    {"\nkp=", "PARAMETER_X_KP", &p::kp},
    {"\nki=", "PARAMETER_X_KI", &p::ki},
    {"\nkd=", "PARAMETER_X_KD", &p::kd},
    {"\ntarget_high=", "PARAMETER_X_TARGET_HI", &p::target_high},
    {"\ntarget_low=", "PARAMETER_X_TARGET_LO", &p::target_low},
    {"\nr=", nullptr, &p::r},
    {"\nr_max=", "PARAMETER_R_MAX", &p::r_max},
    {"\nerror1=", nullptr, &p::error1},
    {"\nerror2=", nullptr, &p::error2},
    {"\nerror3=", nullptr, &p::error3},
};

constexpr parameter_layout<p> layout{
    .fields = fields,
    .closing = "\nr=y + kp*(error(n)-error(n-1)) + ki*error(n) + kd*(error(n)-2*error(n-1)+error(n-2))",
};

}  // namespace

pid_regulator::pid_regulator(const char* name, int instance, pid_band_policy policy)
    : algorithm_with_parameters(layout, name, instance, common_thermal_utils::talg_pid, action_fan_map),
      _policy(policy) {}

void pid_regulator::poll(common_thermal_dao* dao, unsigned long) {
    float last = 0.0f;
    for (auto& [number, record] : records()) {
        last = 0.0f;
        float x = 0.0f;
        float y = 0.0f;
        const bool has_x = record.x_reference.fetch(*dao, &x);
        const bool computed = record.y_reference.fetch(*dao, &y) && has_x;
        if (computed) {
            record.x = x;
            record.y = y;
            record.r = pid_step(record, _policy, x, y, record, _r_hold);
            last = last < record.r ? record.r : last;
        }
        if (LOG::is_enabled(log_mask::calculation | log_mask::outcome)) {
            log_record(record, computed, x, y);
        }
    }
    set_result(last);
}

void pid_regulator::log_record(const pid_parameter& record, bool computed, float x, float y) const {
    const char* class_name = get_name().c_str();
    LOG::log(log_source, log_mask::outcome, "%s::%s - %s.%d\n", class_name, "poll", record.x_reference.name().c_str(),
             record.x_reference.instance());
    LOG::log(log_source, log_mask::calculation,
             "%s::%s(%d) - [%3.2f, %3.2f]=%3.2f, %3.2f, %3.2f, %3.2f, [%3.2f, %3.2f, %3.2f]\n", class_name,
             get_key_custom_result().c_str(), computed ? 1 : 0, shown(record.r_max), shown(record.r),
             shown(record.target_high), shown(record.target_low), shown(x), shown(y), shown(record.error1),
             shown(record.error2), shown(record.error3));
}

common_thermal_algorithm_pid::common_thermal_algorithm_pid(int instance)
    : pid_regulator("common_thermal_algorithm_pid", instance, pid_band_policy::run_on) {}

common_thermal_algorithm_pid_v2::common_thermal_algorithm_pid_v2(int instance)
    : pid_regulator("common_thermal_algorithm_pid_v2", instance, pid_band_policy::clear) {}

common_thermal_algorithm_pid_v3::common_thermal_algorithm_pid_v3(int instance)
    : pid_regulator("common_thermal_algorithm_pid_v3", instance, pid_band_policy::hold) {}
