#pragma once

#include "algorithm/parameter_table.hpp"

// Rules that cap by holding: while the conditions hold, the result is a constant.
class THERMAL_API holding_capping_rule : public common_thermal_algorithm {
public:
    void parse_parameters(ini_file::std_handler*, const std::string&) override {}
    void poll(common_thermal_dao*, unsigned long) override { set_result(_while_asserted); }
    std::string debug() override { return {}; }

protected:
    holding_capping_rule(const char* name, int instance, talg_type_t type, std::uint32_t action, float at_start,
                         float while_asserted)
        : common_thermal_algorithm(name, instance, type, action), _while_asserted(while_asserted) {
        set_result(at_start);
    }

private:
    float _while_asserted;
};

// Votes against power for the host.
class THERMAL_API common_thermal_algorithm_sensor_capping_power_permission : public holding_capping_rule {
public:
    explicit common_thermal_algorithm_sensor_capping_power_permission(int instance);
};

// Asks for the power brake on its slots.
class THERMAL_API common_thermal_algorithm_sensor_capping_pciegen_pwrbrk : public holding_capping_rule {
public:
    explicit common_thermal_algorithm_sensor_capping_pciegen_pwrbrk(int instance);
};

struct fan_capping_parameter {
    float percentage = 0.0f;
    float reassertion_deferment = 0.0f;  // seconds; the low 8 bits count
};

// Limits the duty of all fans, in percent; 100 is no cap. When the conditions come back after a pause, a record with a
// deferment waits that long first. All records share one
// deadline: from the pass after, none of them caps while it runs.
class THERMAL_API common_thermal_algorithm_sensor_capping_fan_percentage
    : public algorithm_with_parameters<fan_capping_parameter> {
public:
    explicit common_thermal_algorithm_sensor_capping_fan_percentage(int instance);
    void set_parameter_max_pwm(unsigned index, float value) { record(index).percentage = value; }
    void set_parameter_reassert_timeout(unsigned index, float seconds) {
        record(index).reassertion_deferment = seconds;
    }

    void poll(common_thermal_dao* dao, unsigned long timestamp) override;

private:
    void defer(float seconds, unsigned long timestamp);
};

struct gpu_capping_parameter {
    float percentage = 0.0f;
};

// Limits the power of the adapters in its slots, in percent; the lowest record counts.
class THERMAL_API common_thermal_algorithm_sensor_capping_gpu_percentage
    : public algorithm_with_parameters<gpu_capping_parameter> {
public:
    explicit common_thermal_algorithm_sensor_capping_gpu_percentage(int instance);
    void set_parameter_percentage(unsigned index, float value) { record(index).percentage = value; }

    void poll(common_thermal_dao* dao, unsigned long timestamp) override;
};
