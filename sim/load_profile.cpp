#include "sim/load_profile.hpp"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <string_view>

namespace sim {

namespace {

constexpr const char* time_column = "time_s";
constexpr std::string_view fan_prefix = "fan_";
constexpr std::string_view sensor_suffix = "_sensor";
constexpr std::string_view power_suffix = "_w";

constexpr std::string_view load_suffix = "_load_percent";
constexpr std::string_view drive_prefix = "drive_";
constexpr std::string_view slot_prefix = "slot_";

std::span<const std::size_t> parts_before(const machine_plan& plan, std::string_view column, std::string_view suffix) {
    return column.ends_with(suffix) ? plan.find(column.substr(0, column.size() - suffix.size()))
                                    : std::span<const std::size_t>();
}

// From 1 to `last`; 0 for a column that is not the prefix and such a number.
unsigned number_behind(std::string_view column, std::string_view prefix, unsigned last) {
    unsigned number = 0;
    if (!column.starts_with(prefix)) {
        return 0;
    }
    column.remove_prefix(prefix.size());
    const auto [end, error] = std::from_chars(column.data(), column.data() + column.size(), number);
    return error == std::errc() && end == column.data() + column.size() && number <= last ? number : 0;
}

void check_range(const csv_table& table, const std::string& column, const std::vector<double>& values, double low,
                 double high) {
    for (std::size_t row = 0; row < values.size(); ++row) {
        if (values[row] < low || values[row] > high) {
            char text[80];
            std::snprintf(text, sizeof text, ": %g is not within %g to %g", values[row], low, high);
            table.fail_in_row(row, "column '" + column + "'" + text);
        }
    }
}

}  // namespace

load_profile::range load_profile::find_target(const machine_plan& plan, std::string_view column, channel& made) {
    constexpr range percent{0.0, 100.0};
    constexpr range on_or_off{0.0, 1.0};
    if (column == "load_percent") {
        made.what = target::load;
        return percent;
    }
    if (column == "inlet_c") {
        made.what = target::inlet;
        return {-40.0, 100.0};
    }
    if (column == "dust_filter") {
        made.what = target::dust_filter;
        return on_or_off;
    }
    for (std::size_t kind = 0; kind < load_names.size(); ++kind) {
        if (column.starts_with(load_names[kind]) &&
            column.substr(std::string_view(load_names[kind]).size()) == load_suffix) {
            made.what = target::load_of_kind;
            made.index = kind;
            return percent;
        }
    }
    if ((made.index = number_behind(column, fan_prefix, server_fans)) != 0) {
        made.what = target::fan;
        return on_or_off;
    }
    const auto slots = static_cast<unsigned>(plan.slots().size());
    if ((made.index = number_behind(column, slot_prefix, slots)) != 0) {
        made.what = target::slot;
        return on_or_off;
    }
    if ((made.index = number_behind(column, drive_prefix, drive_bays)) != 0) {
        made.what = target::drive;
        return on_or_off;
    }
    made.parts = parts_before(plan, column, sensor_suffix);
    made.what = target::sensor;
    if (made.parts.empty()) {
        made.parts = parts_before(plan, column, power_suffix);
        made.what = target::power;
    }
    return made.what == target::sensor ? on_or_off : range{0.0, 1000.0};
}

load_profile::channel load_profile::channel_of(const csv_table& table, const machine_plan& plan,
                                               const std::string& column) {
    channel made{target::load, 0, {}, table.seconds(time_column), table.numbers(column)};
    const range values = find_target(plan, column, made);
    if (made.what == target::power && made.parts.empty()) {
        table.fail(0, "column '" + column + "' is none of a load profile, --help lists them");
    }
    check_range(table, column, made.values, values.low, values.high);
    return made;
}

load_profile load_profile::from(const csv_table& table, const machine_plan& plan) {
    load_profile profile;
    table.seconds(time_column);
    if (table.row_count() == 0) {
        table.fail(0, "no rows");
    }
    for (const std::string& column : table.columns()) {
        if (column != time_column) {
            profile._channels.push_back(channel_of(table, plan, column));
        }
    }
    return profile;
}

void load_profile::add_trace(const csv_table& table, const std::string& column, std::span<const std::size_t> parts) {
    const auto time = std::ranges::find_if(table.columns(), [](const auto& name) { return name.starts_with("time"); });
    if (time == table.columns().end()) {
        table.fail(0, "no column whose name begins with 'time'");
    }
    channel trace{target::power, 0, parts, table.seconds(*time), table.numbers(column), false};
    check_range(table, column, trace.values, 0.0, 1000.0);
    if (trace.times.empty()) {
        table.fail(0, "no rows");
    }
    _channels.push_back(std::move(trace));
}

void load_profile::apply(double now, server_physics& server, const event_sink& tell) {
    for (channel& source : _channels) {
        // The first row holds from the start, whatever its time.
        for (; source.next < source.times.size() && (source.next == 0 || source.times[source.next] <= now);
             ++source.next) {
            const double value = source.values[source.next];
            change(source, value, server);
            const bool differs = source.next > 0 && value != source.values[source.next - 1];
            if (differs && source.told && tell) {
                tell(now, text_of(server.plan(), source, value));
            }
        }
    }
}

void load_profile::change(const channel& source, double value, server_physics& server) {
    switch (source.what) {
        case target::load:
            return server.set_load(value);
        case target::load_of_kind:
            return server.set_load(static_cast<load_kind>(source.index), value);
        case target::inlet:
            return server.set_inlet(value);
        case target::dust_filter:
            if (value != 0.0) server.readings().dust_filter().request();
            return;
        case target::fan:
            return server.set_fan(static_cast<unsigned>(source.index), value != 0.0);
        case target::drive:
            return server.set_drive(static_cast<unsigned>(source.index), value != 0.0);
        case target::slot:
            return server.slots().set_card(static_cast<unsigned>(source.index), value != 0.0);
        case target::sensor:
            for (const std::size_t part : source.parts) server.set_sensor(part, value != 0.0);
            return;
        case target::power:
            for (const std::size_t part : source.parts) server.set_power(part, value);
            return;
    }
}

std::string load_profile::text_of(const machine_plan& plan, const channel& source, double value) {
    char text[80] = "";
    std::string parts;
    if (!source.parts.empty()) {
        const server_part& first = plan.parts()[source.parts.front()];
        parts = source.parts.size() == 1 ? first.full_name : "each " + std::string(first.name);
    }
    const bool on = value != 0.0;
    switch (source.what) {
        case target::load:
            std::snprintf(text, sizeof text, "load %.0f %%", value);
            break;
        case target::load_of_kind:
            std::snprintf(text, sizeof text, "%s load %.0f %%", load_names.at(source.index), value);
            break;
        case target::inlet:
            std::snprintf(text, sizeof text, "inlet air %.1f \u00b0C", value);
            break;
        case target::dust_filter:
            std::snprintf(text, sizeof text, "dust filter %s", on ? "is to be measured" : "is left alone");
            break;
        case target::fan:
            std::snprintf(text, sizeof text, "fan %zu %s", source.index, on ? "turns again" : "fails");
            break;
        case target::drive:
            std::snprintf(text, sizeof text, "drive %zu is %s", source.index, on ? "plugged" : "pulled");
            break;
        case target::slot:
            std::snprintf(text, sizeof text, "card of slot %zu is %s", source.index, on ? "plugged" : "pulled");
            break;
        case target::sensor:
            std::snprintf(text, sizeof text, "%s %s", parts.c_str(), on ? "is read again" : "gives no reading");
            break;
        case target::power:
            std::snprintf(text, sizeof text, "%s draws %.1f W", parts.c_str(), value);
            break;
    }
    return text;
}

double load_profile::last_time() const {
    double last = 0.0;
    for (const channel& source : _channels) {
        last = std::max(last, source.times.back());
    }
    return last;
}

}  // namespace sim
