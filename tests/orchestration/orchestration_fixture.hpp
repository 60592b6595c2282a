#pragma once

#include <initializer_list>
#include <optional>
#include <string>
#include <vector>

#include "device/fan/fan.hpp"
#include "orchestration/common_thermal_manager.hpp"
#include "tests/device/device_fixture.hpp"

using utils = common_thermal_utils;
using alg = common_thermal_algorithm;
using wish = std::optional<int>;

// A device that only counts its polls.
class counting_device : public common_thermal_device {
public:
    explicit counting_device(unsigned kind)
        : common_thermal_device("counting_device", "counting_device", 1, static_cast<tdev_type_t>(kind)) {}
    void poll(common_thermal_dao*, unsigned long) override { ++polls; }
    std::string debug() override { return "\npolls=" + std::to_string(polls); }
    int polls = 0;
};

// A rule that asks for what the test says.
class scripted_rule : public alg {
public:
    scripted_rule(common_thermal_dao& dao, const char* name, int instance, std::uint32_t support,
                  std::initializer_list<int> fans = {}, talg_type_t type = utils::talg_dummy)
        : alg(name, instance, type, support), _dao(dao) {
        add_condition(1, get_name(), 1, utils::OP_EQ, 1.0f);
        for (const int fan : fans) set_action_fan_map(static_cast<std::uint8_t>(fan), 0);
    }
    // From the next pass on; without a value the condition does not hold.
    void ask(wish value) {
        _wish = value.value_or(0);
        _dao.update_dev(get_name(), 1, value ? 1.0f : 0.0f, false);
    }
    void parse_parameters(ini_file::std_handler*, const std::string&) override {}
    void parse_action(ini_file::std_handler*, const std::string&) override {}
    void poll(common_thermal_dao*, unsigned long) override {
        ++polls;
        set_result(static_cast<float>(_wish));
        if (get_alg_type() == utils::talg_sensor_capping_dimm_percentage) {
            set_action_sensor_capping_dimm_percentage(static_cast<std::uint16_t>(_wish));
        }
    }
    std::string debug() override { return {}; }
    int polls = 0;

private:
    common_thermal_dao& _dao;
    int _wish = 0;
};

// A manager on a host of its own. Nothing runs before start().
class manager_test : public device_test {
public:
    manager_test() {
        common_thermal_manager::_scheduler = &scheduler;
        common_thermal_manager::_dao = &dao;
        host.log.captured().set_capacity(8192);
        host.loop.recorded_events().set_capacity(64);
    }
    ~manager_test() override {
        common_thermal_manager::_scheduler = nullptr;
        common_thermal_manager::_dao = nullptr;
    }

protected:
    // The first tick empties the list of rules.
    void start(std::initializer_list<common_thermal_device*> devices = {}, std::initializer_list<alg*> rules = {}) {
        for (common_thermal_device* device : devices) manager.add_thermal_device(device);
        manager.add_thermal_device_done();
        manager.initialize(&host.loop.thermal());
        if (rules.size() != 0) set_rules(rules);
    }
    void set_rules(std::initializer_list<alg*> rules) {
        scheduler.free_all_thermal_algorithm_list();
        for (alg* rule : rules) scheduler.add_thermal_algorithm(0, rule);
        scheduler.reschedule_talg();
    }

    void tick() { manager.poll_thermal_device_and_algorithm(); }
    // Until `slot` is the next to run.
    void run_to(unsigned slot) {
        do {
            tick();
        } while (scheduler.get_poll_counter() != slot);
    }
    void finish_cycle() { run_to(32); }

    // Platform ticks until the timer fires, which then has been handled; 0 without a timer.
    int next_wait() {
        const auto before = host.loop.now();
        host.loop.step();
        return static_cast<int>((host.loop.now() - before) / thermal_host::default_tick);
    }

    // As the firmware would; a signal that nobody subscribed to is handed over directly.
    void publish(int signal, int word = 0, int byte0 = 0, bool direct = false) {
        bmc_event event;
        event.sig = static_cast<QSignal>(signal);
        event.data_word = static_cast<std::uint16_t>(word);
        event.data_byte0 = static_cast<std::uint8_t>(byte0);
        direct ? manager.dispatch_event(&event) : static_cast<void>(host.loop.publish(event, "test"));
        host.loop.run_pending();
    }
    const common_thermal_manager::cap_alg_t& cap(unsigned kind) {
        return manager.cap_winner(static_cast<common_thermal_manager::capping_kind>(kind));
    }
    // Events of a signal since the last call.
    std::vector<thermal_host::recorded_event> sent(QSignal signal) {
        auto events = host.loop.recorded_events().entries();
        std::erase_if(events, [signal](const auto& each) { return each.event.sig != signal; });
        host.loop.recorded_events().clear();
        return events;
    }

    common_thermal_scheduler scheduler;
    common_thermal_manager manager;
};
