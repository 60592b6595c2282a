#include "tools/thermal_sim/cap_report.hpp"

#include <algorithm>
#include <cmath>
#include <string>

#include "tools/text.hpp"

using thermal_host::sensor_report;
using thermal_host::sensor_state;

namespace {

// In the order of sim::cap_kind.
constexpr std::array<const char*, sim::cap_kinds> cap_columns{
    "cap_processors_w", "cap_memory_w",     "cap_memory_percent", "cap_system_w",
    "cap_drives_level", "cap_fans_percent", "cap_host_power_w"};

// "title: one, two", over as many lines as it takes; nothing without items.
void print_list(std::FILE* file, const char* title, const std::vector<std::string>& items) {
    constexpr std::size_t margin = 10;
    constexpr std::size_t line_end = 120;
    std::string line = std::string(title) + ":";
    for (std::size_t i = 0; i < items.size(); ++i) {
        const std::string item = " " + items[i] + (i + 1 < items.size() ? "," : "");
        if (margin + line.size() + item.size() > line_end) {
            std::fprintf(file, "%*s%s\n", static_cast<int>(margin), "", line.c_str());
            line.assign(1, ' ');
        }
        line += item;
    }
    if (!items.empty()) {
        std::fprintf(file, "%*s%s\n", static_cast<int>(margin), "", line.c_str());
    }
}

std::string value_text(unsigned value, const std::string& unit) {
    return std::to_string(value) + (unit.empty() ? "" : " " + unit);
}

std::string reading_text(const sensor_report& sensor) {
    return sensor.value ? std::to_string(std::lround(*sensor.value)) : "-";
}

// No reading is no alarm: sensors have none until the firmware is up, or where no rule maps them.
bool is_alarm(sensor_state state) { return state != sensor_state::ok && state != sensor_state::no_reading; }

std::string threshold_text(const std::optional<std::uint8_t>& threshold) {
    return threshold ? std::to_string(*threshold) : "-";
}

}  // namespace

void print_caps(std::FILE* file, const sim::server_caps& caps) {
    std::vector<std::string> items;
    for (const sim::cap_state& cap : caps.all()) {
        if (cap.value) {
            items.push_back(std::string(cap.name) + " " + value_text(*cap.value, cap.unit));
        }
    }
    if (caps.of(sim::cap_kind::host_power).value) {
        items.back() = "HOST POWER WITHDRAWN";
    }
    print_list(file, "caps", items);
}

void print_alarms(std::FILE* file, const std::vector<sensor_report>& sensors) {
    std::vector<std::string> items;
    for (const sensor_report& sensor : sensors) {
        if (is_alarm(sensor.state)) {
            items.push_back(sensor.name + " " + sensor_state_text(sensor.state) + " " + reading_text(sensor) + " " +
                            sensor.unit);
        }
    }
    print_list(file, "sensors", items);
}

void print_csv_cap_columns(std::FILE* file) {
    for (const char* column : cap_columns) {
        std::fprintf(file, ",%s", column);
    }
    std::fprintf(file, ",worst_sensor_state");
}

void print_csv_caps(std::FILE* file, const sim::simulated_server& server) {
    for (const sim::cap_state& cap : server.caps().all()) {
        std::fprintf(file, ",%s", cap.value ? std::to_string(*cap.value).c_str() : "");
    }
    auto worst = sensor_state::ok;
    for (const sensor_report& sensor : server.host().sensors.list()) {
        worst = is_alarm(sensor.state) ? std::max(worst, sensor.state) : worst;
    }
    std::fprintf(file, ",%s", sensor_state_text(worst));
}

void print_cap_verdict(std::FILE* file, const sim::verdict& verdict) {
    const auto came = [](const auto& cap) { return cap.requests > 0; };
    if (std::ranges::none_of(verdict.caps(), came)) {
        return;
    }
    std::fprintf(file, "\n%-14s %8s %10s %9s\n", "cap", "on", "tightest", "requests");
    for (const auto& cap : verdict.caps()) {
        if (came(cap)) {
            const std::string tightest = cap.seconds_on > 0.0 ? value_text(cap.tightest, cap.unit) : "-";
            std::fprintf(file, "%-14s %6.0f s %10s %9u\n", cap.name, cap.seconds_on, tightest.c_str(), cap.requests);
        }
    }
}

void print_alarm_verdict(std::FILE* file, const sim::verdict& verdict) {
    std::string alarms;
    std::size_t quiet = 0;
    std::size_t silent = 0;
    for (const auto& sensor : verdict.sensors()) {
        if (!sensor.worst) {
            ++silent;
        } else if (!is_alarm(*sensor.worst)) {
            ++quiet;
        } else {
            alarms += padded("sensor " + sensor.name, 22) + padded(sensor_state_text(*sensor.worst), 16) + "for " +
                      std::to_string(std::lround(sensor.seconds)) + " s\n";
        }
    }
    if (silent < verdict.sensors().size()) {
        std::fprintf(file, "\n%s%zu sensors always ok, %zu without a reading\n", alarms.c_str(), quiet, silent);
    }
}

void print_sensors(std::FILE* file, const std::vector<thermal_host::sensor_report>& sensors) {
    std::fprintf(file, "\n%-4s %-16s %8s %-5s %-16s%-27s%s\n", "no", "sensor", "reading", "", "state",
                 "lower thresholds", "upper thresholds");
    std::fprintf(file, "%53s%-9s%-9s%-9s%-9s%-9s%s\n", "", "non-cri", "critical", "non-rec", "non-cri", "critical",
                 "non-rec");
    for (const auto& sensor : sensors) {
        const std::string reading = reading_text(sensor);
        std::string line = padded(std::to_string(sensor.id.number), 5) + padded(sensor.name, 17);
        line.append(reading.size() < 8 ? 8 - reading.size() : 0, ' ');
        line += reading + " " + padded(sensor.unit, 6) + padded(sensor_state_text(sensor.state), 16);
        for (const auto& threshold : sensor.thresholds) {
            line += padded(threshold_text(threshold), 9);
        }
        std::fprintf(file, "%s\n", line.substr(0, line.find_last_not_of(' ') + 1).c_str());
    }
}
