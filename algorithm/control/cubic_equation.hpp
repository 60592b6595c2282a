#pragma once

#include "algorithm/control/cubic.hpp"
#include "algorithm/parameter_table.hpp"

// The first class takes x as it comes.
struct cubic_equation_parameter : cubic_curve {
    store_reference x_reference{1};
    float r = 0.0f;
    float x_min = 0.0f;
    float x_max = 100.0f;
    float r_max = 100.0f;
};

// Fan curves without memory: r = a x^3 + b x^2 + c x + d, r_max at most. The largest output of the records is the
// result, 0.0 where all are negative or have lost their x, which is a claim.
class THERMAL_API cubic_equation_rule : public algorithm_with_parameters<cubic_equation_parameter> {
public:
    void set_parameter_x(unsigned index, std::string key, int instance) {
        record(index).x_reference = store_reference(std::move(key), instance);
    }
    void set_parameter_a(unsigned index, float value) { record(index).a = value; }
    void set_parameter_b(unsigned index, float value) { record(index).b = value; }
    void set_parameter_c(unsigned index, float value) { record(index).c = value; }
    void set_parameter_d(unsigned index, float value) { record(index).d = value; }
    void set_parameter_r_max(unsigned index, float value) { record(index).r_max = value; }

    void poll(common_thermal_dao* dao, unsigned long timestamp) override;

protected:
    cubic_equation_rule(const parameter_layout<cubic_equation_parameter>& layout, const char* name, int instance,
                        bool limits_x);

private:
    void log_record(const cubic_equation_parameter& record, float x) const;

    bool _limits_x;
};

class THERMAL_API common_thermal_algorithm_cubic_equation : public cubic_equation_rule {
public:
    explicit common_thermal_algorithm_cubic_equation(int instance);
};

// Keeps x within x_min and x_max first; x_max wins where they are crossed.
class THERMAL_API common_thermal_algorithm_cubic_equation_v2 : public cubic_equation_rule {
public:
    explicit common_thermal_algorithm_cubic_equation_v2(int instance);

    void set_parameter_x_min(unsigned index, float value) { record(index).x_min = value; }
    void set_parameter_x_max(unsigned index, float value) { record(index).x_max = value; }
};
