#pragma once

#include <array>
#include <map>

#include "device/common_thermal_device.hpp"

// Shows store values as IPMI sensors: raw readings on output ports, thresholds to the sensor or states on event ports,
// as each entry says. What an entry shows, its range and its thresholds come from the store with every poll, where
// common_thermal_algorithm_ipmi_sdr_map puts them. Until all event status devices it depends on have ipmi_ready it does
// nothing.
class THERMAL_API common_thermal_device_ipmi_sdr_map : public common_thermal_device {
public:
    using sel_event_t = common_thermal_utils::sel_event_t;

    enum reading_type_7_state : std::uint32_t { normal = 0, non_critical = 1, critical = 2, non_recoverable = 3 };

    // A threshold that is not set, and so what no threshold can be.
    static constexpr float threshold_not_set = 255.0f;

    // Where an entry's numbers stand in the store, remembered until the entry shows another value.
    struct store_places {
        store_reference value;
        store_reference range_min;
        store_reference range_max;
        store_reference lower_threshold;
        std::array<store_reference, 6> thresholds;

        void follow(const std::string& x_key, int instance);
    };

    // One sensor. What the last poll found in the store stands beside what the board set up.
    struct data_t {
        common_thermal_utils port_output;  // raw reading
        common_thermal_utils port_non_critical;
        common_thermal_utils port_critical;
        common_thermal_utils port_non_recoverable;

        std::uint8_t sensor_num = 0;  // 0: thresholds are never sent
        std::uint8_t lun = 0;
        float sdr_m = 1.0f;
        float sdr_b = 0.0f;
        float sdr_k2 = 1.0f;  // a factor, not an exponent
        float sdr_valid_range_min = 0.0f;
        float sdr_valid_range_max = 100.0f;

        sel_event_t sel_type = common_thermal_utils::sel_event_none;
        float pre_sel_non_critical = threshold_not_set;
        float sel_non_critical = threshold_not_set;
        float pre_sel_critical = threshold_not_set;
        float sel_critical = threshold_not_set;
        float pre_sel_non_recoverable = threshold_not_set;
        float sel_non_recoverable = threshold_not_set;
        std::uint8_t sel_threshold_mask = 0;  // changed since the last successful send, bits as the command has them
        reading_type_7_state sel_event_state = normal;
        float sel_lower_threshold = 0.0f;
        float pre_sel_lower_non_critical = threshold_not_set;
        float sel_lower_non_critical = threshold_not_set;
        float pre_sel_lower_critical = threshold_not_set;
        float sel_lower_critical = threshold_not_set;
        float pre_sel_lower_non_recoverable = threshold_not_set;
        float sel_lower_non_recoverable = threshold_not_set;

        store_places places;
    };

    explicit common_thermal_device_ipmi_sdr_map(int instance);

    // Board code, before the first poll. init_sdr_map() makes the entry, a new one if the key is taken, and
    // set_sel_type() comes ahead of set_port_discrete_event(), which binds bit or integer ports by it. A key without an
    // entry leaves a warning and changes nothing.
    void init_sdr_map(const std::string& map_key);
    // A raw reading is (sdr_k2 * value - sdr_b) / sdr_m, an `sdr_m` of 0 or below counting as 1. Thresholds are sent
    // as the rules have them, so a sensor that takes them shows whole units. Sensor number and unit have 8 bits.
    void set_sdr_parameters(const std::string& map_key, float sdr_m, float sdr_b, float sdr_k2, unsigned sensor_num,
                            unsigned lun);
    void set_sel_type(const std::string& map_key, sel_event_t type);
    void set_port_output(const std::string& map_key, const std::string& port);
    void set_port_output(const std::string& map_key, unsigned port);
    void set_port_discrete_event(const std::string& map_key, unsigned non_critical, unsigned critical,
                                 unsigned non_recoverable);
    void set_port_discrete_event(const std::string& map_key, const std::string& non_critical,
                                 const std::string& critical, const std::string& non_recoverable);

    void poll(common_thermal_dao* dao, unsigned long now) override;
    std::string debug() override;

    // The worst that holds, lower thresholds ahead of upper ones; a value equal to a threshold has reached it.
    reading_type_7_state get_state_with_thresholds(float value, const data_t* data) const;
    // Brings the thresholds up to date and marks those that got another value. One that is gone, or no number, leaves
    // no mark: the sensor keeps it. While there is no lower flag the lower ones stay what they are.
    void fetch_dao_config_sel_thresholds(common_thermal_dao* dao, const std::string& x_key, int instance, data_t* data);
    // True if the command went out and was accepted.
    bool set_sensor_thresholds(unsigned char sensor_num, unsigned char lun, const data_t* data) const;
    // Writes the event ports if the state changed.
    void set_sel_threshold(const std::string& map_key, reading_type_7_state previous, reading_type_7_state current);
    void change_port_state(const std::string& map_key, bool non_critical_high, bool critical_high,
                           bool non_recoverable_high);

private:
    // What a poll makes of an entry's value. The factor is the one that the reading is divided by.
    struct reading {
        float value = 0.0f;
        float m = 1.0f;
        bool valid = false;
    };

    data_t* find_entry(const char* function, const std::string& map_key);
    // A bit or an integer port, as the type has it.
    template <class... Where>
    void bind_event(common_thermal_utils& port, sel_event_t type, const std::string& map_key, const Where&... where);

    void poll_entry(common_thermal_dao& dao, const std::string& map_key, data_t& data);
    reading read_value(const common_thermal_dao& dao, data_t& data, bool trace) const;
    reading_type_7_state report(const std::string& map_key, data_t& data, const reading& now);
    void write_output(data_t& data, const reading& now, bool trace) const;
    void log_entry(const data_t& data, const common_thermal_utils::dao_t* source, const reading& now, bool trace) const;

    std::map<std::string, data_t> _sdr_map;
};
