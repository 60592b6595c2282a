#include <benchmark/benchmark.h>

#include "bench/allocation_counter.hpp"
#include "store/common_thermal_dao.hpp"

namespace {

constexpr const char* name = "common_thermal_device_pch_temperature.temperature";
constexpr int keys = 400;

void fill(common_thermal_dao& dao) {
    for (int instance = 0; instance < keys; ++instance) {
        dao.update_dev(name, instance, 40.0f, false);
    }
}

void fetch_by_text(benchmark::State& state) {
    common_thermal_dao dao;
    fill(dao);
    const allocation_counter allocations;
    float value = 0.0f;
    int instance = 0;
    for (auto _ : state) {
        instance = (instance + 1) % keys;
        benchmark::DoNotOptimize(dao.fetch_dev(name, instance, &value));
    }
    state.counters["allocations"] = static_cast<double>(allocations.calls());
}

void fetch_remembered(benchmark::State& state) {
    common_thermal_dao dao;
    fill(dao);
    store_reference reference(name, keys / 2);
    float value = 0.0f;
    for (auto _ : state) {
        benchmark::DoNotOptimize(reference.fetch(dao, &value));
    }
}

void publish(benchmark::State& state) {
    common_thermal_dao dao;
    fill(dao);
    common_thermal_dao::dev_data_t data(name, keys / 2, 41.0f);
    for (auto _ : state) {
        dao.update_dev(&data, static_cast<common_thermal_dao::dev_data_spike_t>(state.range(0)), false);
        benchmark::ClobberMemory();
    }
}

void publish_filtered(benchmark::State& state) {
    common_thermal_dao dao;
    fill(dao);
    dao.update_dev(std::string("1SMC.") + name, 1, 3.0f, false);
    dao.update_dev(std::string("1SC.") + name, 1, 80.0f, false);
    common_thermal_dao::dev_data_t data(name, 1, 41.0f);
    for (auto _ : state) {
        dao.update_dev(&data, common_thermal_dao::spike_going_high, false);
        benchmark::ClobberMemory();
    }
}

BENCHMARK(fetch_by_text);
BENCHMARK(fetch_remembered);
BENCHMARK(publish)->Arg(common_thermal_dao::spike_none)->Arg(common_thermal_dao::spike_going_high);
BENCHMARK(publish_filtered);

}  // namespace
