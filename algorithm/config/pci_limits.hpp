#pragma once

#include "algorithm/config/adapter_settings.hpp"

struct pci_max_watt_settings {
    float w = 0.0f;  // most power of the slot, in watts

    static constexpr auto published() {
        return std::array{published_setting<pci_max_watt_settings>{"4PMW.", &pci_max_watt_settings::w}};
    }
};

// Upper thresholds of a sensor; 255 counts as not set there.
struct pci_threshold_settings {
    float non_critical = 0.0f;
    float critical = 0.0f;
    float non_recoverable = 0.0f;

    static constexpr auto published() {
        using setting = published_setting<pci_threshold_settings>;
        return std::array{setting{"3SNC.", &pci_threshold_settings::non_critical},
                          setting{"3SC.", &pci_threshold_settings::critical},
                          setting{"3SNR.", &pci_threshold_settings::non_recoverable}};
    }
};

// Tells a slot device the most power of the adapter in it; the target has to have that device's instance. The result is the limit of the last slot matched. Without a match nothing is written, and a slot
// without an identified adapter ends the pass; its third identity value may be 0.0.
class THERMAL_API common_thermal_algorithm_config_pci_max_watt
    : public adapter_settings_algorithm<pci_max_watt_settings> {
public:
    explicit common_thermal_algorithm_config_pci_max_watt(int instance);

    // Rows 1 to `count`, all 0.0.
    void set_parameter_xyzw_count(unsigned index, unsigned count) { record(index).rows.set_size(count); }
    void set_parameter_dao_w(unsigned index, std::string key, int target_instance) {
        set_target(index, std::move(key), target_instance);
    }
    void set_parameter_w(unsigned index, unsigned row_number, float value) { row(index, row_number).w = value; }

    void poll(common_thermal_dao* dao, unsigned long timestamp) override;
};

// Gives a sensor the thresholds of the adapter in a slot, under the same rules as the power limit. The result stays 0.0.
class THERMAL_API common_thermal_algorithm_config_pci_list_threshold
    : public adapter_settings_algorithm<pci_threshold_settings> {
public:
    explicit common_thermal_algorithm_config_pci_list_threshold(int instance);

    // Rows 1 to `count`, all 0.0.
    void set_parameter_txyz_count(unsigned index, unsigned count) { record(index).rows.set_size(count); }
    void set_parameter_dao_t(unsigned index, std::string key, int target_instance) {
        set_target(index, std::move(key), target_instance);
    }
    void set_parameter_non_critical(unsigned index, unsigned row_number, float value) {
        row(index, row_number).non_critical = value;
    }
    void set_parameter_critical(unsigned index, unsigned row_number, float value) {
        row(index, row_number).critical = value;
    }
    void set_parameter_non_recoverable(unsigned index, unsigned row_number, float value) {
        row(index, row_number).non_recoverable = value;
    }

    void poll(common_thermal_dao* dao, unsigned long timestamp) override;
};
