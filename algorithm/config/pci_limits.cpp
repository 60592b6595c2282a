#include "algorithm/config/pci_limits.hpp"

namespace {

using watt_p = adapter_settings_parameter<pci_max_watt_settings>;
using watt_row = adapter_settings<pci_max_watt_settings>;
using threshold_p = adapter_settings_parameter<pci_threshold_settings>;
using threshold_row = adapter_settings<pci_threshold_settings>;

constexpr auto watt_fields =
    joined_fields(identity_reference_fields<watt_p>,
                  std::array{
                      parameter<watt_p>{"\nw_key=", "PARAMETER_W_PREFIX", &watt_p::target, "PARAMETER_W_INST"},
                  });
constexpr auto watt_row_fields =
    joined_fields(identity_fields<watt_row>,
                  std::array{
                      parameter<watt_row>{.shown = "\nw=", .key = "PARAMETER_W", .member = &watt_row::w, .whole = true},
                  });
constexpr auto watt_matched =
    joined_fields(matched_identity_fields<watt_p>, std::array{
                                                       parameter<watt_p>{"\ncache_w=", nullptr, &watt_p::w},
                                                   });

constexpr parameter_layout<watt_p> watt_layout{
    .fields = watt_fields,
    .rows = {.count_key = "PARAMETER_XYZW_COUNT", .count_shown = "\nxyzw_count=", .fields = watt_row_fields},
    .behind_rows = watt_matched,
};

constexpr auto threshold_fields = joined_fields(
    std::array{
        parameter<threshold_p>{"\nt_key=", "PARAMETER_T_PREFIX", &threshold_p::target, "PARAMETER_T_INST"},
    },
    identity_reference_fields<threshold_p>);
constexpr auto threshold_row_fields = joined_fields(
    identity_fields<threshold_row>,
    std::array{
        parameter<threshold_row>{"\nnon_critical=", "PARAMETER_NON_CRITICAL", &threshold_row::non_critical},
        parameter<threshold_row>{"\ncritical=", "PARAMETER_CRITICAL", &threshold_row::critical},
        parameter<threshold_row>{"\nnon_recoverable=", "PARAMETER_NON_RECOVERABLE", &threshold_row::non_recoverable},
    });
constexpr auto threshold_matched =
    joined_fields(matched_identity_fields<threshold_p>,
                  std::array{
                      parameter<threshold_p>{"\ncache_non_critical=", nullptr, &threshold_p::non_critical},
                      parameter<threshold_p>{"\ncache_critical=", nullptr, &threshold_p::critical},
                      parameter<threshold_p>{"\ncache_non_recoverable=", nullptr, &threshold_p::non_recoverable},
                  });

constexpr parameter_layout<threshold_p> threshold_layout{
    .fields = threshold_fields,
    .rows = {.count_key = "PARAMETER_TXYZ_COUNT", .count_shown = "\ntxyz_count=", .fields = threshold_row_fields},
    .behind_rows = threshold_matched,
};

}  // namespace

common_thermal_algorithm_config_pci_max_watt::common_thermal_algorithm_config_pci_max_watt(int instance)
    : adapter_settings_algorithm<pci_max_watt_settings>(watt_layout, "common_thermal_algorithm_config_pci_max_watt",
                                                        instance, common_thermal_utils::talg_config_pci_max_watt) {}

void common_thermal_algorithm_config_pci_max_watt::poll(common_thermal_dao* dao, unsigned long) {
    set_result(0.0f);
    for_each_match(*dao, [&](watt_p& slot, const watt_row& row) {
        set_result(row.w);
        slot.remember(row);
        slot.publish(*dao, row);
    });
}

common_thermal_algorithm_config_pci_list_threshold::common_thermal_algorithm_config_pci_list_threshold(int instance)
    : adapter_settings_algorithm<pci_threshold_settings>(threshold_layout,
                                                         "common_thermal_algorithm_config_pci_list_threshold", instance,
                                                         common_thermal_utils::talg_config_pci_list_threshold) {}

void common_thermal_algorithm_config_pci_list_threshold::poll(common_thermal_dao* dao, unsigned long) {
    set_result(0.0f);
    for_each_match(*dao, [&](threshold_p& slot, const threshold_row& row) {
        slot.remember(row);
        slot.publish(*dao, row);
    });
}
