#pragma once

#include <cstddef>
#include <initializer_list>
#include <string>
#include <vector>

#include "foundation/export.hpp"
#include "store/common_thermal_dao.hpp"

// The values of one device, in the order in which they are published and shown. A device names them by position,
// usually with an enumeration of its words.
class THERMAL_API published_values {
public:
    struct start_value {
        const char* word = nullptr;
        float value = 0.0f;
    };

    // Each value's name is `class_name` + "." + word.
    published_values(const std::string& class_name, int instance, std::initializer_list<start_value> values);

    float& operator[](std::size_t position) { return _values[position].value; }
    float operator[](std::size_t position) const { return _values[position].value; }

    // Writes every value; a null store takes none.
    void publish(common_thermal_dao* dao, common_thermal_dao::dev_data_spike_t spike);
    void publish_one(common_thermal_dao* dao, std::size_t position, common_thermal_dao::dev_data_spike_t spike);

    // A line for each value: key, ".", instance, "=", value.
    std::string debug_text() const;

private:
    std::vector<common_thermal_dao::dev_data_t> _values;
};

// The line of one value.
THERMAL_API std::string debug_line(const common_thermal_dao::dev_data_t& data);
