#include "sensor_map/ipmi_sdr_map_algorithm.hpp"

namespace {

using p = ipmi_sdr_map_parameter;

constexpr parameter<p> fields[] = {
    {"\nx_key=", "PARAMETER_X_PREFIX", &p::x_reference, "PARAMETER_X_INST"},
    {"\nx=0.000000\nr=0.000000"},
    {"\nmap_key=", "PARAMETER_MAP_KEY", &p::map_key},
    {"\nsel_lower_threshold=", "PARAMETER_X_SEL_LOWER_THRESHOLD", &p::sel_lower_threshold},
    {"\nsel_non_critical=", "PARAMETER_X_SEL_NON_CRITICAL", &p::sel_non_critical, nullptr, "255"},
    {"\nsel_critical=", "PARAMETER_X_SEL_CRITICAL", &p::sel_critical, nullptr, "255"},
    {"\nsel_non_recoverable=", "PARAMETER_X_SEL_NON_RECOVERABLE", &p::sel_non_recoverable, nullptr, "255"},
    {"\nsdr_display_valid_range_min=", "PARAMETER_X_SDR_DISPLAY_VALID_RANGE_MIN", &p::sdr_display_valid_range_min},
    {"\nsdr_display_valid_range_max=", "PARAMETER_X_SDR_DISPLAY_VALID_RANGE_MAX", &p::sdr_display_valid_range_max,
     nullptr, "255"},
};

constexpr parameter_layout<p> layout{.fields = fields, .closing = "\nr= x"};

}  // namespace

void ipmi_sdr_map_parameter::complete() {
    const bool lower = sel_lower_threshold;
    const auto place = [this](const char* prefix) {
        return store_reference(prefix + x_reference.name(), x_reference.instance());
    };
    settings = {place("3LTHD."),
                place(lower ? "3LSNC." : "3SNC."),
                place(lower ? "3LSCR." : "3SC."),
                place(lower ? "3LSNR." : "3SNR."),
                place("3MIN."),
                place("3MAX.")};
}

common_thermal_algorithm_ipmi_sdr_map::common_thermal_algorithm_ipmi_sdr_map(int instance)
    : algorithm_with_parameters(layout, "common_thermal_algorithm_ipmi_sdr_map", instance,
                                common_thermal_utils::talg_ipmi_sdr_map) {}

void common_thermal_algorithm_ipmi_sdr_map::poll(common_thermal_dao* dao, unsigned long) {
    set_result(0.0f);
    for (auto& [number, record] : records()) {
        dao->update_ipmi_sdr_key_dao(record.map_key, record.x_reference.name(), record.x_reference.instance());
        const std::array values{record.sel_lower_threshold ? 1.0f : 0.0f,
                                record.sel_non_critical,
                                record.sel_critical,
                                record.sel_non_recoverable,
                                record.sdr_display_valid_range_min,
                                record.sdr_display_valid_range_max};
        for (std::size_t i = 0; i < values.size(); ++i) {
            record.settings[i].store(*dao, values[i]);
        }
    }
}
