#pragma once

#include <algorithm>

#include "algorithm/parameter_table.hpp"

struct log_parameter {
    struct sample {
        float value;
        std::uint32_t timestamp;  // s
    };

    store_reference x_reference;
    std::uint32_t record_max = 2048;  // samples in a file
    std::uint32_t file_max = 24;      // files, then the first again
    std::uint32_t record_index = 0;   // samples in the buffer
    std::uint32_t file_index = 0;     // of the next file
    float last_value = 0.0f;
    std::vector<sample> samples;

    // An ordinary buffer is there from the start; a larger one grows with what it gets.
    void complete() {
        constexpr std::uint32_t ordinary = 2048;
        samples.reserve(std::clamp(record_max, std::uint32_t{2}, ordinary));
    }
};

// Keeps the changes of store values in memory and writes them to a ring of files whenever a buffer is full. A value
// that is not in the store leaves a gap in the times; the result stays 0.0.
class THERMAL_API common_thermal_algorithm_log : public algorithm_with_parameters<log_parameter> {
public:
    explicit common_thermal_algorithm_log(int instance);

    void set_parameter_x(unsigned index, std::string key, int instance) {
        record(index).x_reference = store_reference(std::move(key), instance);
    }
    void set_parameter_record_max(unsigned index, unsigned count) { record(index).record_max = count; }
    void set_parameter_file_max(unsigned index, unsigned count) { record(index).file_max = count; }

    void poll(common_thermal_dao* dao, unsigned long timestamp) override;

    // One file, "log.<instance>.<index>.<file>.<key>.<its instance>": a line a sample.
    void write_log(unsigned index, const parameter_t* record, unsigned long timestamp) const;
    // Every buffer to its file now, full or not.
    void write_log_all(unsigned long timestamp);

private:
    void log_record(unsigned number, const parameter_t& record, float x, unsigned long timestamp) const;
};
