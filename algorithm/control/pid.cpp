#include "algorithm/control/pid.hpp"

#include "foundation/float_conversion.hpp"
#include "foundation/log_masks.hpp"

const parameter<pid_regulator::parameter_t> pid_regulator::table[] = {
    {"x_key", "PARAMETER_X_PREFIX", &parameter_t::x_reference, "PARAMETER_X_INST"},
    {"y_key", "PARAMETER_Y_PREFIX", &parameter_t::y_reference, "PARAMETER_Y_INST"},
    {"x", nullptr, &parameter_t::x},
    {"y", nullptr, &parameter_t::y},
    {"kp", "PARAMETER_X_KP", &parameter_t::kp},
    {"ki", "PARAMETER_X_KI", &parameter_t::ki},
    {"kd", "PARAMETER_X_KD", &parameter_t::kd},
    {"target_high", "PARAMETER_X_TARGET_HI", &parameter_t::target_high},
    {"target_low", "PARAMETER_X_TARGET_LO", &parameter_t::target_low},
    {"r", nullptr, &parameter_t::r},
    {"r_max", "PARAMETER_R_MAX", &parameter_t::r_max},
    {"error1", nullptr, &parameter_t::error1},
    {"error2", nullptr, &parameter_t::error2},
    {"error3", nullptr, &parameter_t::error3},
};

pid_regulator::pid_regulator(const char* name, int instance, pid_band_policy policy)
    : common_thermal_algorithm(name, instance, common_thermal_utils::talg_pid, action_fan_map), _policy(policy) {}

void pid_regulator::parse_parameters(ini_file::std_handler* rules, const std::string& group) {
    _records.parse(rule_group(*rules, group.c_str()), table);
}

void pid_regulator::parse_action(ini_file::std_handler* rules, const std::string& group) {
    parse_action_fan_map(rules, group);
}

void pid_regulator::poll(common_thermal_dao* dao, unsigned long) {
    float last = 0.0f;
    for (auto& [number, record] : _records) {
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

void pid_regulator::log_record(const parameter_t& record, bool computed, float x, float y) const {
    const char* class_name = get_name().c_str();
    LOG::log(log_source, log_mask::outcome, "%s::%s - %s.%d\n", class_name, "poll", record.x_reference.name().c_str(),
             record.x_reference.instance());
    LOG::log(log_source, log_mask::calculation,
             "%s::%s(%d) - [%3.2f, %3.2f]=%3.2f, %3.2f, %3.2f, %3.2f, [%3.2f, %3.2f, %3.2f]\n", class_name,
             get_key_custom_result().c_str(), computed ? 1 : 0, shown(record.r_max), shown(record.r),
             shown(record.target_high), shown(record.target_low), shown(x), shown(y), shown(record.error1),
             shown(record.error2), shown(record.error3));
}

std::string pid_regulator::debug() {
    std::string text;
    for (const auto& [number, record] : _records) {
        text += parameter_records<parameter_t>::debug_text(number, record, table);
        text += "\nr=y + kp*(error(n)-error(n-1)) + ki*error(n) + kd*(error(n)-2*error(n-1)+error(n-2))";
    }
    return text;
}

common_thermal_algorithm_pid::common_thermal_algorithm_pid(int instance)
    : pid_regulator("common_thermal_algorithm_pid", instance, pid_band_policy::run_on) {}

common_thermal_algorithm_pid_v2::common_thermal_algorithm_pid_v2(int instance)
    : pid_regulator("common_thermal_algorithm_pid_v2", instance, pid_band_policy::clear) {}

common_thermal_algorithm_pid_v3::common_thermal_algorithm_pid_v3(int instance)
    : pid_regulator("common_thermal_algorithm_pid_v3", instance, pid_band_policy::hold) {}
