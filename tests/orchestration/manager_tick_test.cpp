#include "tests/orchestration/orchestration_fixture.hpp"

namespace {

class tick_test : public manager_test {
protected:
    int slots_begun() { return lines_with("BEGIN Schedule"); }
};

TEST_F(tick_test, the_first_tick_runs_inside_initialize_and_nothing_is_polled_before_the_third) {
    counting_device device(8196), off(8196);
    off.deactivate();
    scripted_rule rule(dao, "rule", 1, 0);
    rule.ask(1);
    start({&off, &off, &device}, {nullptr, &rule});
    EXPECT_EQ(slots_begun() + lines_with("END Schedule"), 0);
    EXPECT_EQ(lines_with("BEGIN Load algorithm"), 1);
    EXPECT_EQ(next_wait(), 13);
    EXPECT_EQ(device.polls, 0) << "the second tick builds the schedule";
    tick();
    EXPECT_EQ(device.polls * 10 + off.polls, 10);
    EXPECT_EQ(lines_with("common_thermal_manager::poll_thermal_device:counting_device.1\n"), 2) << "each in slot 0";
    run_to(17);
    EXPECT_EQ(rule.polls, 0) << "slot 16 has a null rule";
    finish_cycle();
    EXPECT_EQ(device.polls * 10 + rule.polls, 11);
}

TEST_F(tick_test, a_cycle_waits_106_platform_ticks_by_the_idle_time_of_its_slots) {
    const int waits[] = {2, 2, 12, 4, 4, 4, 4, 4, 12, 4, 4, 4, 4, 4, 4, 2,
                         2, 2, 2,  2, 2, 2, 2, 2, 2,  2, 2, 2, 2, 2, 2, 2};
    start();
    EXPECT_EQ(next_wait() * 100 + next_wait(), 1313) << "behind the first tick and the build";
    for (int slot = 0, whole = 0; slot < 64; ++slot) {
        const int wait = next_wait();
        EXPECT_EQ(wait, waits[slot % 32]) << "behind slot " << slot;
        whole += wait;
        EXPECT_TRUE(slot % 32 != 31 || whole == 106 * (slot / 32 + 1)) << whole;
    }
    run_to(31);
    manager.ipmicmd_load_algorithm();
    tick();
    EXPECT_EQ(next_wait() * 10 + next_wait(), 22) << "behind slot 31 and behind the rebuild";
    EXPECT_EQ(scheduler.get_poll_counter(), 1u);
}

TEST_F(tick_test, settings_signal_ticks_until_the_timer_has_fired_and_always_makes_the_property) {
    const char* const policy = "/ac/vekt2/therm_override/accelerate_policy";
    start();
    for (int early = 1; early <= 3; ++early) {
        host.loop.run_for(thermal_host::default_tick);
        publish(149);
        EXPECT_EQ(slots_begun(), early);
        ASSERT_NE(host.properties.find(policy), nullptr);
        EXPECT_EQ(host.properties.find(policy)->get_byte(), early == 1 ? 0 : 7) << "made once, then left alone";
        host.properties.find(policy)->set(std::uint8_t{7}, 0, 0);
    }
    EXPECT_EQ(next_wait(), 2) << "one timer, armed anew by slot 1";
    EXPECT_EQ(slots_begun(), 4);
    publish(149);
    EXPECT_EQ(slots_begun(), 4);
    EXPECT_EQ(next_wait(), 12) << "slot 2 was not disturbed";
}

TEST_F(tick_test, ticks_go_on_where_the_platform_hands_out_another_timer_signal) {
    EXPECT_EQ(host.loop.thermal().reserve_timer_signal(176, 0, 0, 0), 176);
    start();
    for (int i = 0; i < 5; ++i) EXPECT_GT(next_wait(), 0);
    EXPECT_EQ(slots_begun(), 5);
    publish(176);
    EXPECT_EQ(slots_begun(), 6) << "the usual signal counts too";
}

TEST_F(tick_test, without_a_store_the_timer_goes_on_but_nothing_is_polled_or_served) {
    counting_device device(8);
    scripted_rule rule(dao, "rule", 1, common_thermal_algorithm::action_capping_cpu);
    rule.ask(100);
    start({&device}, {&rule});
    common_thermal_manager::_dao = nullptr;
    manager.ipmicmd_load_algorithm();
    for (int i = 0; i < 2 + 2 * 32; ++i) ASSERT_GT(next_wait(), 0);
    EXPECT_EQ(device.polls + rule.polls, 0);
    EXPECT_EQ(lines_with("BEGIN Load algorithm"), 1);
    float value = 0.0f;
    EXPECT_EQ(common_thermal_manager::get_thermal_dao_reading("rule", 1, &value), 0);
    common_thermal_manager::_dao = &dao;
    finish_cycle();
    EXPECT_EQ(device.polls * 10 + rule.polls, 11);
    EXPECT_EQ(lines_with("BEGIN Load algorithm"), 2) << "the reload has waited";
    EXPECT_EQ(common_thermal_manager::get_thermal_dao_reading("rule", 1, &value), 1);
    EXPECT_EQ(common_thermal_manager::get_thermal_dao_reading("rule", 2, nullptr), 0);
}

TEST_F(tick_test, a_reload_is_served_before_the_results_of_the_old_rules_go_out) {
    common_thermal_device_fan fan(1);
    scripted_rule rule(dao, "old_rule", 1, common_thermal_algorithm::action_fan_map, {1});
    rule.ask(60);
    start({&fan}, {&rule});
    run_to(31);
    manager.ipmicmd_load_algorithm();
    host.log.captured().clear();
    tick();
    std::string order;
    for (const auto& line : host.log.captured().entries()) {
        order += line.mask == 128 ? line.text : "";  // loading and applied fan results
    }
    EXPECT_EQ(order,
              "common_thermal_manager::load_fan_override_tbl BEGIN Load Fan override table\n"
              "common_thermal_manager::load_fan_override_tbl END Load Fan override table\n"
              "common_thermal_manager::load_algorithm_rule BEGIN Load algorithm\n"
              "common_thermal_manager::load_algorithm_rule END Load algorithm\n"
              "common_thermal_manager::apply_fan_pwm_value [1, old_rule.1, 60]\n");
    tick();
    EXPECT_EQ(scheduler.get_poll_counter(), 32u) << "the rebuild";
    finish_cycle();
    EXPECT_EQ(rule.polls, 1);
}

}  // namespace
