#pragma once

#include "algorithm/config/published_settings.hpp"
#include "algorithm/joined_fields.hpp"

// Settings of the store's range filters. A critical value of 0.0 disables its side.
struct spike_settings {
    float spike_max = 0.0f;       // polls after which a suspicious value is believed; 0.0 turns the filter off
    float spike_critical = 0.0f;  // of the one-sided filters
    float spike_critical_low = 0.0f;
    float spike_critical_high = 0.0f;

    static constexpr auto published() {
        using setting = published_setting<spike_settings>;
        return std::array{setting{"1SMC.", &spike_settings::spike_max},
                          setting{"1SC.", &spike_settings::spike_critical},
                          setting{"1SCL.", &spike_settings::spike_critical_low},
                          setting{"1SCH.", &spike_settings::spike_critical_high}};
    }
};

// Settings of the delta filter, which runs behind the two-sided range filter alone.
struct spike_delta_settings {
    float spike_delta_max = 0.0f;  // polls after which a suspicious value is believed; 0.0 turns the filter off
    float spike_delta = 0.0f;      // change from the stored value that is suspicious

    static constexpr auto published() {
        using setting = published_setting<spike_delta_settings>;
        return std::array{setting{"1SDM.", &spike_delta_settings::spike_delta_max},
                          setting{"1SDT.", &spike_delta_settings::spike_delta}};
    }
};

// Their keys, in a record or in a row of one.
template <class Record>
constexpr std::array<parameter<Record>, 4> spike_fields{{
    {.shown = "\nspike_max=", .key = "PARAMETER_SPIKE_MAX", .member = &Record::spike_max, .whole = true},
    {"\nspike_critical=", "PARAMETER_SPIKE_CRITICAL", &Record::spike_critical},
    {"\nspike_critical_low=", "PARAMETER_SPIKE_CRITICAL_LOW", &Record::spike_critical_low},
    {"\nspike_critical_high=", "PARAMETER_SPIKE_CRITICAL_HIGH", &Record::spike_critical_high},
}};

template <class Record>
constexpr std::array<parameter<Record>, 2> spike_delta_fields{{
    {.shown = "\nspike_delta_max=",
     .key = "PARAMETER_SPIKE_DELTA_MAX",
     .member = &Record::spike_delta_max,
     .whole = true},
    {"\nspike_delta=", "PARAMETER_SPIKE_DELTA", &Record::spike_delta},
}};

struct config_spike_parameter : settings_target<spike_settings>, spike_settings {
    config_spike_parameter() { spike_max = 1.0f; }
};

struct config_spike_delta_parameter : settings_target<spike_delta_settings>, spike_delta_settings {
    config_spike_delta_parameter() { spike_delta_max = 1.0f; }
};

// Sets up filters of store values.
template <class Record>
class spike_config : public with_settings_target<algorithm_with_parameters<Record>> {
public:
    void set_parameter_spike_target(unsigned index, std::string target, int target_instance) {
        this->set_target(index, std::move(target), target_instance);
    }

    void poll(common_thermal_dao* dao, unsigned long) override {
        for (auto& [number, entry] : this->records()) {
            entry.publish(*dao, entry);
        }
    }

protected:
    using with_settings_target<algorithm_with_parameters<Record>>::with_settings_target;
};

// The range filters.
class THERMAL_API common_thermal_algorithm_config_spike : public spike_config<config_spike_parameter> {
public:
    explicit common_thermal_algorithm_config_spike(int instance);

    void set_parameter_spike_max(unsigned index, float value) { record(index).spike_max = value; }
    void set_parameter_spike_critical(unsigned index, float value) { record(index).spike_critical = value; }
    void set_parameter_spike_critical_low(unsigned index, float value) { record(index).spike_critical_low = value; }
    void set_parameter_spike_critical_high(unsigned index, float value) { record(index).spike_critical_high = value; }
};

// The delta filter.
class THERMAL_API common_thermal_algorithm_config_spike_delta : public spike_config<config_spike_delta_parameter> {
public:
    explicit common_thermal_algorithm_config_spike_delta(int instance);

    void set_parameter_spike_delta_max(unsigned index, float value) { record(index).spike_delta_max = value; }
    void set_parameter_spike_delta(unsigned index, float value) { record(index).spike_delta = value; }
};
