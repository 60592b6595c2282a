#include "algorithm/config/spike.hpp"

namespace {

using range_p = config_spike_parameter;
using delta_p = config_spike_delta_parameter;

template <class Record>
constexpr std::array<parameter<Record>, 1> target_field{{
    {"\nx_key=", "PARAMETER_SPIKE_TARGET_PREFIX", &Record::target, "PARAMETER_SPIKE_TARGET_INST"},
}};

constexpr auto range_fields = joined_fields(target_field<range_p>, spike_fields<range_p>);
constexpr auto delta_fields = joined_fields(target_field<delta_p>, spike_delta_fields<delta_p>);

constexpr parameter_layout<range_p> range_layout{.fields = range_fields};
constexpr parameter_layout<delta_p> delta_layout{.fields = delta_fields};

}  // namespace

common_thermal_algorithm_config_spike::common_thermal_algorithm_config_spike(int instance)
    : spike_config(range_layout, "common_thermal_algorithm_config_spike", instance,
                   common_thermal_utils::talg_config_spike) {}

common_thermal_algorithm_config_spike_delta::common_thermal_algorithm_config_spike_delta(int instance)
    : spike_config(delta_layout, "common_thermal_algorithm_config_spike_delta", instance,
                   common_thermal_utils::talg_config_spike) {}
