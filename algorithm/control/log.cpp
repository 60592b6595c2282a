#include "algorithm/control/log.hpp"

#include "foundation/diagnostic_file.hpp"
#include "foundation/float_conversion.hpp"
#include "foundation/log_masks.hpp"

namespace {

using p = log_parameter;

constexpr parameter<p> fields[] = {
    {"\nx_key=", "PARAMETER_X_PREFIX", &p::x_reference, "PARAMETER_X_INST"},
    {"\nrecord_max=", "PARAMETER_RECORD_MAX", &p::record_max},
    {"\nfile_max=", "PARAMETER_FILE_MAX", &p::file_max},
    {"\nrecrod_index=", nullptr, &p::record_index},
    {"\nfile_index=", nullptr, &p::file_index},
};
constexpr parameter_layout<p> layout{.fields = fields};

void add_sample(p& record, float value, unsigned long timestamp) {
    const p::sample sample{value, static_cast<std::uint32_t>(timestamp)};
    if (record.record_index < record.samples.size()) {
        record.samples[record.record_index] = sample;
    } else {
        record.samples.push_back(sample);
    }
    ++record.record_index;
}

// The next file begins with the value that was current at the change of file.
void restart(p& record, unsigned long timestamp) {
    record.record_index = 0;
    add_sample(record, record.last_value, timestamp);
    ++record.file_index;
    if (record.file_index >= record.file_max) {
        record.file_index = 0;
    }
}

}  // namespace

common_thermal_algorithm_log::common_thermal_algorithm_log(int instance)
    : algorithm_with_parameters(layout, "common_thermal_algorithm_log", instance, common_thermal_utils::talg_log) {}

void common_thermal_algorithm_log::poll(common_thermal_dao* dao, unsigned long timestamp) {
    set_result(0.0f);
    for (auto& [number, record] : records()) {
        float x = 0.0f;
        if (!record.x_reference.fetch(*dao, &x)) {
            continue;
        }
        if (record.record_index >= record.record_max) {
            write_log(number, &record, timestamp);
            restart(record, timestamp);
        }
        if (LOG::is_enabled(log_mask::calculation | log_mask::outcome)) {
            log_record(number, record, x, timestamp);
        }
        if (x != record.last_value || record.record_index == 0) {
            record.last_value = x;
            add_sample(record, x, timestamp);
        }
    }
}

void common_thermal_algorithm_log::write_log(unsigned index, const parameter_t* record, unsigned long timestamp) const {
    const store_reference& x = record->x_reference;
    diagnostic_file file("log.%d.%u.%u.%s.%d", get_instance(), index, static_cast<unsigned>(record->file_index),
                         x.name().c_str(), x.instance());
    for (std::uint32_t j = 0; j < record->record_index; ++j) {
        const log_parameter::sample& sample = record->samples[j];
        file.line("%d=[%ld, %f]\n", static_cast<int>(j), static_cast<long>(sample.timestamp), shown(sample.value));
    }
    file.metadata(timestamp, record->record_index);
}

void common_thermal_algorithm_log::write_log_all(unsigned long timestamp) {
    for (auto& [number, record] : records()) {
        write_log(number, &record, timestamp);
        restart(record, timestamp);
    }
}

void common_thermal_algorithm_log::log_record(unsigned number, const parameter_t& record, float x,
                                              unsigned long timestamp) const {
    LOG::log(log_source, log_mask::outcome, "common_thermal_algorithm_log::%s - %s.%d\n", "poll",
             record.x_reference.name().c_str(), record.x_reference.instance());
    LOG::log(log_source, log_mask::calculation,
             "common_thermal_algorithm_log::%s - %d.[%d, %d]=%d, %d, %3.2f, %3.2f, %ld\n",
             get_key_custom_result().c_str(), static_cast<int>(number), static_cast<int>(record.record_max),
             static_cast<int>(record.file_max), static_cast<int>(record.record_index),
             static_cast<int>(record.file_index), shown(record.last_value), shown(x), static_cast<long>(timestamp));
}
