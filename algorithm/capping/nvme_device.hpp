#pragma once

#include "algorithm/parameter_table.hpp"

// Where the drives' capping levels begin. With the minimal threshold below the middle one the value gets worse as it
// falls, otherwise as it rises.
struct nvme_capping_setting {
    float minimal_power_threshold = 0.0f;  // level 1
    float middle_power_threshold = 0.0f;   // level 2
    float hysteresis = 0.0f;               // distance to come back across a threshold
};

// The level that the hysteresis holds; one of the two at most.
struct nvme_capping_history {
    bool middle = false;
    bool minimal = false;
};

constexpr std::uint32_t nvme_minimal_power = 1;
constexpr std::uint32_t nvme_middle_power = 2;
constexpr std::uint32_t nvme_full_power = 3;

// The level of a value, 0 for one that is no number.
constexpr std::uint32_t nvme_capping_level(const nvme_capping_setting& setting, float value,
                                           nvme_capping_history& history) {
    // On a falling scale everything changes sign, so that more is always worse.
    const float sign = setting.minimal_power_threshold < setting.middle_power_threshold ? -1.0f : 1.0f;
    const float x = sign * value;
    const float minimal = sign * setting.minimal_power_threshold;
    const float middle = sign * setting.middle_power_threshold;
    if (x >= minimal) {
        history = {.middle = false, .minimal = true};
        return nvme_minimal_power;
    }
    if (!(x < minimal)) {
        return 0;
    }
    if (x >= middle) {
        if (history.minimal && x >= minimal - setting.hysteresis) {
            return nvme_minimal_power;
        }
        history = {.middle = true, .minimal = false};
        return nvme_middle_power;
    }
    if (!(x < middle)) {
        return 0;
    }
    if ((history.middle || history.minimal) && x >= middle - setting.hysteresis) {
        history = {.middle = true, .minimal = false};
        return nvme_middle_power;
    }
    history = {};
    return nvme_full_power;
}

struct nvme_capping_parameter : nvme_capping_setting {
    store_reference x_reference;
    std::uint32_t r = 0;
};

// The power level of the NVMe drives: the lowest level, which is the tightest, over the records. One history serves
// them all, in their order. A value that is not in the store decides nothing; 65535.0 if none decides.
class THERMAL_API common_thermal_algorithm_sensor_capping_nvme_device
    : public algorithm_with_parameters<nvme_capping_parameter> {
public:
    explicit common_thermal_algorithm_sensor_capping_nvme_device(int instance);

    // What the storage firmware is told of a level: 1, 2, 3 give 2, 1, 0, and any other, 65535 among them, 2.
    static std::uint16_t power_val_for_sepcomm(unsigned level);

    void set_parameter_x(unsigned index, std::string key, int instance) {
        record(index).x_reference = store_reference(std::move(key), instance);
    }
    void set_parameter_min_power_thd(unsigned index, float value) { record(index).minimal_power_threshold = value; }
    void set_parameter_middle_pwr_thd(unsigned index, float value) { record(index).middle_power_threshold = value; }
    void set_parameter_hysteresis(unsigned index, float value) { record(index).hysteresis = value; }

    void poll(common_thermal_dao* dao, unsigned long timestamp) override;

private:
    nvme_capping_history _history;
};
