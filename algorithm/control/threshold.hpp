#pragma once

#include "algorithm/control/threshold_law.hpp"
#include "algorithm/parameter_table.hpp"

// The first class does without the ramp's part.
struct threshold_parameter : threshold_ramp_setting {
    store_reference x_reference{1};
    store_reference y_reference{1};
    float x = 0.0f;
    float y = 0.0f;
    float r = 0.0f;
};

// Fan regulators that climb in steps from the output y while a value x is hot and hold in a guard band. The largest
// output of the records is the result, but their state is one: a hot and a cool record undo each other's in every pass.
// A lost x or y leaves its record out; with no other record the result is 0.0, which is a claim.
class THERMAL_API threshold_regulator : public algorithm_with_parameters<threshold_parameter> {
public:
    void set_parameter_x(unsigned index, std::string key, int instance) {
        record(index).x_reference = store_reference(std::move(key), instance);
    }
    void set_parameter_y(unsigned index, std::string key, int instance) {
        record(index).y_reference = store_reference(std::move(key), instance);
    }
    void set_parameter_x_tcontrol(unsigned index, float value) { record(index).tcontrol = value; }
    void set_parameter_x_tcritical(unsigned index, float value) { record(index).tcritical = value; }
    void set_parameter_x_guard_band(unsigned index, float value) { record(index).x_guard_band = value; }
    void set_parameter_y_incremental(unsigned index, float value) { record(index).y_incremental = value; }
    void set_parameter_r_max(unsigned index, float value) { record(index).r_max = value; }

    // `timestamp` in seconds; its low 32 bits count.
    void poll(common_thermal_dao* dao, unsigned long timestamp) override;

protected:
    threshold_regulator(const parameter_layout<threshold_parameter>& layout, const char* name, int instance)
        : algorithm_with_parameters(layout, name, instance, common_thermal_utils::talg_threshold, action_fan_map) {}

private:
    // The output of one record, 0.0 for none.
    virtual float regulate(threshold_parameter& record, float x, float y, std::uint32_t now) = 0;
};

// A step on top of y in every pass, nothing below the guard band.
class THERMAL_API common_thermal_algorithm_threshold : public threshold_regulator {
public:
    explicit common_thermal_algorithm_threshold(int instance);

private:
    float regulate(threshold_parameter& record, float x, float y, std::uint32_t now) override;

    bool _stepping = false;
};

// A ramp of its own, up while hot and down again below the guard band, each at its own pace; y is where it starts.
class THERMAL_API common_thermal_algorithm_threshold_v2 : public threshold_regulator {
public:
    explicit common_thermal_algorithm_threshold_v2(int instance);

    void set_parameter_y_decremental(unsigned index, float value) { record(index).y_decremental = value; }
    void set_parameter_y_incremental_poll_seconds(unsigned index, float value) {
        record(index).y_incremental_poll_seconds = value;
    }
    void set_parameter_y_decremental_poll_seconds(unsigned index, float value) {
        record(index).y_decremental_poll_seconds = value;
    }

private:
    float regulate(threshold_parameter& record, float x, float y, std::uint32_t now) override;

    threshold_ramp _ramp;
};
