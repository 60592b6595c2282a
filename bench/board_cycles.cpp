#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>

#include "bench/board.hpp"

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

}  // namespace

// thermal_board_cycles BOARD CYCLES: that many cycles of a board, and nothing else, for an instruction counter.
// thermal_board_cycles RULES LOADS: that many loads of 12,000 rules.
int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: %s BOARD CYCLES or RULES LOADS\n", argv[0]);
        return 2;
    }
    const auto count = static_cast<unsigned>(std::strtoul(argv[2], nullptr, 10));
    if (std::strcmp(argv[1], "RULES") == 0) {
        load_rules(count);
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
