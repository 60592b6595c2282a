#pragma once

#include "algorithm/common_thermal_algorithm.hpp"
#include "algorithm/control/pid_law.hpp"
#include "algorithm/parameter_table.hpp"

// Fan regulators: the duty moves from the present output y by the error of a controlled value x against a band. The
// last record alone makes the result. A lost x or y keeps the record's history; in the last record it gives a result of
// 0.0, which is a claim.
class THERMAL_API pid_regulator : public common_thermal_algorithm {
public:
    // Frees all records and makes `count` new ones.
    void set_parameter_size(unsigned count) { _records.set_size(count); }
    void set_parameter_x(unsigned index, std::string key, int instance) {
        _records.at(index).x_reference = store_reference(std::move(key), instance);
    }
    void set_parameter_y(unsigned index, std::string key, int instance) {
        _records.at(index).y_reference = store_reference(std::move(key), instance);
    }
    void set_parameter_x_kp(unsigned index, float value) { _records.at(index).kp = value; }
    void set_parameter_x_ki(unsigned index, float value) { _records.at(index).ki = value; }
    void set_parameter_x_kd(unsigned index, float value) { _records.at(index).kd = value; }
    void set_parameter_x_target_high(unsigned index, float value) { _records.at(index).target_high = value; }
    void set_parameter_x_target_low(unsigned index, float value) { _records.at(index).target_low = value; }
    void set_parameter_r_max(unsigned index, float value) { _records.at(index).r_max = value; }

    void parse_parameters(ini_file::std_handler* rules, const std::string& group) override;
    void parse_action(ini_file::std_handler* rules, const std::string& group) override;
    void poll(common_thermal_dao* dao, unsigned long timestamp) override;
    std::string debug() override;

protected:
    pid_regulator(const char* name, int instance, pid_band_policy policy);

private:
    struct parameter_t : pid_setting, pid_history {
        store_reference x_reference{1};
        store_reference y_reference{1};
        float x = 0.0f;
        float y = 0.0f;
        float r = 0.0f;
    };
    static const parameter<parameter_t> table[];

    void log_record(const parameter_t& record, bool computed, float x, float y) const;

    pid_band_policy _policy;
    float _r_hold = 0.0f;  // shared by the records
    parameter_records<parameter_t> _records;
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
