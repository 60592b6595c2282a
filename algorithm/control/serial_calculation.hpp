#pragma once

#include "algorithm/control/cubic.hpp"
#include "algorithm/parameter_table.hpp"

struct serial_calculation_row : cubic_curve {
    store_reference target{"NA", 0};
    store_reference sdao{"NA", 0};
    float sval = 0.0f;
    bool assertion = false;  // the gate has been open at least once
    float rmax = 0.0f;
    std::string ops = "NA";
};

struct serial_calculation_parameter {
    numbered_list<serial_calculation_row> rows;
};

// Folds a chain of cubic terms into one number, from 0.0 and strictly from left to right through rows and records, for
// other rules to read. A row counts while its gate value has reached sval. A lost value counts as 0.0, and so opens a
// gate of 0.0. A division by 0.0 gives an infinity or NaN, which is published. It never drives a fan.
class THERMAL_API common_thermal_algorithm_serial_calculation
    : public algorithm_with_parameters<serial_calculation_parameter> {
public:
    explicit common_thermal_algorithm_serial_calculation(int instance);

    // Makes `count` rows anew, with their start values.
    void set_parameter_tsabcd_count(unsigned index, unsigned count) { record(index).rows.set_size(count); }
    void set_parameter_dao_target(unsigned index, unsigned row_number, std::string key, int instance) {
        row(index, row_number).target = store_reference(std::move(key), instance);
    }
    void set_parameter_dao_s(unsigned index, unsigned row_number, std::string key, int instance) {
        row(index, row_number).sdao = store_reference(std::move(key), instance);
    }
    void set_parameter_s(unsigned index, unsigned row_number, float value) { row(index, row_number).sval = value; }
    void set_parameter_a(unsigned index, unsigned row_number, float value) { row(index, row_number).a = value; }
    void set_parameter_b(unsigned index, unsigned row_number, float value) { row(index, row_number).b = value; }
    void set_parameter_c(unsigned index, unsigned row_number, float value) { row(index, row_number).c = value; }
    void set_parameter_d(unsigned index, unsigned row_number, float value) { row(index, row_number).d = value; }
    void set_parameter_rmax(unsigned index, unsigned row_number, float value) { row(index, row_number).rmax = value; }
    // "ADD", "MUL" or "DIV"; any other text leaves the chain alone.
    void set_parameter_ops(unsigned index, unsigned row_number, std::string ops) {
        row(index, row_number).ops = std::move(ops);
    }

    // A list of fans in the rule is not read.
    void parse_action(ini_file::std_handler*, const std::string&) override {}
    void poll(common_thermal_dao* dao, unsigned long timestamp) override;

private:
    void log_row(const serial_calculation_row& row, float chain, float r, float t, float s) const;
};
