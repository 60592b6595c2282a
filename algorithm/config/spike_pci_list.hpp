#pragma once

#include "algorithm/config/adapter_settings.hpp"
#include "algorithm/config/spike.hpp"

// Spike settings for a store value by the adapter in a slot, with three identity values that are not 0.0. A slot
// without one ends the pass. The settings of the row matched last go on being written when an unknown adapter follows;
// before the first match these are zeros, which turn the filter off.
template <class Settings>
class spike_pci_list : public adapter_settings_algorithm<Settings> {
public:
    // Rows 1 to `count`, all 0.0.
    void set_parameter_xyzspike_count(unsigned index, unsigned count) { this->record(index).rows.set_size(count); }
    void set_parameter_dao_spike_target(unsigned index, std::string key, int target_instance) {
        this->set_target(index, std::move(key), target_instance);
    }

    void poll(common_thermal_dao* dao, unsigned long) override {
        this->set_result(0.0f);
        this->for_each_adapter(*dao, has_three_numbers, [dao](auto& slot, const adapter_settings<Settings>* row) {
            if (row != nullptr) {
                slot.remember(*row);
            }
            slot.publish(*dao, slot);
        });
    }

protected:
    using adapter_settings_algorithm<Settings>::adapter_settings_algorithm;
};

// Sets up the range filters.
class THERMAL_API common_thermal_algorithm_config_spike_pci_list : public spike_pci_list<spike_settings> {
public:
    explicit common_thermal_algorithm_config_spike_pci_list(int instance);

    void set_parameter_spike_max(unsigned index, unsigned row_number, float value) {
        row(index, row_number).spike_max = value;
    }
    void set_parameter_spike_critical(unsigned index, unsigned row_number, float value) {
        row(index, row_number).spike_critical = value;
    }
    void set_parameter_spike_critical_low(unsigned index, unsigned row_number, float value) {
        row(index, row_number).spike_critical_low = value;
    }
    void set_parameter_spike_critical_high(unsigned index, unsigned row_number, float value) {
        row(index, row_number).spike_critical_high = value;
    }
};

// Sets up the delta filter.
class THERMAL_API common_thermal_algorithm_config_spike_delta_pci_list : public spike_pci_list<spike_delta_settings> {
public:
    explicit common_thermal_algorithm_config_spike_delta_pci_list(int instance);

    void set_parameter_spike_delta_max(unsigned index, unsigned row_number, float value) {
        row(index, row_number).spike_delta_max = value;
    }
    void set_parameter_spike_delta(unsigned index, unsigned row_number, float value) {
        row(index, row_number).spike_delta = value;
    }
};
