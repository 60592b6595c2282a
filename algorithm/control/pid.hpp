#pragma once

#include "algorithm/control/pid_law.hpp"
#include "algorithm/parameter_table.hpp"

struct pid_parameter : pid_setting, pid_history {
    store_reference x_reference{1};
    store_reference y_reference{1};
    float x = 0.0f;
    float y = 0.0f;
    float r = 0.0f;
};

// Fan regulators: the duty moves from the present output y by the error of a controlled value x against a band. The
// last record alone makes the result. A lost x or y keeps the record's history; in the last record it gives a result of
// 0.0, which is a claim.
class THERMAL_API pid_regulator : public algorithm_with_parameters<pid_parameter> {
public:
    void set_parameter_x(unsigned index, std::string key, int instance) {
        record(index).x_reference = store_reference(std::move(key), instance);
    }
    void set_parameter_y(unsigned index, std::string key, int instance) {
        record(index).y_reference = store_reference(std::move(key), instance);
    }
    void set_parameter_x_kp(unsigned index, float value) { record(index).kp = value; }
    void set_parameter_x_ki(unsigned index, float value) { record(index).ki = value; }
    void set_parameter_x_kd(unsigned index, float value) { record(index).kd = value; }
    void set_parameter_x_target_high(unsigned index, float value) { record(index).target_high = value; }
    void set_parameter_x_target_low(unsigned index, float value) { record(index).target_low = value; }
    void set_parameter_r_max(unsigned index, float value) { record(index).r_max = value; }

    void poll(common_thermal_dao* dao, unsigned long timestamp) override;

protected:
    pid_regulator(const char* name, int instance, pid_band_policy policy);

private:
    void log_record(const pid_parameter& record, bool computed, float x, float y) const;

    pid_band_policy _policy;
    float _r_hold = 0.0f;  // shared by the records
};

// Inside the band the history moves the output for two more passes.
class THERMAL_API common_thermal_algorithm_pid : public pid_regulator {
public:
    explicit common_thermal_algorithm_pid(int instance);
};

// Inside the band the output follows y.
class THERMAL_API common_thermal_algorithm_pid_v2 : public pid_regulator {
public:
    explicit common_thermal_algorithm_pid_v2(int instance);
};

// Inside the band the output is frozen at the y of entry, beyond r_max too.
class THERMAL_API common_thermal_algorithm_pid_v3 : public pid_regulator {
public:
    explicit common_thermal_algorithm_pid_v3(int instance);
};
