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

std::optional<std::size_t> part_before(std::string_view column, std::string_view suffix) {
    return column.ends_with(suffix) ? find_server_part(column.substr(0, column.size() - suffix.size())) : std::nullopt;
}

std::size_t fan_behind_prefix(std::string_view column) {
    unsigned number = 0;
    if (column.starts_with(fan_prefix)) {
        column.remove_prefix(fan_prefix.size());
        const auto [end, error] = std::from_chars(column.data(), column.data() + column.size(), number);
        if (error != std::errc() || end != column.data() + column.size() || number > server_fans) {
            return 0;
        }
    }
    return number;
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

load_profile::channel load_profile::channel_of(const csv_table& table, const std::string& column) {
    channel made{target::load, 0, table.seconds(time_column), table.numbers(column)};
    double low = 0.0;
    double high = 1.0;
    if (column == "load_percent") {
        high = 100.0;
    } else if (column == "inlet_c") {
        made.what = target::inlet;
        low = -40.0;
        high = 100.0;
    } else if (const auto powered = part_before(column, power_suffix)) {
        made.what = target::power;
        made.index = *powered;
        high = 1000.0;
    } else if (const auto sensed = part_before(column, sensor_suffix)) {
        made.what = target::sensor;
        made.index = *sensed;
    } else if ((made.index = fan_behind_prefix(column)) != 0) {
        made.what = target::fan;
    } else {
        table.fail(0, "column '" + column + "' is none of a load profile, --help lists them");
    }
    check_range(table, column, made.values, low, high);
    return made;
}

load_profile load_profile::from(const csv_table& table) {
    load_profile profile;
    table.seconds(time_column);
    if (table.row_count() == 0) {
        table.fail(0, "no rows");
    }
    for (const std::string& column : table.columns()) {
        if (column != time_column) {
            profile._channels.push_back(channel_of(table, column));
        }
    }
    return profile;
}

void load_profile::add_trace(const csv_table& table, const std::string& column, std::size_t part) {
    const auto time = std::ranges::find_if(table.columns(), [](const auto& name) { return name.starts_with("time"); });
    if (time == table.columns().end()) {
        table.fail(0, "no column whose name begins with 'time'");
    }
    channel trace{target::power, part, table.seconds(*time), table.numbers(column), false};
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
                tell(now, text_of(source, value));
            }
        }
    }
}

void load_profile::change(const channel& source, double value, server_physics& server) {
    switch (source.what) {
        case target::load:
            return server.set_load(value);
        case target::inlet:
            return server.set_inlet(value);
        case target::fan:
            return server.set_fan(static_cast<unsigned>(source.index), value != 0.0);
        case target::sensor:
            return server.set_sensor(source.index, value != 0.0);
        case target::power:
            return server.set_power(source.index, value);
    }
}

std::string load_profile::text_of(const channel& source, double value) {
    char text[80] = "";
    const char* part = source.index < server_part_count ? server_parts[source.index].name : "";
    const bool on = value != 0.0;
    switch (source.what) {
        case target::load:
            std::snprintf(text, sizeof text, "load %.0f %%", value);
            break;
        case target::inlet:
            std::snprintf(text, sizeof text, "inlet air %.1f \u00b0C", value);
            break;
        case target::fan:
            std::snprintf(text, sizeof text, "fan %zu %s", source.index, on ? "turns again" : "fails");
            break;
        case target::sensor:
            std::snprintf(text, sizeof text, "%s %s", part, on ? "is read again" : "gives no reading");
            break;
        case target::power:
            std::snprintf(text, sizeof text, "%s draws %.1f W", part, value);
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
