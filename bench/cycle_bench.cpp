#include <benchmark/benchmark.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <numeric>

#include "bench/allocation_counter.hpp"
#include "bench/board.hpp"

namespace {

void cycle(benchmark::State& state, const board_shape& shape) {
    board machine(shape);
    machine.run_cycles(4);  // until the cards' power has been published
    const allocation_counter allocations;
    for (auto _ : state) {
        machine.run_cycles(1);
    }
    state.counters["allocations"] = static_cast<double>(allocations.calls()) / static_cast<double>(state.iterations());
    state.counters["ns_per_rule"] =
        benchmark::Counter(shape.rules, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

// Sensors move between cycles, so that conditions and winners change.
void changing_cycle(benchmark::State& state, const board_shape& shape) {
    board machine(shape);
    unsigned seed = 0;
    for (; seed < 20; ++seed) {
        machine.stir(seed);
        machine.run_cycles(1);
    }
    unsigned changes = 0;
    unsigned winner = machine.winner_of_first_fan();
    const allocation_counter allocations;
    for (auto _ : state) {
        machine.stir(++seed);
        machine.run_cycles(1);
        changes += winner != machine.winner_of_first_fan() ? 1 : 0;
        winner = machine.winner_of_first_fan();
    }
    state.counters["allocations"] = static_cast<double>(allocations.calls()) / static_cast<double>(state.iterations());
    state.counters["changes"] = static_cast<double>(changes) / static_cast<double>(state.iterations());
}

// How even the 32 ticks of a cycle are: the fastest of many runs of each, the longest against the mean.
void longest_tick(benchmark::State& state, const board_shape& shape) {
    board machine(shape);
    machine.run_cycles(2);
    using clock = std::chrono::steady_clock;
    std::array<double, 32> fastest{};
    fastest.fill(1e9);
    for (auto _ : state) {
        for (unsigned tick = 0; tick < 32; ++tick) {
            double& slot = fastest[machine.next_slot()];
            const auto begun = clock::now();
            machine.run_tick();
            slot = std::min(slot, std::chrono::duration<double>(clock::now() - begun).count());
        }
    }
    const double mean = std::accumulate(fastest.begin(), fastest.end(), 0.0) / 32;
    const auto longest = std::max_element(fastest.begin(), fastest.end());
    state.counters["longest_to_mean"] = *longest / mean;
    state.counters["longest_slot"] = static_cast<double>(longest - fastest.begin());
}

// The files of one request for a snapshot.
void snapshot(benchmark::State& state, const board_shape& shape) {
    board machine(shape);
    machine.run_cycles(2);
    for (auto _ : state) {
        common_thermal_manager::create_debug_tdev_information(0);
        common_thermal_manager::create_debug_talg_information(0);
        common_thermal_manager::create_debug_dao_information(0);
        common_thermal_manager::create_debug_mapping_information(0);
    }
}

void rule_file_load(benchmark::State& state, const board_shape& shape) {
    board machine(shape);
    for (auto _ : state) {
        machine.manager().load_algorithm_rule(0);
    }
}

// Memory that 20 reloads of the same file leave behind, against what one rule set takes.
void reload_growth(benchmark::State& state, const board_shape& shape) {
    const allocation_counter all;
    board machine(shape);
    const auto rule_set_bytes = static_cast<double>(all.growth());
    machine.reload();
    const std::uint64_t resident = resident_bytes();
    const allocation_counter held;
    constexpr unsigned reloads = 20;
    for (auto _ : state) {
        for (unsigned i = 0; i < reloads; ++i) {
            machine.reload();
        }
    }
    const auto grown = static_cast<double>(resident_bytes()) - static_cast<double>(resident);
    state.counters["heap_growth"] = static_cast<double>(held.growth()) / reloads / rule_set_bytes;
    state.counters["resident_growth"] = grown / reloads / rule_set_bytes;
    state.counters["peak_mb"] = static_cast<double>(peak_resident_bytes()) / 1e6;
}

BENCHMARK_CAPTURE(cycle, S, board_s);
BENCHMARK_CAPTURE(cycle, L, board_l);
BENCHMARK_CAPTURE(cycle, MAX, board_max)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(cycle, L_every_type, board_l_all);
BENCHMARK_CAPTURE(changing_cycle, S, board_s);
BENCHMARK_CAPTURE(changing_cycle, L, board_l);
BENCHMARK_CAPTURE(longest_tick, S, board_s)->Iterations(200);
BENCHMARK_CAPTURE(longest_tick, L, board_l)->Iterations(200);
BENCHMARK_CAPTURE(snapshot, L, board_l)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(rule_file_load, L, board_l)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(rule_file_load, MAX, board_max)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(reload_growth, MAX, board_max)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace
