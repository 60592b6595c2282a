#include "store/common_thermal_dao.hpp"

#include <algorithm>
#include <atomic>

#include "foundation/float_conversion.hpp"
#include "foundation/log_masks.hpp"

namespace {

constexpr std::uint32_t history_records = 4096;
constexpr std::uint32_t most_fans = 63;

// Stores come and go in tests at the same address, so that an address does not tell them apart.
std::uint32_t next_identity() {
    static std::atomic<std::uint32_t> last{0};
    return ++last;
}

}  // namespace

common_thermal_dao::common_thermal_dao() : _identity(next_identity()) {
    const auto kinds = static_cast<std::uint32_t>(_cap_alg_records.size());
    for (std::uint32_t kind = 0; kind < kinds; ++kind) {
        _cap_alg_records[kind].reserve(kind, history_records / kinds);
    }
}

float* common_thermal_dao::find_text(std::string_view key) const {
    const auto known = _dev_data.find(key);
    return known != _dev_data.end() ? &known->second : nullptr;
}

float* common_thermal_dao::look_up(store_place& place, std::string_view key) const {
    place = {find_text(key), _identity, key_count()};
    return place.value;
}

float& common_thermal_dao::make(std::string_view key) {
    if (float* known = find_text(key)) {
        return *known;
    }
    return _dev_data.emplace(std::string(key), 0.0f).first->second;
}

float* common_thermal_dao::look_up(store_place& place, const std::string& name, int instance) const {
    return look_up(place, dao_key(name, instance).view());
}

float& common_thermal_dao::make(store_place& place, const std::string& name, int instance) {
    float& value = make(dao_key(name, instance).view());
    place = {&value, _identity, 0};
    return value;
}

bool common_thermal_dao::fetch_dev(std::string_view name, int instance, float* value) const {
    const float* stored = find_text(dao_key(name, instance).view());
    if (stored != nullptr) {
        *value = *stored;
    }
    return stored != nullptr;
}

void common_thermal_dao::update_dev(std::string_view name, int instance, float value, bool log) {
    const dao_key key(name, instance);
    float& stored = make(key.view());
    if (stored == value) {
        return;
    }
    if (log && LOG::is_enabled(log_mask::change)) {
        LOG::log(log_source, log_mask::change, "OBV - DAO[%s] = %3.2f -> %3.2f\n", std::string(key.view()).c_str(),
                 shown(stored), shown(value));
    }
    stored = value;
}

void common_thermal_dao::update_carefully(dev_data_t& data, dev_data_spike_t spike, bool log) {
    if (!is_known(data._place)) {
        data._unfiltered_at = 0;  // what is remembered is of another store
    }
    const bool keep_new = spike == spike_none || !is_filtered(data) ||
                          is_believed({data.name, data.instance, *data._spike}, data.value, spike);
    float& stored = make(data._place, data.name, data.instance);
    if (log && stored != data.value && LOG::is_enabled(log_mask::change)) {
        const std::string key(dao_key(data.name, data.instance).view());
        if (keep_new) {
            LOG::log(log_source, log_mask::change, "OBV - DAO[%s] = %3.2f -> %3.2f (keep new)\n", key.c_str(),
                     shown(stored), shown(data.value));
        } else {
            LOG::log(log_source, log_mask::change, "OBV - DAO[%s] = %3.2f -> %3.2f (keep old)\n", key.c_str(),
                     shown(data.value), shown(stored));
        }
    }
    if (keep_new) {
        stored = data.value;
    } else {
        data.value = stored;
    }
}

std::vector<std::pair<std::string, float>> common_thermal_dao::values() const {
    std::vector<std::pair<std::string, float>> sorted(_dev_data.begin(), _dev_data.end());
    std::sort(sorted.begin(), sorted.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
    return sorted;
}

void common_thermal_dao::update_ipmi_sdr_key_dao(const std::string& map_key, const std::string& name, int instance) {
    common_thermal_utils::dao_t& source = _ipmi_sdr_key_dao[map_key];
    source.name = name;
    source.instance = instance;
}

const common_thermal_utils::dao_t* common_thermal_dao::find_ipmi_sdr_key_dao(const std::string& map_key) const {
    const auto known = _ipmi_sdr_key_dao.find(map_key);
    return known != _ipmi_sdr_key_dao.end() ? &known->second : nullptr;
}

bool common_thermal_dao::fetch_ipmi_sdr_key_dao(const std::string& map_key, common_thermal_utils::dao_t* out) const {
    const common_thermal_utils::dao_t* source = find_ipmi_sdr_key_dao(map_key);
    if (source != nullptr) {
        *out = *source;
    }
    return source != nullptr;
}

void common_thermal_dao::reserve_fan_alg(unsigned fans) {
    if (_fan_count != 0) {
        return;
    }
    if (fans > most_fans) {
        LOG::err(log_source, "Fan device number exceeded!!!\n");
        LOG::err(log_source, "Fan device number Cur/Max - %d/%d\n", static_cast<int>(fans),
                 static_cast<int>(most_fans));
        fans = most_fans;
    }
    _fan_count = fans;
    for (std::uint32_t fan = 1; fan <= fans; ++fan) {
        _fan_alg_records[convert_fan_inst_to_index(fan)].reserve(fan, history_records / fans);
    }
}

unsigned common_thermal_dao::convert_fan_inst_to_index(unsigned instance) const {
    return _fan_count == 0 ? 0 : instance % _fan_count;
}
