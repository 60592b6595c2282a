#include "algorithm/control/threshold.hpp"

#include "foundation/float_conversion.hpp"
#include "foundation/log_masks.hpp"

namespace {

using p = threshold_parameter;

constexpr parameter<p> shared_fields[] = {
    {"\nx_key=", "PARAMETER_X_PREFIX", &p::x_reference, "PARAMETER_X_INST"},
    {"\ny_key=", "PARAMETER_Y_PREFIX", &p::y_reference, "PARAMETER_Y_INST"},
    {"\nx=", nullptr, &p::x},
    {"\ny=", nullptr, &p::y},
    {"\ntcontrol=", "PARAMETER_X_TCONTROL", &p::tcontrol},
    {"\ntcritical=", "PARAMETER_X_TCRITICAL", &p::tcritical},
    {"\nx_guard_band=", "PARAMETER_X_GUARD_BAND", &p::x_guard_band},
    {"\nincremental=", "PARAMETER_Y_INCREMENTAL", &p::y_incremental},
};

constexpr parameter<p> output_fields[] = {
    {"\nr=", nullptr, &p::r},
    {"\nr_max=", "PARAMETER_R_MAX", &p::r_max},
};

constexpr parameter<p> ramp_fields[] = {
    {"\nincremental_poll_seconds=", "PARAMETER_Y_INCREMENTAL_POLL_SECONDS", &p::y_incremental_poll_seconds},
    {"\ndecremental=", "PARAMETER_Y_DECREMENTAL", &p::y_decremental},
    {"\ndecremental_poll_seconds=", "PARAMETER_Y_DECREMENTAL_POLL_SECONDS", &p::y_decremental_poll_seconds},
    {"\nr=", nullptr, &p::r},
    {"\nr_max=", "PARAMETER_R_MAX", &p::r_max},
};

constexpr parameter_layout<p> layout{
    .fields = shared_fields, .closing = "\nr=y + y_incremental", .behind_rows = output_fields};
constexpr parameter_layout<p> ramp_layout{.fields = shared_fields, .behind_rows = ramp_fields};

}  // namespace

void threshold_regulator::poll(common_thermal_dao* dao, unsigned long timestamp) {
    float largest = 0.0f;
    for (auto& [number, record] : records()) {
        float x = 0.0f;
        float y = 0.0f;
        if (record.x_reference.fetch(*dao, &x) && record.y_reference.fetch(*dao, &y)) {
            largest = std::max(largest, regulate(record, x, y, static_cast<std::uint32_t>(timestamp)));
        }
    }
    set_result(largest);
}

common_thermal_algorithm_threshold::common_thermal_algorithm_threshold(int instance)
    : threshold_regulator(layout, "common_thermal_algorithm_threshold", instance) {}

float common_thermal_algorithm_threshold::regulate(threshold_parameter& record, float x, float y, std::uint32_t) {
    const std::optional<float> output = threshold_step(record, x, y, _stepping);
    if (output) {
        record.x = x;
        record.y = y;
        record.r = *output;
    }
    if (LOG::is_enabled(log_mask::calculation)) {
        LOG::log(log_source, log_mask::calculation,
                 "%s::%s - [%3.2f, %3.2f]=%3.2f, %3.2f, %3.2f, %3.2f, %3.2f, %3.2f\n", get_name().c_str(),
                 get_key_custom_result().c_str(), shown(record.r_max), shown(record.r), shown(record.tcontrol),
                 shown(threshold_release(record)), shown(record.tcritical), shown(record.y_incremental), shown(x),
                 shown(y));
    }
    return output.value_or(0.0f);
}

common_thermal_algorithm_threshold_v2::common_thermal_algorithm_threshold_v2(int instance)
    : threshold_regulator(ramp_layout, "common_thermal_algorithm_threshold_v2", instance) {}

float common_thermal_algorithm_threshold_v2::regulate(threshold_parameter& record, float x, float y,
                                                      std::uint32_t now) {
    const bool was_stepping = _ramp.stepping;
    threshold_ramp_step(record, x, y, now, _ramp);
    record.x = x;
    record.y = y;
    record.r = _ramp.r;
    if (LOG::is_enabled(log_mask::calculation)) {
        LOG::log(log_source, log_mask::calculation, "%s::%s - [%3.2f, %3.2f]=%d, %d, %3.2f, %3.2f, %3.2f\n",
                 get_name().c_str(), get_key_custom_result().c_str(), shown(record.r_max), shown(record.r),
                 was_stepping ? 1 : 0, _ramp.stepping ? 1 : 0, shown(_ramp.r), shown(x), shown(y));
    }
    return _ramp.r;
}
