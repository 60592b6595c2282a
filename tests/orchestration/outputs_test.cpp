#include "tests/orchestration/orchestration_fixture.hpp"

namespace {

using values = std::vector<int>;

class outputs_test : public manager_test {
protected:
    outputs_test() { link(fan, {&fpga, &psu}), link(second, {&second_psu}), link(plain, {&plain_output}); }
    // Duties that the power supplies heard.
    values heard() {
        values duties;
        for (const auto& each : sent(87)) {
            EXPECT_EQ(each.receiver, thermal_host::recorded_event::published);
            EXPECT_EQ(each.event.data_word, host.machines.number_of("CFF2_FAN_SPEED_CTRL_SIG"));
            EXPECT_EQ(each.event.data_byte1, 0);
            duties.push_back(each.event.data_byte0);
        }
        return duties;
    }

    common_thermal_device_fan fan{1}, second{2}, plain{3};
    common_thermal_device_fan_pwm_fpga fpga{1}, plain_output{3};
    common_thermal_device_fan_pwm_psu psu{1}, second_psu{2};
    scripted_rule first_rule{dao, "first", 1, alg::action_fan_map, {1, 3}};
    scripted_rule second_rule{dao, "second", 2, alg::action_fan_map, {2}};
};

TEST_F(outputs_test, a_power_supply_hears_of_changes_only_and_0_once_nobody_asks) {
    start({&fan, &plain}, {&first_rule});
    const std::tuple<wish, values, int> cycles[] = {{{}, {0}, 172}, {{}, {}, 172},  {40, {40}, 40}, {40, {}, 40},
                                                    {55, {55}, 55}, {{}, {0}, 172}, {{}, {}, 172},  {0, {0}, 0},
                                                    {{}, {0}, 172}, {172, {}, 172}, {{}, {}, 172}};
    std::size_t notes = 0;
    int stays = 0;
    for (const auto& [duty, events, output] : cycles) {
        first_rule.ask(duty);
        finish_cycle();
        EXPECT_EQ(heard(), events) << "cycle with " << output;
        EXPECT_TRUE(psu.get_output_value() == output && fpga.get_output_value() == output) << output;
        EXPECT_EQ(fan.is_writing_pwm_output(), duty.has_value()) << "the marker is not applied";
        EXPECT_EQ(plain_output.get_output_value(), stays = duty.value_or(stays)) << "no marker without a power supply";
        EXPECT_EQ(host.ipmi.progress_notes().total(), notes += events.size());
        fan.done_pwm_output();
    }
    EXPECT_EQ(host.ipmi.progress_notes().entries()[0].code, 38);
}

TEST_F(outputs_test, of_several_changed_power_supply_fans_the_last_in_the_list_is_heard) {
    start({&fan, &second}, {&second_rule, &first_rule});
    const std::tuple<wish, wish, values> cycles[] = {{40, {}, {0}},  {40, 50, {50}}, {60, 50, {60}}, {70, 80, {80}},
                                                     {{}, 90, {90}}, {30, {}, {0}},  {30, {}, {}}};
    for (const auto& [first, other, events] : cycles) {
        first_rule.ask(first), second_rule.ask(other);
        finish_cycle();
        EXPECT_EQ(heard(), events);
    }
}

TEST_F(outputs_test, a_cap_is_sent_once_and_released_with_65535_and_one_without_its_processors_is_only_noted) {
    scripted_rule cpu(dao, "cpu", 1, alg::action_capping_cpu);
    scripted_rule memory(dao, "memory", 2, alg::action_capping_dimm);
    scripted_rule system(dao, "system", 3, alg::action_capping_system);
    scripted_rule share(dao, "share", 4, alg::action_capping_dimm, {}, utils::talg_sensor_capping_dimm_percentage);
    start({}, {&memory, &cpu, &share, &system});
    const std::pair<wish, values> cycles[] = {{{}, {}},      {200, {200}}, {200, {}},   {180, {180}},
                                              {{}, {65535}}, {{}, {}},     {65535, {}}, {0, {0}}};
    for (const auto& [asked, expected] : cycles) {
        for (scripted_rule* rule : {&cpu, &memory, &system, &share}) rule->ask(asked);
        finish_cycle();
        values words;
        for (const auto& each : sent(191)) {
            EXPECT_EQ(each.receiver, 4);
            EXPECT_EQ(each.event.data_byte0 | each.event.data_byte1 << 8, 0x2102);
            words.push_back(each.event.data_word);
        }
        EXPECT_EQ(words, expected);
        for (const unsigned kind : {0u, 1u, 2u, 4u}) EXPECT_EQ(cap(kind).value_applied, asked.value_or(65535)) << kind;
    }
}

TEST_F(outputs_test, the_fan_maximum_goes_to_the_store_and_never_above_100) {
    scripted_rule rule(dao, "maximum", 1, alg::action_capping_fan);
    start({}, {&rule});
    const std::pair<wish, float> cycles[] = {{{}, -1}, {60, 60}, {101, 100}, {0, 0}, {{}, 100}, {40, 40}, {300, 100}};
    for (const auto& [asked, stored_value] : cycles) {
        rule.ask(asked);
        finish_cycle();
        float maximum = -1.0f;
        dao.fetch_dev("4FMP.common_thermal_device_fan_control.max_pwm", 1, &maximum);
        EXPECT_EQ(maximum, stored_value);
    }
    EXPECT_TRUE(sent(191).empty());
}

TEST_F(outputs_test, the_power_permission_bit_follows_the_rules_and_is_written_on_changes_only) {
    auto& line = host.ports.add_number(30u, 0);
    manager.set_power_permission_voter(30);
    EXPECT_EQ(lines_with("set_power_permission_voter common_thermal_manager::PortKey[30]\n"), 1);
    scripted_rule rule(dao, "permission", 1, alg::action_capping_power_permission);
    start({}, {&rule});
    EXPECT_EQ(line.value(), 1u) << "the first tick enables";
    const std::tuple<wish, bool, unsigned, unsigned> cycles[] = {
        {{}, true, 1, 1}, {0, true, 0, 2}, {0, true, 0, 2},  {1, true, 1, 3}, {{}, true, 1, 3},
        {0, false, 1, 3}, {0, true, 1, 3}, {{}, true, 1, 3}, {0, true, 0, 4}, {{}, true, 1, 5}};
    for (const auto& [permission, is_readable, bit, writes] : cycles) {
        rule.ask(permission);
        is_readable ? line.recover() : line.fail_reads();
        finish_cycle();
        EXPECT_EQ(line.value(), bit);
        EXPECT_EQ(line.writes(), writes) << "a lost read counts as 0 and is not repeated";
    }
    EXPECT_EQ(lines_with("common_thermal_manager::Block Power Permission\n"), 3);
}

}  // namespace
