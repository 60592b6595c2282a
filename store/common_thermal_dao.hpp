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
#include "store/result_history.hpp"
#include "store/store_place.hpp"

// The blackboard: one float for each key, name + "." + instance. Devices write readings, algorithms read them and write
// results, settings travel under prefixed names. Keys are made by the first write and stay for the life of the store;
// nothing else tells whether a value was ever written. Used on the thermal thread only; only a miss is ever reported.
class THERMAL_API common_thermal_dao {
    struct spike_places;

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
        spike_places* _spike = nullptr;    // the store's; of the same store as the setting
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

    // Shares the history of fan results, 4096 records, out among `fans` fans, 63 at most. The first positive count
    // stands.
    void reserve_fan_alg(unsigned fans);
    unsigned convert_fan_inst_to_index(unsigned instance) const;

    // Who got what out in this cycle: a rule's class and number, and a duty, a cap or a slot's limit. Only what differs
    // from the last entry is kept, in memory; a history that is full goes to its file at once. `now` is in seconds.
    void update_debug_fan_alg(unsigned long now, unsigned fan, const interned_name& name, unsigned instance,
                              float value);
    void update_debug_cap_alg(unsigned long now, unsigned kind, const interned_name& name, unsigned instance,
                              unsigned value);
    void update_debug_pwrlmt_alg(unsigned long now, unsigned long key, const interned_name& name, unsigned instance,
                                 std::uint16_t value);
    // To their files now, after which a history begins with what is in force. One whose file cannot be opened stays.
    void write_debug_fan_alg(unsigned long now);
    void write_debug_fan_inst_alg_by_fan_index(unsigned long now, unsigned index);
    void write_debug_cap_alg(unsigned long now);
    void write_debug_cap_index_alg_by_cap_index(unsigned long now, unsigned kind);
    void write_debug_pwrlmt_alg(unsigned long now, unsigned long key);
    void write_debug_pwrlmt_index_alg_by_pwrlmt_index(unsigned long now, unsigned long key);

    using log_type_t = common_thermal_utils::log_type_t;

    // State texts for a snapshot, by name and instance, and the schedule by slot and position.
    void update_debug_tdev(const std::string& name, int instance, std::string text);
    void update_debug_talg(const std::string& name, int instance, std::string text);
    void update_debug_scheduler(unsigned slot, unsigned position, unsigned index, const std::string& name,
                                int instance);
    void clear_debug_texts(log_type_t type) { _debug_text[type].clear(); }
    // A family's texts to its next file, `prefix` and a number from 0 to 4, in the directory for diagnostics.
    void write_debug_list(unsigned long now, const std::string& prefix, log_type_t type);
    void write_debug_tdev_list(unsigned long now);
    void write_debug_talg_list(unsigned long now);
    void write_debug_scheduler_list(unsigned long now);
    // All values, and which of them feed the IPMI sensors.
    void write_dao_list(unsigned long now);
    void write_debug_dao_list(unsigned long now);
    void write_debug_ipmi_sdr_map_list(unsigned long now);
    // There is no such list.
    void write_debug_mapping_list(unsigned long) const {}

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
    int take_file_number(log_type_t type);
    void update_carefully(dev_data_t& data, dev_data_spike_t spike, bool log);

    // Where the settings and counters of one value's spike filter stand.
    struct spike_places {
        store_place value;
        store_place maximum;
        store_place critical;
        store_place high;
        store_place low;
        store_place count;
        store_place delta_maximum;
        store_place delta;
        store_place delta_count;
    };
    // One value under its filter.
    struct filtered_value {
        std::string_view name;
        int instance;
        spike_places& places;
    };
    float setting(const filtered_value& of, std::string_view prefix, store_place& place) const;
    float& made(const filtered_value& of, std::string_view prefix, store_place& place);
    bool has_high_or_low(const filtered_value& of) const;
    bool is_believed(const filtered_value& of, float value, dev_data_spike_t spike);
    bool count_suspicion(const filtered_value& of, std::string_view prefix, store_place& place, bool suspicious,
                         float maximum, float& count);
    bool check_one_sided(const char* function, const filtered_value& of, float value, bool going_high);
    bool check_high_low(const filtered_value& of, float value);
    bool check_delta(const filtered_value& of, float value);

    mutable value_map _dev_data;
    std::unordered_map<std::string, spike_places, key_hash, std::equal_to<>> _spike_places;
    std::uint32_t _identity;
    std::map<std::string, common_thermal_utils::dao_t> _ipmi_sdr_key_dao;
    std::uint32_t _fan_count = 0;
    std::array<result_history, 63> _fan_alg_records;
    std::array<result_history, 7> _cap_alg_records;
    limit_history _pwrlmt_alg_records;
    std::map<log_type_t, std::map<std::string, std::string>> _debug_text;
    std::map<log_type_t, int> _debug_file_index;
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
