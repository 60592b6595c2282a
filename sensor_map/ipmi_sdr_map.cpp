#include "sensor_map/ipmi_sdr_map.hpp"

#include <cmath>
#include <string_view>

#include "device/event_status.hpp"
#include "foundation/float_conversion.hpp"
#include "foundation/log_masks.hpp"
#include "platform/ipmi.hpp"

namespace {

using sdr_map = common_thermal_device_ipmi_sdr_map;
using data_t = sdr_map::data_t;
using utils = common_thermal_utils;

constexpr const char* class_name = "common_thermal_device_ipmi_sdr_map";
constexpr std::string_view traced_key = "XXXmap_CPU1_PECI_THERMAL";

constexpr float least_without_range = 0.0f;
constexpr float most_without_range = 255.0f;

struct threshold_row {
    const char* prefix;  // of the store key
    const char* word;
    float data_t::*now;
    float data_t::*seen;
    std::uint8_t mark;  // bit of the threshold in the command
};

// As the store is read; the lower ones come second.
constexpr std::array<threshold_row, 6> threshold_rows{{
    {"3SNC.", "non_critical", &data_t::sel_non_critical, &data_t::pre_sel_non_critical, 8},
    {"3SC.", "critical", &data_t::sel_critical, &data_t::pre_sel_critical, 16},
    {"3SNR.", "non_recoverable", &data_t::sel_non_recoverable, &data_t::pre_sel_non_recoverable, 32},
    {"3LSNC.", "lower_non_critical", &data_t::sel_lower_non_critical, &data_t::pre_sel_lower_non_critical, 1},
    {"3LSCR.", "lower_critical", &data_t::sel_lower_critical, &data_t::pre_sel_lower_critical, 2},
    {"3LSNR.", "lower_non_recoverable", &data_t::sel_lower_non_recoverable, &data_t::pre_sel_lower_non_recoverable, 4},
}};
constexpr std::size_t upper_rows = 3;

// A number that is none would count as changed in every poll, and so counts as not set.
void fetch_threshold(const common_thermal_dao& dao, const threshold_row& row, store_reference& place, data_t& data) {
    float& now = data.*row.now;
    float& seen = data.*row.seen;
    if (!place.fetch(dao, &now) || std::isnan(now)) {
        now = seen = sdr_map::threshold_not_set;
    } else if (seen != now) {
        seen = now;
        data.sel_threshold_mask |= now != sdr_map::threshold_not_set ? row.mark : std::uint8_t{0};
    }
}

sdr_map::reading_type_7_state state_of(float value, const data_t& data) {
    const auto at_or_below = [value](float lower) { return lower != sdr_map::threshold_not_set && lower >= value; };
    const auto at_or_above = [value](float upper) { return upper != sdr_map::threshold_not_set && upper <= value; };
    if (at_or_below(data.sel_lower_non_recoverable)) return sdr_map::non_recoverable;
    if (at_or_below(data.sel_lower_critical)) return sdr_map::critical;
    if (at_or_below(data.sel_lower_non_critical)) return sdr_map::non_critical;
    if (at_or_above(data.sel_non_recoverable)) return sdr_map::non_recoverable;
    if (at_or_above(data.sel_critical)) return sdr_map::critical;
    if (at_or_above(data.sel_non_critical)) return sdr_map::non_critical;
    return sdr_map::normal;
}

bool sends_thresholds(utils::sel_event_t type) {
    return type == utils::sel_event_thresholds || type == utils::sel_event_thresholds_and_bits;
}

bool drives_ports(utils::sel_event_t type) {
    return type >= utils::sel_event_bits && type <= utils::sel_event_integers;
}

void write_event(common_thermal_utils& port, utils::sel_event_t type, bool high) {
    if (!port.is_bound()) {
        return;
    }
    const std::uint8_t value = high ? 1 : 0;
    if (type == utils::sel_event_integers) {
        port.write_port_integer(value);
    } else {
        port.write_port_bit(value);
    }
}

std::string line(const std::string& name, const std::string& value) { return "\n" + name + "=" + value; }
std::string line(const std::string& name, float value) { return line(name, std::to_string(value)); }
std::string line(const std::string& name, std::uint32_t value) { return line(name, std::to_string(value)); }

std::string line(const std::string& name, const common_thermal_utils& port) {
    return port.is_bound() ? line(name, std::to_string(port.get_key_uint()) + " - " + port.get_key_string()) : "";
}

std::string threshold_lines(const data_t& data, std::size_t begin) {
    std::string text;
    for (std::size_t i = begin; i < begin + upper_rows; ++i) {
        const threshold_row& row = threshold_rows[i];
        const std::string name = std::string("sel_") + row.word;
        text += line("pre_" + name, data.*row.seen) + line(name, data.*row.now);
    }
    return text;
}

std::string entry_text(const std::string& map_key, const data_t& data) {
    return line("map_key", map_key) + line("sensor_num", std::uint32_t{data.sensor_num}) +
           line("lun", std::uint32_t{data.lun}) + line("sdr_m", data.sdr_m) + line("sdr_b", data.sdr_b) +
           line("sdr_k2", data.sdr_k2) + line("sel_type", std::uint32_t{data.sel_type}) + threshold_lines(data, 0) +
           line("sel_lower_threshold", data.sel_lower_threshold) +
           (data.sel_lower_threshold != 0.0f ? threshold_lines(data, upper_rows) : "") +
           line("sel_event_state", std::uint32_t{data.sel_event_state}) +
           line("sdr_valid_range_min", data.sdr_valid_range_min) +
           line("sdr_valid_range_max", data.sdr_valid_range_max) +
           line("port_non_recoverable", data.port_non_recoverable) + line("port_non_critical", data.port_non_critical) +
           line("port_critical", data.port_critical) + line("port_output", data.port_output);
}

}  // namespace

void sdr_map::store_places::follow(const std::string& x_key, int instance) {
    const bool is_composed = !range_min.name().empty();
    if (is_composed && value.instance() == instance && value.name() == x_key) {
        return;
    }
    value = store_reference(x_key, instance);
    range_min = store_reference("3MIN." + x_key, instance);
    range_max = store_reference("3MAX." + x_key, instance);
    lower_threshold = store_reference("3LTHD." + x_key, instance);
    for (std::size_t i = 0; i < threshold_rows.size(); ++i) {
        thresholds[i] = store_reference(threshold_rows[i].prefix + x_key, instance);
    }
}

common_thermal_device_ipmi_sdr_map::common_thermal_device_ipmi_sdr_map(int instance)
    : common_thermal_device(class_name, class_name, instance, utils::tdev_ipmi_sdr_map) {}

void common_thermal_device_ipmi_sdr_map::init_sdr_map(const std::string& map_key) {
    _sdr_map.erase(map_key);
    _sdr_map.try_emplace(map_key);
}

data_t* common_thermal_device_ipmi_sdr_map::find_entry(const char* function, const std::string& map_key) {
    const auto found = _sdr_map.find(map_key);
    if (found == _sdr_map.end()) {
        LOG::warn(log_source, log_mask::life_cycle, "%s::%s - no entry for map key [%s]\n", class_name, function,
                  map_key.c_str());
        return nullptr;
    }
    return &found->second;
}

void common_thermal_device_ipmi_sdr_map::set_sdr_parameters(const std::string& map_key, float sdr_m, float sdr_b,
                                                            float sdr_k2, unsigned sensor_num, unsigned lun) {
    if (data_t* data = find_entry("set_sdr_parameters", map_key)) {
        data->sdr_m = sdr_m;
        data->sdr_b = sdr_b;
        data->sdr_k2 = sdr_k2;
        data->sensor_num = static_cast<std::uint8_t>(sensor_num);
        data->lun = static_cast<std::uint8_t>(lun);
    }
}

void common_thermal_device_ipmi_sdr_map::set_sel_type(const std::string& map_key, sel_event_t type) {
    if (data_t* data = find_entry("set_sel_type", map_key)) {
        data->sel_type = type;
    }
}

void common_thermal_device_ipmi_sdr_map::set_port_output(const std::string& map_key, const std::string& port) {
    if (data_t* data = find_entry("set_port_output", map_key)) {
        data->port_output.create_port_integer(*this, map_key, get_instance(), port);
    }
}

void common_thermal_device_ipmi_sdr_map::set_port_output(const std::string& map_key, unsigned port) {
    if (data_t* data = find_entry("set_port_output", map_key)) {
        data->port_output.create_port_integer(*this, map_key, get_instance(), port, false);
    }
}

template <class... Where>
void common_thermal_device_ipmi_sdr_map::bind_event(common_thermal_utils& port, sel_event_t type,
                                                    const std::string& map_key, const Where&... where) {
    if (type == utils::sel_event_integers) {
        port.create_port_integer(*this, map_key, get_instance(), where...);
    } else {
        port.create_port_bit(*this, map_key, get_instance(), where...);
    }
}

void common_thermal_device_ipmi_sdr_map::set_port_discrete_event(const std::string& map_key, unsigned non_critical_port,
                                                                 unsigned critical_port,
                                                                 unsigned non_recoverable_port) {
    if (data_t* data = find_entry("set_port_discrete_event", map_key)) {
        bind_event(data->port_non_critical, data->sel_type, map_key, non_critical_port, false);
        bind_event(data->port_critical, data->sel_type, map_key, critical_port, false);
        bind_event(data->port_non_recoverable, data->sel_type, map_key, non_recoverable_port, false);
    }
}

void common_thermal_device_ipmi_sdr_map::set_port_discrete_event(const std::string& map_key,
                                                                 const std::string& non_critical_port,
                                                                 const std::string& critical_port,
                                                                 const std::string& non_recoverable_port) {
    if (data_t* data = find_entry("set_port_discrete_event", map_key)) {
        bind_event(data->port_non_critical, data->sel_type, map_key, non_critical_port);
        bind_event(data->port_critical, data->sel_type, map_key, critical_port);
        bind_event(data->port_non_recoverable, data->sel_type, map_key, non_recoverable_port);
    }
}

void common_thermal_device_ipmi_sdr_map::poll(common_thermal_dao* dao, unsigned long) {
    const bool closed = any_depend<common_thermal_device_event_status>(
        utils::tdev_event_status, [](const auto& status) { return !status.get_stage(utils::ipmi_ready); });
    if (dao == nullptr || closed) {
        return;
    }
    for (auto& [map_key, data] : _sdr_map) {
        poll_entry(*dao, map_key, data);
    }
}

void common_thermal_device_ipmi_sdr_map::poll_entry(common_thermal_dao& dao, const std::string& map_key, data_t& data) {
    const bool trace = map_key == traced_key && LOG::is_enabled(log_mask::change);
    if (trace) {
        LOG::log(log_source, log_mask::change, "tdev_ipmi_sdr::%s() - map_key[%s]\n", "poll", map_key.c_str());
    }
    const common_thermal_utils::dao_t* source = dao.find_ipmi_sdr_key_dao(map_key);
    reading now{.m = data.sdr_m};
    reading_type_7_state state = normal;
    if (source != nullptr) {
        data.places.follow(source->name, source->instance);
        now = read_value(dao, data, trace);
        fetch_dao_config_sel_thresholds(&dao, source->name, source->instance, &data);
        state = report(map_key, data, now);
    }
    data.sel_event_state = state;
    if (now.valid && data.port_output.is_bound()) {
        write_output(data, now, trace);
    }
    if (trace || LOG::is_enabled(log_mask::life_cycle)) {
        log_entry(data, source, now, trace);
    }
}

common_thermal_device_ipmi_sdr_map::reading common_thermal_device_ipmi_sdr_map::read_value(
    const common_thermal_dao& dao, data_t& data, bool trace) const {
    store_places& places = data.places;
    const char* x_key = places.value.name().c_str();
    const int instance = places.value.instance();
    const auto note = [&](const char* what) {
        if (trace) {
            LOG::log(log_source, log_mask::change, "tdev_ipmi_sdr::%s() - %s for DAO[%s.%d]\n", "poll", what, x_key,
                     instance);
        }
    };
    reading now{.m = data.sdr_m <= 0.0f ? 1.0f : data.sdr_m};
    now.valid = places.value.fetch(dao, &now.value);
    if (trace) {
        LOG::log(log_source, log_mask::change, "tdev_ipmi_sdr::%s() - DAO[%s.%d]=[%3.2f]\n", "poll", x_key, instance,
                 shown(now.value));
    }
    if (!places.range_min.fetch(dao, &data.sdr_valid_range_min)) {
        data.sdr_valid_range_min = least_without_range;
        note("3MIN IO missing");
    }
    const bool too_low = data.sdr_valid_range_min > now.value;
    if (too_low) note("3MIN check failed");
    if (!places.range_max.fetch(dao, &data.sdr_valid_range_max)) {
        data.sdr_valid_range_max = most_without_range;
        note("3MAX IO missing");
    }
    const bool too_high = data.sdr_valid_range_max < now.value;
    if (too_high) note("3MAX check failed");
    now.valid = now.valid && !too_low && !too_high;
    return now;
}

void common_thermal_device_ipmi_sdr_map::fetch_dao_config_sel_thresholds(common_thermal_dao* dao,
                                                                         const std::string& x_key, int instance,
                                                                         data_t* data) {
    store_places& places = data->places;
    places.follow(x_key, instance);
    for (std::size_t i = 0; i < upper_rows; ++i) {
        fetch_threshold(*dao, threshold_rows[i], places.thresholds[i], *data);
    }
    if (!places.lower_threshold.fetch(*dao, &data->sel_lower_threshold)) {
        data->sel_lower_threshold = 0.0f;
    }
    if (data->sel_lower_threshold != 0.0f) {
        for (std::size_t i = upper_rows; i < threshold_rows.size(); ++i) {
            fetch_threshold(*dao, threshold_rows[i], places.thresholds[i], *data);
        }
    }
}

common_thermal_device_ipmi_sdr_map::reading_type_7_state common_thermal_device_ipmi_sdr_map::report(
    const std::string& map_key, data_t& data, const reading& now) {
    if (sends_thresholds(data.sel_type) && data.sel_threshold_mask != 0 &&
        set_sensor_thresholds(data.sensor_num, data.lun, &data)) {
        data.sel_threshold_mask = 0;
    }
    if (!drives_ports(data.sel_type) || !now.valid) {
        return normal;
    }
    const reading_type_7_state state = get_state_with_thresholds(now.value, &data);
    set_sel_threshold(map_key, data.sel_event_state, state);
    return state;
}

common_thermal_device_ipmi_sdr_map::reading_type_7_state common_thermal_device_ipmi_sdr_map::get_state_with_thresholds(
    float value, const data_t* data) const {
    const reading_type_7_state state = state_of(value, *data);
    if (LOG::is_enabled(log_mask::life_cycle)) {
        LOG::log(log_source, log_mask::life_cycle,
                 "common_thermal_device_ipmi_sdr_map::%s - %d:[%03f]Upper[%03f, %03f, %03f]:Lower[%03f,%03f,%03f]\n",
                 "get_state_with_thresholds", static_cast<int>(state), shown(value), shown(data->sel_non_recoverable),
                 shown(data->sel_critical), shown(data->sel_non_critical), shown(data->sel_lower_non_critical),
                 shown(data->sel_lower_critical), shown(data->sel_lower_non_recoverable));
    }
    return state;
}

bool common_thermal_device_ipmi_sdr_map::set_sensor_thresholds(unsigned char sensor_num, unsigned char lun,
                                                               const data_t* data) const {
    if (sensor_num == 0) {
        return false;
    }
    const std::array<std::uint8_t, 12> request{
        0x20,  // this controller
        0x04,  // function Sensor/Event
        lun,
        0x26,  // Set Sensor Thresholds
        sensor_num,
        data->sel_threshold_mask,
        saturate_to_byte(data->sel_lower_non_critical),
        saturate_to_byte(data->sel_lower_critical),
        saturate_to_byte(data->sel_lower_non_recoverable),
        saturate_to_byte(data->sel_non_critical),
        saturate_to_byte(data->sel_critical),
        saturate_to_byte(data->sel_non_recoverable),
    };
    LOG::log(log_source, log_mask::life_cycle,
             "common_thermal_device_ipmi_sdr_map::%s - %d:Upper[%03d, %03d, %03d]:Lower[%03d,%03d,%03d]\n",
             "set_sensor_thresholds", request[5], request[11], request[10], request[9], request[6], request[7],
             request[8]);
    const auto request_length = static_cast<std::uint32_t>(request.size());
    std::array<std::uint8_t, 52> response{};
    std::uint32_t response_length = 0;
    return send_ipmi_cmd(request.data(), &request_length, response.data(), &response_length) == 0;
}

void common_thermal_device_ipmi_sdr_map::set_sel_threshold(const std::string& map_key, reading_type_7_state previous,
                                                           reading_type_7_state current) {
    if (previous != current) {
        change_port_state(map_key, current >= non_critical, current >= critical, current >= non_recoverable);
    }
}

void common_thermal_device_ipmi_sdr_map::change_port_state(const std::string& map_key, bool non_critical_high,
                                                           bool critical_high, bool non_recoverable_high) {
    if (data_t* data = find_entry("change_port_state", map_key)) {
        write_event(data->port_non_recoverable, data->sel_type, non_recoverable_high);
        write_event(data->port_critical, data->sel_type, critical_high);
        write_event(data->port_non_critical, data->sel_type, non_critical_high);
    }
}

void common_thermal_device_ipmi_sdr_map::write_output(data_t& data, const reading& now, bool trace) const {
    const float raw = (data.sdr_k2 * now.value - data.sdr_b) / now.m;
    data.port_output.write_port_integer(saturate_to_unsigned(std::round(raw)));
    if (trace) {
        const std::string port = physical_io_locator::rev_find_all(data.port_output.get_key_uint());
        LOG::log(log_source, log_mask::change,
                 "tdev_ipmi_sdr::%s() - in-val=[%f] out-val=float[%f] uint[%d] port_output[%s]\n", "poll",
                 shown(now.value), shown(raw), static_cast<int>(saturate_to_unsigned(raw)), port.c_str());
    }
}

void common_thermal_device_ipmi_sdr_map::log_entry(const data_t& data, const common_thermal_utils::dao_t* source,
                                                   const reading& now, bool trace) const {
    const auto with_arguments = [&](const auto& log) {
        log("poll", source != nullptr ? 1 : 0, source != nullptr ? source->name.c_str() : "",
            source != nullptr ? source->instance : 0, shown(data.sdr_valid_range_min), shown(data.sdr_valid_range_max),
            shown(now.value), shown(now.m), shown(data.sdr_k2), shown(data.sdr_b), static_cast<int>(data.sel_type),
            shown(data.sel_lower_threshold), shown(data.pre_sel_non_critical), shown(data.sel_non_critical),
            shown(data.pre_sel_critical), shown(data.sel_critical), shown(data.pre_sel_non_recoverable),
            shown(data.sel_non_recoverable));
    };
    with_arguments([](auto... arguments) {
        LOG::log(log_source, log_mask::life_cycle,
                 "common_thermal_device_ipmi_sdr_map::%s - %d:[%s, %d] [%f, %f, %f] [%f,%f,%f] [%d-%f] "
                 "[%f:%f,%f:%f,%f:%f]\n",
                 arguments...);
    });
    if (trace) {
        with_arguments([](auto... arguments) {
            LOG::log(log_source, log_mask::change,
                     "tdev_ipmi_sdr::%s() - %d:[%s.%d] min/max/val[%f, %f, %f] m/k2/b[%f,%f,%f] type/low[%d-%f] "
                     "thresh[%f:%f,%f:%f,%f:%f]\n",
                     arguments...);
        });
    }
}

std::string common_thermal_device_ipmi_sdr_map::debug() {
    std::string text;
    for (const auto& [map_key, data] : _sdr_map) {
        text += entry_text(map_key, data);
    }
    return text;
}
