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

constexpr const char* going_high_function = "check_new_data_with_spike_going_high";
constexpr const char* going_low_function = "check_new_data_with_spike_going_low";

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

float common_thermal_dao::setting(const filtered_value& of, std::string_view prefix, store_place& place) const {
    const float* value = is_current(place) ? place.value : look_up(place, dao_key(prefix, of.name, of.instance).view());
    return value != nullptr ? *value : 0.0f;
}

float& common_thermal_dao::made(const filtered_value& of, std::string_view prefix, store_place& place) {
    if (!is_known(place)) {
        place = {&make(dao_key(prefix, of.name, of.instance).view()), _identity, 0};
    }
    return *place.value;
}

// A filter can only come with a new key, so its absence is remembered by the number of keys.
bool common_thermal_dao::is_filtered(dev_data_t& data) {
    const store_place& place = data._spike_count;
    if (is_current(place)) {
        return place.value != nullptr && *place.value != 0.0f;
    }
    const float* count = look_up(data._spike_count, dao_key(maximum_count, data.name, data.instance).view());
    if (count == nullptr) {
        make(data._place, data.name, data.instance);
        data._unfiltered_at = key_count();
        return false;
    }
    data._spike = &_spike_places[std::string(dao_key(data.name, data.instance).view())];
    return *count != 0.0f;
}

bool common_thermal_dao::valid_key_with_spike_max_count(std::string_view name, int instance) const {
    spike_places places;
    return setting({name, instance, places}, maximum_count, places.maximum) != 0.0f;
}

bool common_thermal_dao::valid_key_with_spike_high_low(std::string_view name, int instance) const {
    spike_places places;
    return has_high_or_low({name, instance, places});
}

bool common_thermal_dao::has_high_or_low(const filtered_value& of) const {
    return setting(of, critical_high, of.places.high) != 0.0f || setting(of, critical_low, of.places.low) != 0.0f;
}

bool common_thermal_dao::is_believed(const filtered_value& of, float value, dev_data_spike_t spike) {
    const bool one_sided = spike == spike_going_high || spike == spike_going_low;
    if (!one_sided || has_high_or_low(of)) {
        return check_high_low(of, value) && check_delta(of, value);
    }
    return spike == spike_going_high ? check_one_sided(going_high_function, of, value, true)
                                     : check_one_sided(going_low_function, of, value, false);
}

// Moves the counter on and tells whether the value is believed: it is plausible, or has been suspicious long enough.
// `count` comes as the counter stands and goes as it was stored.
bool common_thermal_dao::count_suspicion(const filtered_value& of, std::string_view prefix, store_place& place,
                                         bool suspicious, float maximum, float& count) {
    count = suspicious ? count + 1.0f : 0.0f;
    made(of, prefix, place) = count;
    return !suspicious || maximum <= count;
}

bool common_thermal_dao::check_one_sided(const char* function, const filtered_value& of, float value, bool going_high) {
    const float maximum = setting(of, maximum_count, of.places.maximum);
    const float critical = setting(of, critical_value, of.places.critical);
    float count = setting(of, range_counter, of.places.count);
    const bool reached = going_high ? reaches_high(critical, value) : reaches_low(critical, value);
    const bool believed =
        count_suspicion(of, range_counter, of.places.count, maximum != 0.0f && reached, maximum, count);
    if (LOG::is_enabled(log_mask::spike)) {
        log_filter(function, of.name, of.instance);
        LOG::log(log_source, log_mask::spike, "common_thermal_dao::%s - [%3.2f][%3.2f]-[%3.2f][%3.2f]-[%02X]\n",
                 function, shown(maximum), shown(count), shown(critical), shown(value), believed ? 1u : 0u);
    }
    return believed;
}

bool common_thermal_dao::check_high_low(const filtered_value& of, float value) {
    constexpr const char* function = "check_new_data_with_spike_going_high_low";
    const float maximum = setting(of, maximum_count, of.places.maximum);
    const float high = setting(of, critical_high, of.places.high);
    const float low = setting(of, critical_low, of.places.low);
    float count = setting(of, range_counter, of.places.count);
    const bool suspicious = maximum != 0.0f && (reaches_high(high, value) || reaches_low(low, value));
    const bool believed = count_suspicion(of, range_counter, of.places.count, suspicious, maximum, count);
    if (LOG::is_enabled(log_mask::spike)) {
        log_filter(function, of.name, of.instance);
        log_verdict(function, maximum, count, high, low, value, believed);
    }
    return believed;
}

bool common_thermal_dao::check_delta(const filtered_value& of, float value) {
    constexpr const char* function = "check_new_data_with_spike_delta";
    const float stored = made(of, {}, of.places.value);
    const float maximum = setting(of, delta_maximum_count, of.places.delta_maximum);
    if (maximum == 0.0f) {
        return true;
    }
    const float delta = setting(of, delta_limit, of.places.delta);
    float count = setting(of, delta_counter, of.places.delta_count);
    const bool suspicious = delta > 0.0f && delta <= std::fabs(value - stored);
    const bool believed = count_suspicion(of, delta_counter, of.places.delta_count, suspicious, maximum, count);
    if (LOG::is_enabled(log_mask::spike)) {
        log_filter(function, of.name, of.instance);
        log_verdict(function, maximum, count, delta, stored, value, believed);
    }
    return believed;
}

bool common_thermal_dao::check_new_data_with_spike_going_high(std::string_view name, int instance, float value) {
    spike_places places;
    return check_one_sided(going_high_function, {name, instance, places}, value, true);
}

bool common_thermal_dao::check_new_data_with_spike_going_low(std::string_view name, int instance, float value) {
    spike_places places;
    return check_one_sided(going_low_function, {name, instance, places}, value, false);
}

bool common_thermal_dao::check_new_data_with_spike_going_high_low(std::string_view name, int instance, float value) {
    spike_places places;
    return check_high_low({name, instance, places}, value);
}

bool common_thermal_dao::check_new_data_with_spike_delta(std::string_view name, int instance, float value) {
    spike_places places;
    return check_delta({name, instance, places}, value);
}
