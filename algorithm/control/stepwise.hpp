#pragma once

#include <map>

#include "algorithm/parameter_table.hpp"

// Fan duty by temperature. The duty of a row holds from its x up to the x of the next.
using stepwise_table = std::map<float, float>;

struct stepwise_row {
    float x = 0.0f;
    float pwm = 0.0f;
};

// A row and the temperatures, edges excluded, at which it is kept.
struct stepwise_choice {
    stepwise_row row;
    float hold_low = 0.0f;
    float hold_high = 0.0f;

    constexpr bool holds(float t) const { return hold_low < t && t < hold_high; }
};

// The highest row at or below `t`, else the first; the last for a NaN. It is kept until `t` has fallen by `hysteresis`
// or to the row underneath. `table` is not empty.
THERMAL_API stepwise_choice choose_row(const stepwise_table& table, float t, float hysteresis);

struct stepwise_parameter {
    store_reference t_reference{1};
    float hysteresis = 0.0f;
    numbered_list<stepwise_row> rows;
};

// Maps temperatures to a fan duty by a table with hysteresis on the way down. The records share table and hold range;
// the largest duty is the result. A lost temperature counts as 0.0, mostly the lowest duty.
class THERMAL_API common_thermal_algorithm_stepwise : public algorithm_with_parameters<stepwise_parameter> {
public:
    explicit common_thermal_algorithm_stepwise(int instance);

    // Makes `count` rows anew, with zeros.
    void set_parameter_stepwise_count(unsigned index, unsigned count) { record(index).rows.set_size(count); }
    void set_parameter_dao_t(unsigned index, std::string key, int instance) {
        record(index).t_reference = store_reference(std::move(key), instance);
    }
    void set_parameter_hysteresis(unsigned index, float value) { record(index).hysteresis = value; }
    // What debug() shows of a row; the duty comes from the x pwm table.
    void set_parameter_x(unsigned index, unsigned row_number, float value) { row(index, row_number).x = value; }
    void set_parameter_pwm(unsigned index, unsigned row_number, float value) { row(index, row_number).pwm = value; }
    // An x that is there already keeps its first pwm.
    void set_x_pwm_table(float x, float pwm) { _x_pwm_table.emplace(x, pwm); }

    void parse_parameters(ini_file::std_handler* rules, const std::string& group) override;
    void poll(common_thermal_dao* dao, unsigned long timestamp) override;

private:
    void log_record(const stepwise_parameter& record, float t) const;

    stepwise_table _x_pwm_table;
    stepwise_choice _current;
};
