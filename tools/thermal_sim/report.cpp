#include "tools/thermal_sim/report.hpp"

#include <algorithm>
#include <cmath>
#include <utility>
#include <vector>

#include "tools/text.hpp"
#include "tools/thermal_sim/cap_report.hpp"
#include "tools/thermal_sim/slot_report.hpp"

using sim::server_fans;

namespace {

std::string clock_text(double seconds) {
    const auto whole = static_cast<unsigned long>(std::lround(seconds));
    char text[32];
    if (whole >= 3600) {
        std::snprintf(text, sizeof text, "%lu:%02lu:%02lu", whole / 3600, whole / 60 % 60, whole % 60);
    } else {
        std::snprintf(text, sizeof text, "%02lu:%02lu", whole / 60, whole % 60);
    }
    return text;
}

// A name that its numbers follow may end in "_".
std::string title_of(const sim::part_group& group) {
    std::string title = group.name;
    if (title.back() == '_') title.pop_back();
    return title;
}

int width_of(const std::string& title) { return std::max(6, static_cast<int>(title.size()) + 1); }

// Calls print(fans, name) once for the fans of each name, in the order of their first.
template <class Name, class Print>
void for_each_alike(Name&& name_of, Print&& print) {
    std::vector<std::pair<std::string, std::vector<unsigned>>> groups;
    for (unsigned fan = 1; fan <= server_fans; ++fan) {
        const std::string name = name_of(fan);
        auto group = std::ranges::find(groups, name, &decltype(groups)::value_type::first);
        if (group == groups.end()) {
            group = groups.insert(group, {name, {}});
        }
        group->second.push_back(fan);
    }
    for (const auto& [name, fans] : groups) {
        print((fans.size() > 1 ? "fans " : "fan ") + ranges_text(fans), name);
    }
}

void print_fans(std::FILE* file, const sim::simulated_server& server) {
    constexpr std::size_t margin = 10;
    constexpr std::size_t cell = 36;
    constexpr std::size_t line_end = 120;
    const std::string empty(margin, ' ');
    std::string line;
    const auto name = [&server](unsigned fan) {
        const auto& claim = server.claim(fan);
        char text[48];
        std::snprintf(text, sizeof text, " %.0f%% %.0f rpm", server.physics().duty(fan), server.physics().rpm(fan));
        return server.winner(fan) + (claim.claimed ? "." + std::to_string(claim.rule) : "") + text;
    };
    for_each_alike(name, [&](const std::string& fans, const std::string& doing) {
        const std::string text = fans + " " + doing;
        if (margin + line.size() + 2 + text.size() > line_end) {
            std::fprintf(file, "%s%s\n", empty.c_str(), line.c_str());
            line.clear();
        }
        if (!line.empty()) {
            line.append(cell - line.size() % cell > 1 ? cell - line.size() % cell : cell + 1, ' ');
        }
        line += text;
    });
    std::fprintf(file, "%s%s\n", empty.c_str(), line.c_str());
}

std::string limit_text(double limit) { return std::isfinite(limit) ? std::to_string(std::lround(limit)) : "-"; }

}  // namespace

void print_table_head(std::FILE* file, const sim::machine_plan& plan) {
    std::fprintf(file, "%8s %5s %6s", "time", "load", "power");
    for (const auto& group : plan.groups()) {
        const std::string title = title_of(group);
        if (group.in_table) std::fprintf(file, "%*s", width_of(title), title.c_str());
    }
    std::fprintf(file, "\n%8s %5s %6s", "", "%", "W");
    for (const auto& group : plan.groups()) {
        // The sign takes two bytes and one column.
        if (group.in_table) std::fprintf(file, "%*s", width_of(title_of(group)) + 1, "\u00b0C");
    }
    std::fprintf(file, "\n");
}

void print_table_row(std::FILE* file, const sim::simulated_server& server) {
    const sim::server_physics& physics = server.physics();
    std::fprintf(file, "%8s %5.0f %6.0f", clock_text(server.now()).c_str(), physics.highest_load(),
                 physics.power() + physics.fan_power());
    for (const auto& group : server.plan().groups()) {
        if (group.in_table) std::fprintf(file, "%*.1f", width_of(title_of(group)), physics.hottest(group));
    }
    std::fprintf(file, "\n");
    print_fans(file, server);
    print_caps(file, server.caps());
    print_limited_slots(file, server);
    print_alarms(file, server.host().sensors.list());
}

void print_event(std::FILE* file, double seconds, const std::string& text) {
    std::fprintf(file, "%8s --- %s\n", clock_text(seconds).c_str(), text.c_str());
}

void print_verdict(std::FILE* file, const sim::verdict& verdict) {
    std::fprintf(file, "\n%-10s %9s %7s %7s %10s %10s %9s\n", "part", "highest", "at", "limit", "over limit",
                 "overshoot", "settling");
    const auto groups = verdict.plan().groups();
    for (std::size_t group = 0; group < groups.size(); ++group) {
        const auto report = verdict.part(group);
        std::fprintf(file, "%-10s %6.1f \u00b0C %7s %4s \u00b0C %8.0f s %7.1f \u00b0C %7.0f s%s\n",
                     title_of(groups[group]).c_str(), report.highest_c, clock_text(report.highest_at).c_str(),
                     limit_text(groups[group].limit_c).c_str(), report.seconds_over, report.overshoot_c,
                     report.settling_s, report.seconds_over > 0.0 ? "  OVER ITS LIMIT" : "");
    }
    std::fprintf(file, "\n");
    const auto name = [&verdict](unsigned fan) {
        const auto report = verdict.fan(fan);
        char text[80];
        std::snprintf(text, sizeof text, "%3.0f %% on average, %.1f reversals of the duty a minute",
                      report.mean_percent, report.reversals_a_minute);
        return std::string(text);
    };
    for_each_alike(name, [&](const std::string& fans, const std::string& doing) {
        std::fprintf(file, "%-10s %s\n", fans.c_str(), doing.c_str());
    });
    print_cap_verdict(file, verdict);
    print_alarm_verdict(file, verdict);
    std::fprintf(file, "\nFan energy %.1f Wh. %s%s\n", verdict.fan_energy_wh(),
                 verdict.limits_held() ? "Every limit held." : "A LIMIT WAS EXCEEDED.",
                 verdict.host_power_held() ? "" : " HOST POWER WAS WITHDRAWN.");
}

void print_store(std::FILE* file, const common_thermal_dao& store) {
    for (const auto& [key, value] : store.values()) {
        std::fprintf(file, "%s = %g\n", key.c_str(), static_cast<double>(value));
    }
}

void print_csv_head(std::FILE* file, const sim::machine_plan& plan) {
    std::fprintf(file, "time_s,load_percent,inlet_c,outlet_c,power_w,fan_power_w");
    for (const auto& part : plan.parts()) {
        std::fprintf(file, ",%s_c", part.full_name.c_str());
    }
    for (unsigned fan = 1; fan <= server_fans; ++fan) {
        std::fprintf(file, ",fan_%u_winner,fan_%u_rule,fan_%u_duty_percent,fan_%u_rpm", fan, fan, fan, fan);
    }
    print_csv_cap_columns(file);
    std::fprintf(file, "\n");
}

void print_csv_row(std::FILE* file, const sim::simulated_server& server) {
    const sim::server_physics& physics = server.physics();
    std::fprintf(file, "%.1f,%.0f,%.1f,%.1f,%.1f,%.2f", server.now(), physics.highest_load(), physics.inlet(),
                 physics.outlet(), physics.power(), physics.fan_power());
    for (std::size_t part = 0; part < server.plan().parts().size(); ++part) {
        std::fprintf(file, ",%.2f", physics.temperature(part));
    }
    for (unsigned fan = 1; fan <= server_fans; ++fan) {
        std::fprintf(file, ",%s,%u,%.0f,%.0f", server.winner(fan).c_str(), server.claim(fan).rule, physics.duty(fan),
                     physics.rpm(fan));
    }
    print_csv_caps(file, server);
    std::fprintf(file, "\n");
}
