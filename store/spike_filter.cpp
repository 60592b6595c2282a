#include <cmath>
#include <string>

#include "foundation/float_conversion.hpp"
#include "foundation/log_masks.hpp"
#include "store/common_thermal_dao.hpp"

// A reading can be wrong for one poll. The filter has no state of its own: its settings and its counters are store
// values under a prefix in front of the filtered name.
namespace {

constexpr std::string_view maximum_count = "1SMC.";
constexpr std::string_view critical_value = "1SC.";
constexpr std::string_view critical_high = "1SCH.";
constexpr std::string_view critical_low = "1SCL.";
constexpr std::string_view range_counter = "1CT.";
constexpr std::string_view delta_maximum_count = "1SDM.";
constexpr std::string_view delta_limit = "1SDT.";
constexpr std::string_view delta_counter = "1SDC.";

// A critical value of 0.0 disables its side.
bool reaches_high(float critical, float value) { return critical != 0.0f && critical <= value; }
bool reaches_low(float critical, float value) { return critical != 0.0f && critical >= value; }

void log_filter(const char* function, std::string_view name, int instance) {
    LOG::log(log_source, log_mask::spike, "common_thermal_dao::%s:%s.%s\n", function, std::string(name).c_str(),
             std::to_string(instance).c_str());
}

void log_verdict(const char* function, float maximum, float count, float first, float second, float value,
                 bool believed) {
    LOG::log(log_source, log_mask::spike, "common_thermal_dao::%s - [%3.2f][%3.2f]-[%3.2f][%3.2f][%3.2f]-[%02X]\n",
             function, shown(maximum), shown(count), shown(first), shown(second), shown(value), believed ? 1u : 0u);
}

}  // namespace

float common_thermal_dao::setting(std::string_view prefix, std::string_view name, int instance) const {
    const float* value = find_text(dao_key(prefix, name, instance).view());
    return value != nullptr ? *value : 0.0f;
}

// A filter can only come with a new key, so its absence is remembered by the number of keys.
bool common_thermal_dao::is_filtered(dev_data_t& data) {
    const store_place& place = data._spike_count;
    const float* count = is_current(place)
                             ? place.value
                             : look_up(data._spike_count, dao_key(maximum_count, data.name, data.instance).view());
    if (count == nullptr) {
        make(data._place, data.name, data.instance);
        data._unfiltered_at = key_count();
    }
    return count != nullptr && *count != 0.0f;
}

bool common_thermal_dao::valid_key_with_spike_max_count(std::string_view name, int instance) const {
    return setting(maximum_count, name, instance) != 0.0f;
}

bool common_thermal_dao::valid_key_with_spike_high_low(std::string_view name, int instance) const {
    return setting(critical_high, name, instance) != 0.0f || setting(critical_low, name, instance) != 0.0f;
}

bool common_thermal_dao::is_believed(const dev_data_t& data, dev_data_spike_t spike) {
    const bool one_sided = spike == spike_going_high || spike == spike_going_low;
    if (!one_sided || valid_key_with_spike_high_low(data.name, data.instance)) {
        return check_new_data_with_spike_going_high_low(data.name, data.instance, data.value) &&
               check_new_data_with_spike_delta(data.name, data.instance, data.value);
    }
    return spike == spike_going_high ? check_new_data_with_spike_going_high(data.name, data.instance, data.value)
                                     : check_new_data_with_spike_going_low(data.name, data.instance, data.value);
}

// Moves the counter on and tells whether the value is believed: it is plausible, or has been suspicious long enough.
// `count` comes as the counter stands and goes as it was stored.
bool common_thermal_dao::count_suspicion(std::string_view counter_prefix, std::string_view name, int instance,
                                         bool suspicious, float maximum, float& count) {
    count = suspicious ? count + 1.0f : 0.0f;
    make(dao_key(counter_prefix, name, instance).view()) = count;
    return !suspicious || maximum <= count;
}

bool common_thermal_dao::check_one_sided(const char* function, std::string_view name, int instance, float value,
                                         bool going_high) {
    const float maximum = setting(maximum_count, name, instance);
    const float critical = setting(critical_value, name, instance);
    float count = setting(range_counter, name, instance);
    const bool reached = going_high ? reaches_high(critical, value) : reaches_low(critical, value);
    const bool believed = count_suspicion(range_counter, name, instance, maximum != 0.0f && reached, maximum, count);
    if (LOG::is_enabled(log_mask::spike)) {
        log_filter(function, name, instance);
        LOG::log(log_source, log_mask::spike, "common_thermal_dao::%s - [%3.2f][%3.2f]-[%3.2f][%3.2f]-[%02X]\n",
                 function, shown(maximum), shown(count), shown(critical), shown(value), believed ? 1u : 0u);
    }
    return believed;
}

bool common_thermal_dao::check_new_data_with_spike_going_high(std::string_view name, int instance, float value) {
    return check_one_sided("check_new_data_with_spike_going_high", name, instance, value, true);
}

bool common_thermal_dao::check_new_data_with_spike_going_low(std::string_view name, int instance, float value) {
    return check_one_sided("check_new_data_with_spike_going_low", name, instance, value, false);
}

bool common_thermal_dao::check_new_data_with_spike_going_high_low(std::string_view name, int instance, float value) {
    constexpr const char* function = "check_new_data_with_spike_going_high_low";
    const float maximum = setting(maximum_count, name, instance);
    const float high = setting(critical_high, name, instance);
    const float low = setting(critical_low, name, instance);
    float count = setting(range_counter, name, instance);
    const bool suspicious = maximum != 0.0f && (reaches_high(high, value) || reaches_low(low, value));
    const bool believed = count_suspicion(range_counter, name, instance, suspicious, maximum, count);
    if (LOG::is_enabled(log_mask::spike)) {
        log_filter(function, name, instance);
        log_verdict(function, maximum, count, high, low, value, believed);
    }
    return believed;
}

bool common_thermal_dao::check_new_data_with_spike_delta(std::string_view name, int instance, float value) {
    constexpr const char* function = "check_new_data_with_spike_delta";
    const float stored = make(dao_key(name, instance).view());
    const float maximum = setting(delta_maximum_count, name, instance);
    if (maximum == 0.0f) {
        return true;
    }
    const float delta = setting(delta_limit, name, instance);
    float count = setting(delta_counter, name, instance);
    const bool suspicious = delta > 0.0f && delta <= std::fabs(value - stored);
    const bool believed = count_suspicion(delta_counter, name, instance, suspicious, maximum, count);
    if (LOG::is_enabled(log_mask::spike)) {
        log_filter(function, name, instance);
        log_verdict(function, maximum, count, delta, stored, value, believed);
    }
    return believed;
}
