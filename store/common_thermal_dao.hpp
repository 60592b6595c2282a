#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "foundation/common_thermal_utils.hpp"
#include "foundation/export.hpp"
#include "store/dao_key.hpp"
#include "store/store_place.hpp"

// The blackboard: one float for each key, name + "." + instance. Devices write readings, algorithms read them and write
// results, settings travel under prefixed names. Keys are made by the first write and stay for the life of the store;
// nothing else tells whether a value was ever written. Used on the thermal thread only; only a miss is ever reported.
class THERMAL_API common_thermal_dao {
public:
    // A value that its owner publishes again and again. Name and instance are fixed: the record remembers its place.
    struct dev_data_t {
        dev_data_t(std::string value_name, int value_instance, float start = 0.0f)
            : name(std::move(value_name)), instance(value_instance), value(start) {}

        const std::string name;
        const int instance;
        float value;

    private:
        friend class common_thermal_dao;
        store_place _place;
        store_place _spike_count;          // of the setting that turns the filter on
        std::uint32_t _unfiltered_at = 0;  // keys the store had when there was no such setting
    };

    // Which spikes to hold back before a value is believed. No setting in the store means no filter, whatever the kind.
    enum dev_data_spike_t : std::uint32_t {
        spike_none = 0,
        spike_going_high = 1,
        spike_going_low = 2,
        spike_going_high_low = 3,
    };

    common_thermal_dao();
    common_thermal_dao(const common_thermal_dao&) = delete;
    common_thermal_dao& operator=(const common_thermal_dao&) = delete;

    // False leaves `*value` alone. Never makes a key.
    bool fetch_dev(std::string_view name, int instance, float* value) const;
    // The same for a caller that remembers the place; null if there is no such key.
    const float* find_dev(const std::string& name, int instance, store_place& place) const {
        return is_current(place) ? place.value : look_up(place, name, instance);
    }

    // Stores the value; a new key starts at 0.0. With `log`, a change leaves a line.
    void update_dev(std::string_view name, int instance, float value, bool log);

    // The same, always stored, for a caller that remembers the place.
    void store_dev(const std::string& name, int instance, store_place& place, float value) {
        (is_known(place) ? *place.value : make(place, name, instance)) = value;
    }

    // Stores the value, or, while the filter of this key holds it back, puts the stored value into the record instead.
    void update_dev(dev_data_t* data, dev_data_spike_t spike, bool log) {
        const bool unfiltered = spike == spike_none || data->_unfiltered_at == key_count();
        if (!log && unfiltered && is_known(data->_place)) {
            *data->_place.value = data->value;
        } else {
            update_carefully(*data, spike, log);
        }
    }

    // The same for all values of a device, in order, without a log.
    void update_dev(std::span<dev_data_t> values, dev_data_spike_t spike) {
        for (dev_data_t& data : values) {
            update_dev(&data, spike, false);
        }
    }

    // Which store value feeds the IPMI sensor known by `map_key`.
    void update_ipmi_sdr_key_dao(const std::string& map_key, const std::string& name, int instance);
    bool fetch_ipmi_sdr_key_dao(const std::string& map_key, common_thermal_utils::dao_t* out) const;
    // The same without a copy; null for an unknown sensor. Stays valid and follows every update.
    const common_thermal_utils::dao_t* find_ipmi_sdr_key_dao(const std::string& map_key) const;

    // Shares the history of fan results out among `fans` fans, 63 at most. The first positive count stands.
    void reserve_fan_alg(unsigned fans);
    unsigned convert_fan_inst_to_index(unsigned instance) const;

    // Whether a filter is set up for a value; a setting of 0.0 counts as none.
    bool valid_key_with_spike_max_count(std::string_view name, int instance) const;
    bool valid_key_with_spike_high_low(std::string_view name, int instance) const;

    // Each counts one suspicious or plausible poll and tells whether the new value is believed.
    bool check_new_data_with_spike_going_high(std::string_view name, int instance, float value);
    bool check_new_data_with_spike_going_low(std::string_view name, int instance, float value);
    bool check_new_data_with_spike_going_high_low(std::string_view name, int instance, float value);
    bool check_new_data_with_spike_delta(std::string_view name, int instance, float value);

    std::uint32_t key_count() const { return static_cast<std::uint32_t>(_dev_data.size()); }
    // Every key and value, in key order.
    std::vector<std::pair<std::string, float>> values() const;

private:
    struct key_hash {
        using is_transparent = void;
        std::size_t operator()(std::string_view key) const { return std::hash<std::string_view>()(key); }
    };
    using value_map = std::unordered_map<std::string, float, key_hash, std::equal_to<>>;

    // The part of a result history that belongs to one fan or capping kind.
    struct index_row {
        std::uint32_t id = 0;
        std::uint32_t first = 0;
        std::uint32_t last = 0;
        std::uint32_t next = 0;
        std::uint32_t write_limit = 5;
        std::uint32_t written = 0;
    };

    bool is_known(const store_place& place) const { return place.store == _identity && place.value != nullptr; }
    bool is_current(const store_place& place) const {
        return place.store == _identity && (place.value != nullptr || place.keys_at_miss == key_count());
    }

    float* look_up(store_place& place, const std::string& name, int instance) const;
    float* look_up(store_place& place, std::string_view key) const;
    float& make(store_place& place, const std::string& name, int instance);
    float& make(std::string_view key);
    bool is_filtered(dev_data_t& data);
    float* find_text(std::string_view key) const;
    float setting(std::string_view prefix, std::string_view name, int instance) const;
    void update_carefully(dev_data_t& data, dev_data_spike_t spike, bool log);
    bool is_believed(const dev_data_t& data, dev_data_spike_t spike);
    bool count_suspicion(std::string_view counter_prefix, std::string_view name, int instance, bool suspicious,
                         float maximum, float& count);
    bool check_one_sided(const char* function, std::string_view name, int instance, float value, bool going_high);

    mutable value_map _dev_data;
    std::uint32_t _identity;
    std::map<std::string, common_thermal_utils::dao_t> _ipmi_sdr_key_dao;
    std::uint32_t _fan_count = 0;
    std::array<index_row, 64> _fan_alg_index{};
    std::array<index_row, 7> _cap_alg_index{};
};

// A store value that an algorithm reads or writes again and again: name and instance, with the place remembered.
class store_reference {
public:
    store_reference() = default;
    explicit store_reference(int instance) : _instance(instance) {}
    store_reference(std::string name, int instance) : _name(std::move(name)), _instance(instance) {}

    const std::string& name() const { return _name; }
    int instance() const { return _instance; }

    // Null if there is no such key.
    const float* find(const common_thermal_dao& dao) { return dao.find_dev(_name, _instance, _place); }
    // False leaves `*value` alone.
    bool fetch(const common_thermal_dao& dao, float* value) {
        const float* stored = find(dao);
        if (stored != nullptr) {
            *value = *stored;
        }
        return stored != nullptr;
    }
    // A key that is not there is made.
    void store(common_thermal_dao& dao, float value) { dao.store_dev(_name, _instance, _place, value); }

private:
    std::string _name;
    int _instance = 0;
    store_place _place;
};
