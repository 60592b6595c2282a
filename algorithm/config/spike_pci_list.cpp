#include "algorithm/config/spike_pci_list.hpp"

namespace {

using range_p = adapter_settings_parameter<spike_settings>;
using range_row = adapter_settings<spike_settings>;
using delta_p = adapter_settings_parameter<spike_delta_settings>;
using delta_row = adapter_settings<spike_delta_settings>;

template <class Record>
constexpr auto slot_fields = joined_fields(
    std::array{
        parameter<Record>{"\ntarget_key=", "PARAMETER_SPIKE_TARGET_PREFIX", &Record::target,
                          "PARAMETER_SPIKE_TARGET_INST"},
    },
    identity_reference_fields<Record>);

constexpr auto range_row_fields = joined_fields(identity_fields<range_row>, spike_fields<range_row>);
constexpr auto delta_row_fields = joined_fields(identity_fields<delta_row>, spike_delta_fields<delta_row>);

constexpr auto range_matched =
    joined_fields(matched_identity_fields<range_p>,
                  std::array{
                      parameter<range_p>{"\ncache_spike_max=", nullptr, &range_p::spike_max},
                      parameter<range_p>{"\ncache_spike_critical=", nullptr, &range_p::spike_critical},
                      parameter<range_p>{"\ncache_spike_critical_low=", nullptr, &range_p::spike_critical_low},
                      parameter<range_p>{"\ncache_spike_critical_high=", nullptr, &range_p::spike_critical_high},
                  });
constexpr auto delta_matched =
    joined_fields(matched_identity_fields<delta_p>,
                  std::array{
                      parameter<delta_p>{"\ncache_spike_delta_max=", nullptr, &delta_p::spike_delta_max},
                      parameter<delta_p>{"\ncache_spike_delta=", nullptr, &delta_p::spike_delta},
                  });

constexpr const char* count_key = "PARAMETER_XYZSPIKE_COUNT";
constexpr const char* count_shown = "\nxyzspike_count=";

constexpr parameter_layout<range_p> range_layout{
    .fields = slot_fields<range_p>,
    .rows = {.count_key = count_key, .count_shown = count_shown, .fields = range_row_fields},
    .behind_rows = range_matched,
};
constexpr parameter_layout<delta_p> delta_layout{
    .fields = slot_fields<delta_p>,
    .rows = {.count_key = count_key, .count_shown = count_shown, .fields = delta_row_fields},
    .behind_rows = delta_matched,
};

}  // namespace

common_thermal_algorithm_config_spike_pci_list::common_thermal_algorithm_config_spike_pci_list(int instance)
    : spike_pci_list(range_layout, "common_thermal_algorithm_config_spike_pci_list", instance,
                     common_thermal_utils::talg_config_spike_pci_list) {}

common_thermal_algorithm_config_spike_delta_pci_list::common_thermal_algorithm_config_spike_delta_pci_list(int instance)
    : spike_pci_list(delta_layout, "common_thermal_algorithm_config_spike_delta_pci_list", instance,
                     common_thermal_utils::talg_config_spike_pci_list) {}
