#include "algorithm/capping/sensor_capping.hpp"

#include "algorithm/limit.hpp"
#include "foundation/log_masks.hpp"

using utils = common_thermal_utils;

namespace {

using p = sensor_capping_parameter;
using r = sensor_capping_row;
using alg = common_thermal_algorithm;

constexpr float no_cap = 65535.0f;
constexpr std::uint16_t no_cap_word = 65535;
constexpr std::uint16_t whole = 100;

constexpr const char* x_prefix = "PARAMETER_X_PREFIX";
constexpr const char* x_instance = "PARAMETER_X_INST";

constexpr parameter<r> powered_part_fields[] = {
    {"\nx_key=", x_prefix, &r::x_reference, x_instance},
    {"\ny_key=", "PARAMETER_Y_PREFIX", &r::y_reference, "PARAMETER_Y_INST"},
    {"\nx(presence)=", nullptr, &r::x},
    {"\ny(tdp)=", nullptr, &r::y},
};
constexpr parameter<r> part_fields[] = {
    {"\nx_key=", x_prefix, &r::x_reference, x_instance},
    {"\nx(presence)=", nullptr, &r::x},
};
constexpr parameter<r> reading_fields[] = {
    {"\nx_key=", x_prefix, &r::x_reference, x_instance},
    {"\nx(sys_power)=", nullptr, &r::x},
};

constexpr parameter<p> percentage{"\npercentage=", "PARAMETER_PERCENTAGE", &p::rate};
constexpr parameter<p> per_dimm_watt{"\nper_dimm_watt=", "PARAMETER_PER_DIMM_WATT", &p::rate};
constexpr parameter<p> candidate{"\nr=", nullptr, &p::r};
constexpr parameter<p> r_min{"\nr_min=", "PARAMETER_R_MIN", &p::r_min};

constexpr parameter<p> cpu_percentage_fields[] = {percentage, {"\ntdp_sum=", nullptr, &p::sum}, candidate, r_min};
constexpr parameter<p> cpu_constant_fields[] = {
    {"\nper_cpu_watt=", "PARAMETER_PER_CPU_WATT", &p::rate},
    {"\ncpu_watt_sum=", nullptr, &p::sum},
    candidate,
    r_min,
};
constexpr parameter<p> dimm_fields[] = {per_dimm_watt, candidate, r_min};
constexpr parameter<p> dimm_percentage_fields[] = {{"\nper_dimm_max_watt= NA"}, percentage, candidate, r_min};
constexpr parameter<p> system_percentage_fields[] = {percentage, candidate, r_min};

constexpr parameter_layout<p> cpu_percentage_layout{
    .fields = {},
    .closing = "\nr=sum(y)/sum(x)",
    .rows = {"PARAMETER_XY_COUNT", nullptr, "\nxy_index=", powered_part_fields},
    .behind_rows = cpu_percentage_fields,
};
constexpr parameter_layout<p> cpu_constant_layout{
    .fields = {},
    .rows = {"PARAMETER_X_COUNT", nullptr, "\nxy_index=", part_fields},
    .behind_rows = cpu_constant_fields,
};
constexpr parameter_layout<p> dimm_layout{
    .fields = {},
    .closing = "\nr=sum(x)*per_dimm_watt",
    .rows = {"PARAMETER_X_COUNT", nullptr, "\nx_index=", part_fields},
    .behind_rows = dimm_fields,
};
constexpr parameter_layout<p> dimm_percentage_layout{
    .fields = {},
    .closing = "\nr=percentage",
    .rows = {"PARAMETER_X_COUNT", nullptr, "\nx_index=", part_fields},
    .behind_rows = dimm_percentage_fields,
};
constexpr parameter_layout<p> system_percentage_layout{
    .fields = {},
    .closing = "\nr=sum(x)*percentage",
    .rows = {"PARAMETER_X_COUNT", nullptr, "\nx_index=", reading_fields},
    .behind_rows = system_percentage_fields,
};

// What a class adds up over the parts of a record, and what it makes of that.
enum capping_sum { power_of_parts, rate_of_parts, number_of_parts, all_readings };
enum capping_candidate { rate_times_sum, share_of_sum, sum_itself, rate_itself };

struct capping_domain {
    utils::talg_type_t type;
    std::uint32_t action;
};

constexpr capping_domain processors{utils::talg_sensor_capping_cpu, alg::action_capping_cpu};
constexpr capping_domain memory{utils::talg_sensor_capping_dimm, alg::action_capping_dimm};
constexpr capping_domain memory_share{utils::talg_sensor_capping_dimm_percentage, alg::action_capping_dimm};
constexpr capping_domain whole_system{utils::talg_sensor_capping_system, alg::action_capping_system};

}  // namespace

struct sensor_capping_class {
    capping_domain domain;
    const parameter_layout<sensor_capping_parameter>& layout;
    capping_sum sum;
    capping_candidate candidate;
};

namespace {

constexpr sensor_capping_class cpu_percentage{processors, cpu_percentage_layout, power_of_parts, share_of_sum};
constexpr sensor_capping_class cpu_constant{processors, cpu_constant_layout, rate_of_parts, sum_itself};
constexpr sensor_capping_class dimm{memory, dimm_layout, number_of_parts, rate_times_sum};
constexpr sensor_capping_class dimm_percentage{memory_share, dimm_percentage_layout, number_of_parts, rate_itself};
constexpr sensor_capping_class system_percentage{whole_system, system_percentage_layout, all_readings, share_of_sum};

float addend(capping_sum what, const sensor_capping_parameter& entry, const sensor_capping_row& part) {
    switch (what) {
        case power_of_parts:
            return part.y;
        case rate_of_parts:
            return entry.rate;
        case all_readings:
            return part.x;
        case number_of_parts:
            break;
    }
    return 1.0f;
}

float candidate_of(capping_candidate how, float factor, float sum) {
    switch (how) {
        case sum_itself:
            return sum;
        case rate_itself:
            return factor;
        default:
            return factor * sum;
    }
}

}  // namespace

sensor_capping_rule::sensor_capping_rule(const char* name, int instance, const sensor_capping_class& kind)
    : algorithm_with_parameters(kind.layout, name, instance, kind.domain.type, kind.domain.action), _kind(kind) {}

void sensor_capping_rule::poll(common_thermal_dao* dao, unsigned long) {
    const bool is_watts = _kind.candidate != rate_itself;
    const bool is_share = _kind.candidate == share_of_sum;
    float lowest = no_cap;
    for (auto& [number, entry] : records()) {
        const std::uint32_t sum = add_up(entry, *dao);
        const float factor = is_share ? entry.rate / 100.0f : entry.rate;
        entry.sum = static_cast<float>(sum);
        entry.r = at_least(candidate_of(_kind.candidate, factor, entry.sum), entry.r_min);
        if (is_watts && lowest > entry.r) {
            lowest = entry.r;
        }
        if (LOG::is_enabled(log_mask::calculation)) {
            LOG::log(log_source, log_mask::calculation, "%s::%s - [%3.2f, %3.2f]=%d, %3.2f\n", get_name().c_str(),
                     get_key_custom_result().c_str(), shown(entry.r_min), shown(entry.r), static_cast<int>(sum),
                     shown(factor));
        }
    }
    set_result(lowest);
}

std::uint32_t sensor_capping_rule::add_up(parameter_t& entry, const common_thermal_dao& dao) const {
    std::uint32_t sum = 0;
    for (auto& [number, part] : entry.rows) {
        part.x = part.y = 0.0f;
        part.x_reference.fetch(dao, &part.x);
        if (part.x == 0.0f) {
            continue;
        }
        if (_kind.sum == power_of_parts) {
            part.y_reference.fetch(dao, &part.y);
        }
        sum = add_watts(sum, addend(_kind.sum, entry, part));
    }
    return sum;
}

common_thermal_algorithm_sensor_capping_cpu_percentage::common_thermal_algorithm_sensor_capping_cpu_percentage(
    int instance)
    : sensor_capping_rule("common_thermal_algorithm_sensor_capping_cpu_percentage", instance, cpu_percentage) {}

common_thermal_algorithm_sensor_capping_cpu_constant::common_thermal_algorithm_sensor_capping_cpu_constant(int instance)
    : sensor_x_capping_rule("common_thermal_algorithm_sensor_capping_cpu_constant", instance, cpu_constant) {}

common_thermal_algorithm_sensor_capping_dimm::common_thermal_algorithm_sensor_capping_dimm(int instance)
    : sensor_x_capping_rule("common_thermal_algorithm_sensor_capping_dimm", instance, dimm) {}

common_thermal_algorithm_sensor_capping_dimm_constant::common_thermal_algorithm_sensor_capping_dimm_constant(
    int instance)
    : sensor_x_capping_rule("common_thermal_algorithm_sensor_capping_dimm_constant", instance, dimm) {}

common_thermal_algorithm_sensor_capping_dimm_percentage::common_thermal_algorithm_sensor_capping_dimm_percentage(
    int instance)
    : sensor_x_capping_rule("common_thermal_algorithm_sensor_capping_dimm_percentage", instance, dimm_percentage) {}

void common_thermal_algorithm_sensor_capping_dimm_percentage::parse_action(ini_file::std_handler* rules,
                                                                           const std::string& group) {
    sensor_capping_rule::parse_action(rules, group);
    set_action_sensor_capping_dimm_percentage(no_cap_word);
}

void common_thermal_algorithm_sensor_capping_dimm_percentage::poll(common_thermal_dao* dao, unsigned long timestamp) {
    sensor_capping_rule::poll(dao, timestamp);
    set_action_sensor_capping_dimm_percentage(get_capping_percentage());
}

std::uint16_t common_thermal_algorithm_sensor_capping_dimm_percentage::get_capping_percentage() {
    return records().empty() ? whole : saturate_to_word(records().begin()->record.rate);
}

common_thermal_algorithm_sensor_capping_system_percentage::common_thermal_algorithm_sensor_capping_system_percentage(
    int instance)
    : sensor_x_capping_rule("common_thermal_algorithm_sensor_capping_system_percentage", instance, system_percentage) {}

namespace {

using c = constant_capping_parameter;

constexpr parameter<c> constant_fields[] = {
    {.shown = "\nwatt=", .key = "PARAMETER_WATT", .member = &c::watt, .missing = "100"},
    {.shown = "\nr=", .member = &c::r},
};
constexpr parameter_layout<c> constant_layout{.fields = constant_fields, .closing = "\nr=watt"};

}  // namespace

common_thermal_algorithm_sensor_capping_system_constant::common_thermal_algorithm_sensor_capping_system_constant(
    int instance)
    : algorithm_with_parameters(constant_layout, "common_thermal_algorithm_sensor_capping_system_constant", instance,
                                utils::talg_sensor_capping_system, action_capping_system) {}

void common_thermal_algorithm_sensor_capping_system_constant::poll(common_thermal_dao*, unsigned long) {
    float lowest = no_cap;
    for (auto& [number, entry] : records()) {
        entry.r = entry.watt;
        if (lowest > entry.r) {
            lowest = entry.r;
        }
        if (LOG::is_enabled(log_mask::calculation)) {
            LOG::log(log_source, log_mask::calculation, "%s::%s - [%3.2f]=%3.2f\n", get_name().c_str(),
                     get_key_custom_result().c_str(), shown(entry.r), shown(entry.watt));
        }
    }
    set_result(lowest);
}
