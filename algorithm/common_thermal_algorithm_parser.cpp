#include "algorithm/common_thermal_algorithm_parser.hpp"

#include <algorithm>
#include <iterator>

#include "algorithm/capping/level_capping.hpp"
#include "algorithm/capping/nvme_device.hpp"
#include "algorithm/capping/sensor_capping.hpp"
#include "algorithm/config/nvme_cap_params.hpp"
#include "algorithm/config/pci_limits.hpp"
#include "algorithm/config/spike.hpp"
#include "algorithm/config/spike_pci_list.hpp"
#include "algorithm/control/cubic_equation.hpp"
#include "algorithm/control/log.hpp"
#include "algorithm/control/pid.hpp"
#include "algorithm/control/serial_calculation.hpp"
#include "algorithm/control/stepwise.hpp"
#include "algorithm/control/support_list_pci_pid.hpp"
#include "algorithm/control/support_list_pci_tier.hpp"
#include "algorithm/control/threshold.hpp"
#include "algorithm/rule_group.hpp"
#include "sensor_map/ipmi_sdr_map_algorithm.hpp"

namespace {

constexpr const char* override_path = "/tmp/ThermalAlgorithm.ini";
constexpr std::string_view rule_suffix = ".ALGORITHM";

using algorithm_factory = std::unique_ptr<common_thermal_algorithm> (*)(int instance);

template <class Algorithm>
std::unique_ptr<common_thermal_algorithm> new_rule(int instance) {
    return std::make_unique<Algorithm>(instance);
}

struct rule_type {
    std::string_view name;
    algorithm_factory make;
};

// The types a rule can name, each under its class name.
constexpr rule_type rule_types[] = {
    {"common_thermal_algorithm_cubic_equation", new_rule<common_thermal_algorithm_cubic_equation>},
    {"common_thermal_algorithm_cubic_equation_v2", new_rule<common_thermal_algorithm_cubic_equation_v2>},
    {"common_thermal_algorithm_pid", new_rule<common_thermal_algorithm_pid>},
    {"common_thermal_algorithm_pid_v2", new_rule<common_thermal_algorithm_pid_v2>},
    {"common_thermal_algorithm_pid_v3", new_rule<common_thermal_algorithm_pid_v3>},
    {"common_thermal_algorithm_threshold", new_rule<common_thermal_algorithm_threshold>},
    {"common_thermal_algorithm_threshold_v2", new_rule<common_thermal_algorithm_threshold_v2>},
    {"common_thermal_algorithm_ipmi_sdr_map", new_rule<common_thermal_algorithm_ipmi_sdr_map>},
    {"common_thermal_algorithm_sensor_capping_cpu_percentage",
     new_rule<common_thermal_algorithm_sensor_capping_cpu_percentage>},
    {"common_thermal_algorithm_sensor_capping_cpu_constant",
     new_rule<common_thermal_algorithm_sensor_capping_cpu_constant>},
    {"common_thermal_algorithm_sensor_capping_dimm", new_rule<common_thermal_algorithm_sensor_capping_dimm>},
    {"common_thermal_algorithm_sensor_capping_dimm_percentage",
     new_rule<common_thermal_algorithm_sensor_capping_dimm_percentage>},
    {"common_thermal_algorithm_sensor_capping_dimm_constant",
     new_rule<common_thermal_algorithm_sensor_capping_dimm_constant>},
    {"common_thermal_algorithm_sensor_capping_system_percentage",
     new_rule<common_thermal_algorithm_sensor_capping_system_percentage>},
    {"common_thermal_algorithm_sensor_capping_system_constant",
     new_rule<common_thermal_algorithm_sensor_capping_system_constant>},
    {"common_thermal_algorithm_sensor_capping_power_permission",
     new_rule<common_thermal_algorithm_sensor_capping_power_permission>},
    {"common_thermal_algorithm_sensor_capping_fan_percentage",
     new_rule<common_thermal_algorithm_sensor_capping_fan_percentage>},
    {"common_thermal_algorithm_sensor_capping_pciegen_pwrbrk",
     new_rule<common_thermal_algorithm_sensor_capping_pciegen_pwrbrk>},
    {"common_thermal_algorithm_sensor_capping_gpu_percentage",
     new_rule<common_thermal_algorithm_sensor_capping_gpu_percentage>},
    {"common_thermal_algorithm_sensor_capping_nvme_device",
     new_rule<common_thermal_algorithm_sensor_capping_nvme_device>},
    {"common_thermal_algorithm_support_list_pci_pid", new_rule<common_thermal_algorithm_support_list_pci_pid>},
    {"common_thermal_algorithm_support_list_pci_pid_v2", new_rule<common_thermal_algorithm_support_list_pci_pid_v2>},
    {"common_thermal_algorithm_support_list_pci_pid_v3", new_rule<common_thermal_algorithm_support_list_pci_pid_v3>},
    {"common_thermal_algorithm_support_list_pci_tier", new_rule<common_thermal_algorithm_support_list_pci_tier>},
    {"common_thermal_algorithm_stepwise", new_rule<common_thermal_algorithm_stepwise>},
    {"common_thermal_algorithm_log", new_rule<common_thermal_algorithm_log>},
    {"common_thermal_algorithm_config_spike", new_rule<common_thermal_algorithm_config_spike>},
    {"common_thermal_algorithm_config_spike_delta", new_rule<common_thermal_algorithm_config_spike_delta>},
    {"common_thermal_algorithm_config_spike_pci_list", new_rule<common_thermal_algorithm_config_spike_pci_list>},
    {"common_thermal_algorithm_config_spike_delta_pci_list",
     new_rule<common_thermal_algorithm_config_spike_delta_pci_list>},
    {"common_thermal_algorithm_config_pci_max_watt", new_rule<common_thermal_algorithm_config_pci_max_watt>},
    {"common_thermal_algorithm_config_pci_list_threshold",
     new_rule<common_thermal_algorithm_config_pci_list_threshold>},
    {"common_thermal_algorithm_config_nvme_cap_params", new_rule<common_thermal_algorithm_config_nvme_cap_params>},
    {"common_thermal_algorithm_config_nvme_cap_params_v2",
     new_rule<common_thermal_algorithm_config_nvme_cap_params_v2>},
    {"common_thermal_algorithm_serial_calculation", new_rule<common_thermal_algorithm_serial_calculation>},
};

void parse(common_thermal_algorithm& rule, ini_file::std_handler& rules, const std::string& group) {
    rule.parse_result_name(&rules, group);
    rule.parse_parameters(&rules, group);
    rule.parse_conditions(&rules, group);
    rule.parse_action(&rules, group);
}

}  // namespace

void common_thermal_algorithm_parser::generate_algorithm_rule(const std::string& path, algorithm_list* list,
                                                              rule_set& set) {
    set.group = "SUMMARY";
    set.announced = 0;
    ini_file::std_handler rules;
    if (rules.read_ini(override_path) != 0) {
        rules.read_ini(path.c_str());
    }
    set.announced = rule_group(rules, set.group.c_str()).integer("ALGORITHM_COUNT");
    list->free_all_thermal_algorithm_list();
    set.rules.clear();
    // A number without a group would only be skipped, so the groups that are there decide, however high the count is.
    for (const int number : rules.numbered_groups(rule_suffix, set.announced)) {
        set.group = std::to_string(number).append(rule_suffix);
        auto rule = make(rule_group(rules, set.group.c_str()).text("TYPE"),
                         static_cast<int>(list->get_thermal_algorithm_size() + 1));
        if (rule == nullptr) {
            continue;
        }
        parse(*rule, rules, set.group);
        set.rules.push_back(std::move(rule));
        list->add_thermal_algorithm(static_cast<unsigned>(number), set.rules.back().get());
    }
    list->add_thermal_algorithm_done();
}

std::vector<std::string_view> common_thermal_algorithm_parser::types() {
    std::vector<std::string_view> names;
    std::ranges::transform(rule_types, std::back_inserter(names), &rule_type::name);
    return names;
}

std::unique_ptr<common_thermal_algorithm> common_thermal_algorithm_parser::make(std::string_view type, int instance) {
    const auto* row = std::ranges::find(rule_types, type, &rule_type::name);
    return row == std::end(rule_types) ? nullptr : row->make(instance);
}
