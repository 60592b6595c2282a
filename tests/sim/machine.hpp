#pragma once

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <string_view>
#include <utility>

#include "sim/bundled_files.hpp"
#include "sim/simulated_server.hpp"
#include "sim/verdict.hpp"

constexpr double cycle_s = 1.06;

inline std::string content_of(const std::filesystem::path& file) {
    std::stringstream text;
    text << std::ifstream(file).rdbuf();
    return text.str();
}

// The simulated server from power-on, without a word on stderr; rules may be written anew while it runs.
struct machine {
    sim::temporary_file rules;
    sim::simulated_server server;

    explicit machine(sim::load_profile profile = {}, unsigned seed = 0, std::string_view text = sim::bundled_rules,
                     const sim::machine_plan& plan = sim::socket_server())
        : rules(text), server({.rules = rules.path(), .plan = plan, .log_mask = 0, .seed = seed}, std::move(profile)) {
        server.host().log.set_file(nullptr);
    }
    std::size_t part(const char* name) const { return server.plan().part(name); }
    float stored(const std::string& key, int instance = 1) {
        float value = -1.0f;
        server.store().fetch_dev("common_thermal_device_" + key, instance, &value);
        return value;
    }
    // Once a second for the whole time.
    sim::verdict judged(double seconds) {
        sim::verdict result(server.plan(), 1.0);
        for (double end = server.now() + seconds; server.now() < end;) {
            server.run_for(1.0);
            result.sample(server);
        }
        return result;
    }
    double time_of_cycle(unsigned number) {
        while (server.cycles() < number) {
            server.run_for(0.01);
        }
        return server.now();
    }
};
