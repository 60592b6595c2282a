#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>

#include "bench/board.hpp"
#include "sim/bundled_files.hpp"
#include "sim/simulated_server.hpp"

namespace {

// The rules of the largest board on a machine without devices, so that only they cost.
void load_rules(unsigned loads) {
    const std::string path = "/tmp/thermal_rules_" + std::to_string(loads) + ".ini";
    {
        std::ofstream file(path);
        write_rules(file, board_max);
    }
    common_thermal_scheduler scheduler;
    rule_set rules;
    for (unsigned i = 0; i < loads; ++i) {
        common_thermal_algorithm_parser::generate_algorithm_rule(path, &scheduler, rules);
    }
    std::remove(path.c_str());
    std::printf("%zu rules, peak %.1f MB\n", rules.rules.size(), static_cast<double>(peak_resident_bytes()) / 1e6);
}

// The simulated server past its boot, in a world that stands still: cycles cost what they cost on a real machine.
void run_server(const std::string& rules, unsigned cycles) {
    sim::simulated_server server({.rules = rules, .log_mask = 0, .world_moves = false});
    server.host().log.set_file(nullptr);
    constexpr double booted_s = 100.0;
    server.run_until(booted_s);
    constexpr double cycle_s = 1.06;
    server.run_for(cycles * cycle_s);
    std::printf("%u rules, %u cycles, %u keys, resident %.2f MB\n", server.scheduler().get_thermal_algorithm_size(),
                cycles, server.store().key_count(), static_cast<double>(resident_bytes()) / 1e6);
}

}  // namespace

// thermal_board_cycles BOARD CYCLES: that many cycles of a board, and nothing else, for an instruction counter.
// thermal_board_cycles SERVER CYCLES, POLICY CYCLES: the same of the simulated server with its bundled rules, or with
// the full policy.
// thermal_board_cycles RULES LOADS: that many loads of 12,000 rules.
int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: %s BOARD CYCLES, SERVER CYCLES, POLICY CYCLES or RULES LOADS\n", argv[0]);
        return 2;
    }
    const auto count = static_cast<unsigned>(std::strtoul(argv[2], nullptr, 10));
    if (std::strcmp(argv[1], "RULES") == 0) {
        load_rules(count);
        return 0;
    }
    if (std::strcmp(argv[1], "SERVER") == 0) {
        run_server(sim::temporary_file(sim::bundled_rules).path(), count);
        return 0;
    }
    if (std::strcmp(argv[1], "POLICY") == 0) {
        run_server(THERMAL_SOURCE_DIR "/examples/rules/full_policy.ini", count);
        return 0;
    }
    for (const board_shape& shape : all_boards) {
        if (std::strcmp(argv[1], shape.name) == 0) {
            board machine(shape);
            machine.run_cycles(count);
            std::printf("%s: %u cycles, resident %.2f MB\n", shape.name, count,
                        static_cast<double>(resident_bytes()) / 1e6);
            return 0;
        }
    }
    return 2;
}
