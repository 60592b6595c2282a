#include <cstdio>
#include <utility>

#include "foundation/diagnostic_file.hpp"
#include "foundation/float_conversion.hpp"
#include "store/common_thermal_dao.hpp"

// Result histories and snapshot texts, and the files that they go to.
namespace {

std::uint32_t location_of(unsigned long key) { return static_cast<std::uint32_t>(key) >> 16; }
std::uint32_t slot_number_of(unsigned long key) { return static_cast<std::uint32_t>(key) & 0xFFFF; }

// A duty is a whole percentage.
bool is_same_duty(const applied_result& last, const applied_result& next) {
    return last.name == next.name && last.instance == next.instance &&
           saturate_to_byte(last.value) == saturate_to_byte(next.value);
}

// False for a file that could not be opened, or not be written to its end.
bool close_list(diagnostic_file& file, unsigned long now, std::size_t records) {
    file.text("\n");
    file.metadata(now, records);
    return file.finish();
}

void write_whole_line(diagnostic_file& file, unsigned long timestamp, const applied_result& result) {
    file.line("%ld-%s.%d-%d\n", static_cast<long>(timestamp), result.name.c_str(), static_cast<int>(result.instance),
              static_cast<int>(saturate_to_unsigned(result.value)));
}

void write_duty_line(diagnostic_file& file, unsigned long timestamp, const applied_result& result) {
    file.line("%ld-%s.%d-%f\n", static_cast<long>(timestamp), result.name.c_str(), static_cast<int>(result.instance),
              shown(result.value));
}

using line_writer = void (*)(diagnostic_file& file, unsigned long timestamp, const applied_result& result);

void dump(result_history& history, const char* what, unsigned long now, line_writer write_line) {
    diagnostic_file file("debug_thermal_%s%u.log.%u", what, history.id(), history.take_file_number());
    if (!file.is_open()) {
        return;
    }
    for (const result_history::record& each : history.records()) {
        write_line(file, each.timestamp, each.result);
    }
    if (close_list(file, now, history.records().size())) {
        history.restart(now);
    }
}

// A full history goes to its file. One that found none gets another try ahead of the next record.
template <class Dump>
void enter(result_history& history, unsigned long now, const applied_result& result, const Dump& to_file) {
    if (history.is_full()) {
        to_file();
    }
    const bool has_no_file = history.is_full();
    history.add(now, result);
    if (history.is_full() && !has_no_file) {
        to_file();
    }
}

}  // namespace

void common_thermal_dao::update_debug_fan_alg(unsigned long now, unsigned fan, const interned_name& name,
                                              unsigned instance, float value) {
    if (_fan_count == 0) {
        return;
    }
    const unsigned index = convert_fan_inst_to_index(fan);
    const applied_result result{name, instance, value};
    const applied_result* last = _fan_alg_records[index].last();
    if (last == nullptr || !is_same_duty(*last, result)) {
        enter(_fan_alg_records[index], now, result, [&] { write_debug_fan_inst_alg_by_fan_index(now, index); });
    }
}

void common_thermal_dao::update_debug_cap_alg(unsigned long now, unsigned kind, const interned_name& name,
                                              unsigned instance, unsigned value) {
    if (kind >= _cap_alg_records.size()) {
        return;
    }
    const applied_result result{name, instance, static_cast<float>(value)};
    const applied_result* last = _cap_alg_records[kind].last();
    if (last == nullptr || *last != result) {
        enter(_cap_alg_records[kind], now, result, [&] { write_debug_cap_index_alg_by_cap_index(now, kind); });
    }
}

void common_thermal_dao::update_debug_pwrlmt_alg(unsigned long now, unsigned long key, const interned_name& name,
                                                 unsigned instance, std::uint16_t value) {
    const auto slot = static_cast<std::uint32_t>(key);
    if (!_pwrlmt_alg_records.add(now, slot, {name, instance, static_cast<float>(value)}) ||
        !_pwrlmt_alg_records.is_overfull()) {
        return;
    }
    write_debug_pwrlmt_index_alg_by_pwrlmt_index(now, key);
    if (_pwrlmt_alg_records.is_overfull()) {
        _pwrlmt_alg_records.drop_oldest(slot);
    }
}

void common_thermal_dao::write_debug_fan_alg(unsigned long now) {
    for (unsigned fan = 1; fan <= _fan_count; ++fan) {
        write_debug_fan_inst_alg_by_fan_index(now, convert_fan_inst_to_index(fan));
    }
}

void common_thermal_dao::write_debug_fan_inst_alg_by_fan_index(unsigned long now, unsigned index) {
    if (index < _fan_count) {
        dump(_fan_alg_records[index], "fan", now, write_duty_line);
    }
}

void common_thermal_dao::write_debug_cap_alg(unsigned long now) {
    for (unsigned kind = 0; kind < _cap_alg_records.size(); ++kind) {
        write_debug_cap_index_alg_by_cap_index(now, kind);
    }
}

void common_thermal_dao::write_debug_cap_index_alg_by_cap_index(unsigned long now, unsigned kind) {
    if (kind < _cap_alg_records.size()) {
        dump(_cap_alg_records[kind], "cap", now, write_whole_line);
    }
}

void common_thermal_dao::write_debug_pwrlmt_alg(unsigned long now, unsigned long key) {
    write_debug_pwrlmt_index_alg_by_pwrlmt_index(now, key);
}

void common_thermal_dao::write_debug_pwrlmt_index_alg_by_pwrlmt_index(unsigned long now, unsigned long key) {
    const auto slot = static_cast<std::uint32_t>(key);
    diagnostic_file file("debug_thermal_pwrlmt_%u-%u.log.%u", location_of(key), slot_number_of(key),
                         _pwrlmt_alg_records.take_file_number(slot));
    if (!file.is_open()) {
        return;
    }
    std::size_t records = 0;
    _pwrlmt_alg_records.for_each(slot, [&](const limit_history::debug_pwrlmt_alg_t& each) {
        write_whole_line(file, each.timestamp, each.result);
        ++records;
    });
    if (close_list(file, now, records)) {
        _pwrlmt_alg_records.restart(now, slot);
    }
}

void common_thermal_dao::update_debug_tdev(const std::string& name, int instance, std::string text) {
    _debug_text[log_type_t::log_devices][std::string(dao_key(name, instance).view())] = std::move(text);
}

void common_thermal_dao::update_debug_talg(const std::string& name, int instance, std::string text) {
    _debug_text[log_type_t::log_algorithms][std::string(dao_key(name, instance).view())] = std::move(text);
}

void common_thermal_dao::update_debug_scheduler(unsigned slot, unsigned position, unsigned index,
                                                const std::string& name, int instance) {
    char place[32];
    std::snprintf(place, sizeof(place), "%03d.%05d", static_cast<int>(slot), static_cast<int>(position));
    std::string& text = _debug_text[log_type_t::log_schedule][place];
    text.assign("\n").append(place).append("=").append(std::to_string(index));
    text.append("=").append(name).append(".").append(std::to_string(instance));
}

int common_thermal_dao::take_file_number(log_type_t type) {
    constexpr int files = 5;
    int& next = _debug_file_index[type];
    if (next >= files) {
        next = 0;
    }
    return next++;
}

void common_thermal_dao::write_debug_list(unsigned long now, const std::string& prefix, log_type_t type) {
    const std::string directory = std::string(diagnostics_directory) + "/";
    const bool has_directory = prefix.starts_with(directory);
    diagnostic_file file("%s%d", prefix.c_str() + (has_directory ? directory.size() : 0), take_file_number(type));
    const auto& texts = _debug_text[type];
    for (const auto& [key, text] : texts) {
        file.text(text);
    }
    close_list(file, now, texts.size());
}

void common_thermal_dao::write_debug_tdev_list(unsigned long now) {
    write_debug_list(now, "/tmp/thermal/debug_thermal_device.log.", log_type_t::log_devices);
}

void common_thermal_dao::write_debug_talg_list(unsigned long now) {
    write_debug_list(now, "/tmp/thermal/debug_thermal_algorithm.log.", log_type_t::log_algorithms);
}

void common_thermal_dao::write_debug_scheduler_list(unsigned long now) {
    write_debug_list(now, "/tmp/thermal/debug_thermal_device_scheduler.log.", log_type_t::log_schedule);
}

void common_thermal_dao::write_dao_list(unsigned long now) {
    write_debug_dao_list(now);
    write_debug_ipmi_sdr_map_list(now);
}

void common_thermal_dao::write_debug_dao_list(unsigned long now) {
    diagnostic_file file("debug_thermal_dao.log.%d", take_file_number(log_type_t::log_store));
    const auto sorted = values();
    for (const auto& [key, value] : sorted) {
        file.text(key);
        file.line("=%f\n", shown(value));
    }
    close_list(file, now, sorted.size());
}

void common_thermal_dao::write_debug_ipmi_sdr_map_list(unsigned long now) {
    diagnostic_file file("debug_thermal_ipmi_sdr_map.log.%d", take_file_number(log_type_t::log_ipmi_sensors));
    for (const auto& [map_key, source] : _ipmi_sdr_key_dao) {
        file.text(source.name);
        file.line(" - %d\n", source.instance);
    }
    close_list(file, now, _ipmi_sdr_key_dao.size());
}
