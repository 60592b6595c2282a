#include "algorithm/control/serial_calculation.hpp"

#include "foundation/float_conversion.hpp"
#include "foundation/log_masks.hpp"

namespace {

using row_t = serial_calculation_row;

// Tools read "targte" as it is.
constexpr parameter<row_t> row_fields[] = {
    {"\nassertion=", nullptr, &row_t::assertion},
    {.shown = "\ntargte=",
     .key = "PARAMETER_TARGET_PREFIX",
     .member = &row_t::target,
     .instance_key = "PARAMETER_TARGET_INST",
     .instance_shown = "\ntarget_inst="},
    {.shown = "\nsdao=",
     .key = "PARAMETER_S_DAO_PREFIX",
     .member = &row_t::sdao,
     .instance_key = "PARAMETER_S_DAO_INST",
     .instance_shown = "\nsdao_inst="},
    {"\nsval=", "PARAMETER_S_VAL", &row_t::sval},
    {"\na=", "PARAMETER_A", &row_t::a},
    {"\nb=", "PARAMETER_B", &row_t::b},
    {"\nc=", "PARAMETER_C", &row_t::c},
    {"\nd=", "PARAMETER_D", &row_t::d},
    {"\nrmax=", "PARAMETER_R_MAX", &row_t::rmax},
    {"\nops=", "PARAMETER_OPS", &row_t::ops},
};

constexpr parameter_layout<serial_calculation_parameter> layout{.fields = {},
                                                                .rows = {.count_key = "PARAMETER_TSABCD_COUNT",
                                                                         .count_shown = "\ntsabcd_count=",
                                                                         .heading = "\nTSABCD#",
                                                                         .fields = row_fields}};

float folded(float chain, const std::string& ops, float r) {
    if (ops == "ADD") return chain + r;
    if (ops == "MUL") return chain * r;
    if (ops == "DIV") return chain / r;
    return chain;
}

}  // namespace

common_thermal_algorithm_serial_calculation::common_thermal_algorithm_serial_calculation(int instance)
    : algorithm_with_parameters(layout, "common_thermal_algorithm_serial_calculation", instance,
                                common_thermal_utils::talg_serial_calculation, action_fan_map) {}

void common_thermal_algorithm_serial_calculation::poll(common_thermal_dao* dao, unsigned long) {
    float chain = 0.0f;
    for (auto& [number, record] : records()) {
        for (auto& [row_number, row] : record.rows) {
            float t = 0.0f;
            float s = 0.0f;
            row.target.fetch(*dao, &t);
            row.sdao.fetch(*dao, &s);
            if (s < row.sval) {
                continue;
            }
            row.assertion = true;
            const float r = cubic(row, t, row.rmax);
            chain = folded(chain, row.ops, r);
            if (LOG::is_enabled(log_mask::calculation | log_mask::outcome)) {
                log_row(row, chain, r, t, s);
            }
        }
        if (LOG::is_enabled(log_mask::calculation)) {
            LOG::log(log_source, log_mask::calculation, "%s::%s - Final result: %3.2f\n", get_name().c_str(),
                     get_key_custom_result().c_str(), shown(chain));
        }
    }
    set_result(chain);
}

void common_thermal_algorithm_serial_calculation::log_row(const serial_calculation_row& row, float chain, float r,
                                                          float t, float s) const {
    const char* class_name = get_name().c_str();
    LOG::log(log_source, log_mask::outcome, "%s.%d::%s\n", class_name, get_instance(), "poll");
    LOG::log(log_source, log_mask::calculation,
             "%s::%s - [%3.2f, %3.2f]=%3.2f, %3.2f, %3.2f, %3.2f, %3.2f, %s:[%3.2f, %3.2f]\n", class_name,
             get_key_custom_result().c_str(), shown(chain), shown(r), shown(t), shown(row.a), shown(row.b),
             shown(row.c), shown(row.d), row.ops.c_str(), shown(s), shown(row.sval));
}
