#pragma once

#include <array>

#include "algorithm/parameter_table.hpp"

// What one IPMI sensor shows.
struct THERMAL_API ipmi_sdr_map_parameter {
    store_reference x_reference{1};
    std::string map_key;               // of the sensor in the device
    bool sel_lower_threshold = false;  // the three thresholds are lower ones
    float sel_non_critical = 255.0f;   // 255.0: not set
    float sel_critical = 255.0f;
    float sel_non_recoverable = 255.0f;
    float sdr_display_valid_range_min = 0.0f;
    float sdr_display_valid_range_max = 255.0f;

    // Store keys of the settings: lower flag, three thresholds, range.
    using setting_places = std::array<store_reference, 6>;
    setting_places settings;

    ipmi_sdr_map_parameter() { complete(); }
    // Composes those keys; to be called whenever the value or the lower flag is set.
    void complete();
};

// Tells common_thermal_device_ipmi_sdr_map, by way of the store, which value each IPMI sensor shows, in which range and
// with which thresholds: every poll writes the same table. Of two records for one store value the later one counts.
class THERMAL_API common_thermal_algorithm_ipmi_sdr_map : public algorithm_with_parameters<ipmi_sdr_map_parameter> {
public:
    explicit common_thermal_algorithm_ipmi_sdr_map(int instance);

    void set_parameter_x(unsigned index, std::string x_key, int instance) {
        record(index).x_reference = store_reference(std::move(x_key), instance);
        record(index).complete();
    }
    void set_parameter_map_key(unsigned index, std::string key) { record(index).map_key = std::move(key); }
    void set_parameter_sel_lower_threshold(unsigned index, bool lower) {
        record(index).sel_lower_threshold = lower;
        record(index).complete();
    }
    void set_parameter_sel_non_critical(unsigned index, float value) { record(index).sel_non_critical = value; }
    void set_parameter_sel_critical(unsigned index, float value) { record(index).sel_critical = value; }
    void set_parameter_sel_non_recoverable(unsigned index, float value) { record(index).sel_non_recoverable = value; }
    void set_parameter_sdr_display_valid_range_min(unsigned index, float value) {
        record(index).sdr_display_valid_range_min = value;
    }
    void set_parameter_sdr_display_valid_range_max(unsigned index, float value) {
        record(index).sdr_display_valid_range_max = value;
    }

    void poll(common_thermal_dao* dao, unsigned long timestamp) override;
};
