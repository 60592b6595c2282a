#pragma once

#include "algorithm/parameter_table.hpp"
#include "foundation/float_conversion.hpp"

// A part of the machine, such as a processor or a DIMM; present while x is not 0.
struct sensor_capping_row {
    store_reference x_reference;
    store_reference y_reference;
    float x = 0.0f;
    float y = 0.0f;  // watts, of the class that knows the power of each part
};

struct sensor_capping_parameter {
    numbered_list<sensor_capping_row> rows;
    float rate = 0.0f;  // percent, or watts of one part
    float r = 0.0f;
    float r_min = 100.0f;
    float sum = 0.0f;
};

// The fraction is lost at each addition, so fractions of a watt never add up.
constexpr std::uint32_t add_watts(std::uint32_t sum, float watts) {
    return saturate_to_unsigned(static_cast<float>(sum) + watts);
}

struct sensor_capping_class;

// Caps that follow from what is installed. Each record gives a candidate in watts, never below its r_min; the result is
// the lowest one, 65535.0 without records. A value that is not in the store is 0: no part, or a part without power.
class THERMAL_API sensor_capping_rule : public algorithm_with_parameters<sensor_capping_parameter> {
public:
    void set_parameter_x(unsigned index, unsigned sub_index, std::string key, int instance) {
        row(index, sub_index).x_reference = store_reference(std::move(key), instance);
    }
    void set_parameter_r_min(unsigned index, float value) { record(index).r_min = value; }

    void poll(common_thermal_dao* dao, unsigned long timestamp) override;

protected:
    sensor_capping_rule(const char* name, int instance, const sensor_capping_class& kind);

    // Frees the parts of a record and makes `count` new ones.
    void set_row_count(unsigned index, unsigned count) { record(index).rows.set_size(count); }

private:
    std::uint32_t add_up(parameter_t& entry, const common_thermal_dao& dao) const;

    const sensor_capping_class& _kind;
};

// The parts of all classes but one are counted by presence alone, or are readings themselves.
class THERMAL_API sensor_x_capping_rule : public sensor_capping_rule {
public:
    void set_parameter_x_count(unsigned index, unsigned count) { set_row_count(index, count); }

protected:
    using sensor_capping_rule::sensor_capping_rule;
};

// A share of the power of the processors that are present.
class THERMAL_API common_thermal_algorithm_sensor_capping_cpu_percentage : public sensor_capping_rule {
public:
    explicit common_thermal_algorithm_sensor_capping_cpu_percentage(int instance);
    void set_parameter_xy_count(unsigned index, unsigned count) { set_row_count(index, count); }
    void set_parameter_y(unsigned index, unsigned sub_index, std::string key, int instance) {
        row(index, sub_index).y_reference = store_reference(std::move(key), instance);
    }
    void set_parameter_percentage(unsigned index, float value) { record(index).rate = value; }
};

// So many watts for each processor that is present.
class THERMAL_API common_thermal_algorithm_sensor_capping_cpu_constant : public sensor_x_capping_rule {
public:
    explicit common_thermal_algorithm_sensor_capping_cpu_constant(int instance);
    void set_parameter_per_cpu_watt(unsigned index, float value) { record(index).rate = value; }
};

// So many watts for each memory module that is present.
class THERMAL_API common_thermal_algorithm_sensor_capping_dimm : public sensor_x_capping_rule {
public:
    explicit common_thermal_algorithm_sensor_capping_dimm(int instance);
    void set_parameter_per_dimm_watt(unsigned index, float value) { record(index).rate = value; }
};

// The same under another name.
class THERMAL_API common_thermal_algorithm_sensor_capping_dimm_constant : public sensor_x_capping_rule {
public:
    explicit common_thermal_algorithm_sensor_capping_dimm_constant(int instance);
    void set_parameter_per_dimm_watt(unsigned index, float value) { record(index).rate = value; }
};

// A percentage for the memory instead of watts: the result stays 65535.0.
class THERMAL_API common_thermal_algorithm_sensor_capping_dimm_percentage : public sensor_x_capping_rule {
public:
    explicit common_thermal_algorithm_sensor_capping_dimm_percentage(int instance);
    void set_parameter_percentage(unsigned index, float value) { record(index).rate = value; }

    void parse_action(ini_file::std_handler* rules, const std::string& group) override;
    void poll(common_thermal_dao* dao, unsigned long timestamp) override;
    // Of the first record alone; 100 without one.
    std::uint16_t get_capping_percentage();
};

// A share of the sum of power readings.
class THERMAL_API common_thermal_algorithm_sensor_capping_system_percentage : public sensor_x_capping_rule {
public:
    explicit common_thermal_algorithm_sensor_capping_system_percentage(int instance);
    void set_parameter_percentage(unsigned index, float value) { record(index).rate = value; }
};

struct constant_capping_parameter {
    float watt = 0.0f;
    float r = 0.0f;
};

// A cap that the rule gives outright.
class THERMAL_API common_thermal_algorithm_sensor_capping_system_constant
    : public algorithm_with_parameters<constant_capping_parameter> {
public:
    explicit common_thermal_algorithm_sensor_capping_system_constant(int instance);
    void set_parameter_watt(unsigned index, float value) { record(index).watt = value; }

    void poll(common_thermal_dao* dao, unsigned long timestamp) override;
};
