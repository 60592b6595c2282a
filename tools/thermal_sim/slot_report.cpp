#include "tools/thermal_sim/slot_report.hpp"

#include <cmath>
#include <string>

#include "sim/server_slots.hpp"

namespace {

constexpr float no_reading = 255.0f;

float stored(const sim::simulated_server& server, const char* word, unsigned slot) {
    float value = 0.0f;
    server.store().fetch_dev(std::string("common_thermal_device_pci_slot.") + word, static_cast<int>(slot), &value);
    return value;
}

// "-" for what was never read.
std::string shown(float value, float none) { return value == none ? "-" : std::to_string(std::lround(value)); }

std::string limit_text(const sim::simulated_server::slot_state& state) {
    return "limit " + std::to_string(state.limit_percent) + " % by " + state.limit_winner;
}

std::string brake_text(const sim::simulated_server::slot_state& state) { return "brake by " + state.brake_winner; }

}  // namespace

void print_limited_slots(std::FILE* file, const sim::simulated_server& server) {
    for (const sim::slot_plan& slot : server.plan().slots()) {
        const auto state = server.slot(slot.number);
        if (!state.is_limited() && !state.is_braked) {
            continue;
        }
        std::string line = "slot " + std::to_string(slot.number) + ":";
        if (state.is_limited()) line.append(" ").append(limit_text(state));
        if (state.is_braked) line.append(" ").append(brake_text(state));
        std::fprintf(file, "          %s\n", line.c_str());
    }
}

void print_slots(std::FILE* file, const sim::simulated_server& server) {
    std::fprintf(file, "\n%4s %-18s %9s %6s %6s %7s %8s  %s\n", "slot", "card", "vid:did", "temp", "margin", "power",
                 "may draw", "decided by");
    for (const sim::slot_plan& slot : server.plan().slots()) {
        const auto read = [&](const char* word) { return stored(server, word, slot.number); };
        const auto state = server.slot(slot.number);
        if (read("presence") == 0.0f) {
            std::fprintf(file, "%4u %-18s\n", slot.number, "empty");
            continue;
        }
        char identity[16];
        std::snprintf(identity, sizeof identity, "%04lX:%04lX", std::lround(read("vid")), std::lround(read("did")));
        std::string decided = state.is_limited() ? limit_text(state) : "";
        if (state.is_braked) decided.append(decided.empty() ? "" : ", ").append(brake_text(state));
        std::fprintf(file, "%4u %-18s %9s %6s %6s %7s %8s  %s\n", slot.number, slot.title, identity,
                     shown(read("temperature"), 0.0f).c_str(), shown(read("margin"), no_reading).c_str(),
                     shown(read("power") / 1000.0f, 0.0f).c_str(), shown(read("tgp"), 0.0f).c_str(), decided.c_str());
    }
    std::fprintf(file, "%4s %-18s %9s %6s %6s %7s %8s\n", "", "", "", "\u00b0C", "\u00b0C", "W", "W");
}
