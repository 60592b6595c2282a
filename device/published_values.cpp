#include "device/published_values.hpp"

published_values::published_values(const std::string& class_name, int instance,
                                   std::initializer_list<start_value> values) {
    _values.reserve(values.size());
    for (const start_value& start : values) {
        _values.emplace_back(class_name + "." + start.word, instance, start.value);
    }
}

void published_values::publish(common_thermal_dao* dao, common_thermal_dao::dev_data_spike_t spike) {
    if (dao != nullptr) {
        dao->update_dev(_values, spike);
    }
}

void published_values::publish_one(common_thermal_dao* dao, std::size_t position,
                                   common_thermal_dao::dev_data_spike_t spike) {
    if (dao != nullptr) {
        dao->update_dev(&_values[position], spike, false);
    }
}

std::string published_values::debug_text() const {
    std::string text;
    for (const common_thermal_dao::dev_data_t& data : _values) {
        text += debug_line(data);
    }
    return text;
}

std::string debug_line(const common_thermal_dao::dev_data_t& data) {
    // std::to_string prints a float as "%f" does.
    return "\n" + data.name + "." + std::to_string(data.instance) + "=" + std::to_string(data.value);
}
