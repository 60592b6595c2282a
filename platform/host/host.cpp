#include "platform/host/host.hpp"

#include <algorithm>

namespace thermal_host {

std::vector<std::string> introspection::state_table_names() const {
    std::vector<std::string> names;
    for (const state_table* table : state_tables) {
        names.push_back(table->name());
    }
    return names;
}

int introspection::number_of(std::string_view overloaded_signal) {
    const auto found = std::find(overloaded_signals.begin(), overloaded_signals.end(), overloaded_signal);
    const auto index = found - overloaded_signals.begin();
    if (found == overloaded_signals.end()) {
        overloaded_signals.emplace_back(overloaded_signal);
    }
    return static_cast<int>(index) + 1;
}

platform::platform(const host_options& options)
    : clock(options.virtual_time, options.virtual_wall_start),
      loop(clock, options.tick, options.event_pool, options.event_queue),
      ipmi(loop) {
    _current = this;
}

void platform::open_properties(const std::string& file, nanoseconds flush_period) {
    properties.open(file);
    loop.call_every(flush_period, [this] { properties.flush(); });
}

platform::~platform() {
    properties.flush();
    if (_current == this) {
        _current = nullptr;
    }
}

}  // namespace thermal_host
