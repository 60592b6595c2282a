#include <algorithm>
#include <cstdlib>

#include "tests/orchestration/orchestration_fixture.hpp"

namespace {

// Rules a, b and c run in slots 16, 17 and 18.
class arbitration_test : public manager_test {
protected:
    template <class Row>
    static std::string text_of(const Row& row) {
        return row.name.text() + "." + std::to_string(row.instance) + "=" + std::to_string(row.value);
    }
    std::string fan_row(unsigned instance) {
        const auto* row = manager.fan_winner(instance);
        return row == nullptr || !row->claimed ? "-" : text_of(*row);
    }
    std::string cap_row(unsigned kind) { return text_of(cap(kind)); }
    void ask(wish of_a, wish of_b, wish of_c) { a.ask(of_a), b.ask(of_b), c.ask(of_c); }
    struct three_wishes {
        wish a, b, c;
        const char* winner = nullptr;
    };

    common_thermal_device_fan fan{1}, twin{1};
    scripted_rule a{dao, "a", 1, alg::action_fan_map, {1, 2}};
    scripted_rule b{dao, "b", 2, alg::action_fan_map, {1}};
    scripted_rule c{dao, "c", 3, alg::action_fan_map, {1}};
};

TEST_F(arbitration_test, the_highest_duty_wins_a_fan_and_the_first_of_equals_for_one_cycle) {
    const three_wishes cycles[] = {{40, 60, 60, "b.2=60"},   {60, 40, 60, "a.1=60"},   {{}, {}, 7, "c.3=7"},
                                   {{}, {}, {}, "-"},        {0, 0, 0, "a.1=0"},       {{}, 0, 1, "c.3=1"},
                                   {0, 255, 100, "b.2=255"}, {172, {}, 171, "a.1=172"}};
    start({&fan}, {&a, &b, &c});
    for (const auto& r : cycles) {
        ask(r.a, r.b, r.c);
        run_to(31);
        EXPECT_EQ(fan_row(1), r.winner);
        EXPECT_EQ(stored("fan.expected_speed"), std::max({r.a.value_or(0), r.b.value_or(0), r.c.value_or(0)}));
        finish_cycle();
        EXPECT_EQ(fan_row(1), "-");
        EXPECT_TRUE(fan.is_expected_speed(0));
    }
    EXPECT_EQ(fan_row(2), "-") << "named by a rule, but not there";
}

TEST_F(arbitration_test, a_manual_speed_beats_all_rules_and_anything_replaces_it_once_it_is_off) {
    start({&fan}, {&a, &b, &c});
    fan.set_manual_speed(true, 90);
    finish_cycle();
    EXPECT_FALSE(fan.is_writing_pwm_output()) << "no rule claims the fan";
    ask(80, 10, 5);
    const std::tuple<unsigned, bool, std::uint8_t, const char*> steps[] = {
        {17, false, 80, "a.1=80"}, {18, true, 30, "manual_fan_speed.1=30"},
        {19, false, 5, "c.3=5"},   {17, true, 20, "manual_fan_speed.1=20"},
        {18, false, 10, "b.2=10"}, {19, true, 3, "manual_fan_speed.1=3"}};
    for (const auto& [slot, is_manual, speed, winner] : steps) {
        fan.set_manual_speed(is_manual, is_manual ? speed : 0);
        run_to(slot);
        EXPECT_EQ(fan_row(1), winner);
        EXPECT_EQ(stored("fan.expected_speed"), static_cast<float>(speed));
    }
    finish_cycle();
    EXPECT_TRUE(fan.is_expected_speed(3)) << "a manual fan keeps it";
}

TEST_F(arbitration_test, a_manual_speed_is_a_raw_duty_while_the_environment_says_yes) {
    start({&fan}, {&a});
    a.ask(100);
    for (const auto& [setting, speed, duty] :
         {std::tuple{"YES", 255, "100"}, {"YES", 128, "50"}, {"YES", 1, "0"}, {"yes", 255, "255"}, {"", 128, "128"}}) {
        ::setenv("SCALE_FAN_SPEED_COMMAND", setting, 1);
        fan.set_manual_speed(true, static_cast<std::uint8_t>(speed));
        run_to(17);
        EXPECT_EQ(fan_row(1), std::string("manual_fan_speed.1=") + duty) << setting;
    }
    ::unsetenv("SCALE_FAN_SPEED_COMMAND");
}

TEST_F(arbitration_test, fans_of_one_instance_share_a_row_in_list_order) {
    start({&fan, &twin}, {&a, &b});
    ask(40, 10, {});
    const std::tuple<bool, bool, const char*, const char*> rows[] = {
        {false, false, "a.1=40", "a.1=40"},
        {true, false, "a.1=40", "b.2=10"},
        {false, true, "manual_fan_speed.1=30", "manual_fan_speed.1=30"}};
    for (const auto& [first, second, behind_a, behind_b] : rows) {
        fan.set_manual_speed(first, 30);
        twin.set_manual_speed(second, 30);
        run_to(17);
        EXPECT_EQ(fan_row(1), behind_a);
        EXPECT_TRUE(fan.is_expected_speed(first ? 30 : 40) && twin.is_expected_speed(second ? 30 : 40));
        tick();
        EXPECT_EQ(fan_row(1), behind_b);
        finish_cycle();
        EXPECT_TRUE(fan.is_writing_pwm_output() && twin.is_writing_pwm_output());
    }
}

TEST_F(arbitration_test, rules_name_fans_by_the_low_8_bits_and_reach_fans_added_on_the_way) {
    common_thermal_device_fan high(257), zero(0), upper(129), second(2);
    scripted_rule d(dao, "d", 4, alg::action_fan_map, {0, 1, 2});
    start({&high, &fan, &upper}, {&a, &d});
    a.ask(40), d.ask(20);
    run_to(17);
    scheduler.add_thermal_device(&second);
    scheduler.add_thermal_device(&zero);
    tick();
    const std::pair<unsigned, const char*> rows[] = {
        {257, "a.1=40"}, {1, "a.1=40"}, {2, "d.4=20"}, {0, "d.4=20"}, {129, "-"}};
    for (const auto& [instance, winner] : rows) EXPECT_EQ(fan_row(instance), winner) << instance;
    finish_cycle();
    EXPECT_TRUE(zero.is_writing_pwm_output() && second.is_writing_pwm_output() && high.is_writing_pwm_output());
    EXPECT_FALSE(upper.is_writing_pwm_output());
}

TEST_F(arbitration_test, each_capping_action_feeds_its_own_kind_and_the_lowest_value_wins) {
    const std::pair<std::uint32_t, utils::talg_type_t> by_kind[] = {
        {alg::action_capping_cpu, utils::talg_sensor_capping_cpu},
        {alg::action_capping_dimm, utils::talg_sensor_capping_dimm},
        {alg::action_capping_system, utils::talg_sensor_capping_dimm_percentage},
        {alg::action_capping_nvme, utils::talg_dummy},
        {alg::action_capping_dimm, utils::talg_sensor_capping_dimm_percentage},
        {alg::action_capping_fan, utils::talg_dummy},
        {alg::action_capping_power_permission, utils::talg_dummy},
    };
    start({&fan});
    for (unsigned kind = 0; kind < 7; ++kind) {
        const auto& [support, type] = by_kind[kind];
        scripted_rule one(dao, "one", 5, support, {1}, type), two(dao, "two", 6, support, {1}, type);
        set_rules({&one, &two});
        one.ask(1), two.ask(0);
        run_to(17);
        EXPECT_EQ(cap_row(kind), "one.5=1");
        tick();
        for (unsigned other = 0; other < 7; ++other) {
            EXPECT_EQ(cap_row(other), other == kind ? "two.6=0" : "NA.0=65535") << kind;
        }
        EXPECT_EQ(fan_row(1), "-") << "not a fan rule";
        finish_cycle();
        EXPECT_EQ(cap_row(kind), "NA.0=65535");
        EXPECT_EQ(cap(kind).value_applied, 0);
    }
}

TEST_F(arbitration_test, equal_caps_go_to_the_later_rule_and_a_row_of_instance_0_is_free) {
    const std::uint32_t cpu = alg::action_capping_cpu;
    scripted_rule zero(dao, "zero", 0, cpu), one(dao, "one", 1, cpu), two(dao, "two", 2, cpu);
    start({}, {&zero, &one, &two});
    const three_wishes rows[] = {
        {{}, 300, 200, "two.2=200"}, {{}, 200, 300, "one.1=200"}, {{}, 200, 200, "two.2=200"},
        {100, 300, {}, "one.1=300"}, {100, {}, {}, "zero.0=100"}, {{}, {}, 65535, "two.2=65535"},
        {{}, 0, 5, "one.1=0"},       {{}, 0, 0, "two.2=0"},       {{}, {}, {}, "NA.0=65535"}};
    for (const auto& r : rows) {
        zero.ask(r.a), one.ask(r.b), two.ask(r.c);
        run_to(31);
        EXPECT_EQ(cap_row(0), r.winner);
        finish_cycle();
    }
}

TEST_F(arbitration_test, a_first_assertion_is_forgotten_outside_post_where_the_rule_defers_reassertion) {
    common_thermal_device_event_status status(1);
    scripted_rule deferring(dao, "deferring", 1, alg::action_reassertion_deferment);
    start({&status}, {&deferring, &a});
    for (const bool in_post : {true, false}) {
        manager.set_stage(utils::post_init, in_post);
        deferring.set_first_assertion(true);
        a.set_first_assertion(true);
        finish_cycle();
        EXPECT_EQ(deferring.has_first_assertion(), in_post);
        EXPECT_TRUE(a.has_first_assertion());
    }
}

}  // namespace
