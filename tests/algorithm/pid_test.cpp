#include "algorithm/control/pid.hpp"
#include "tests/support/rule_fixture.hpp"

namespace {

using rule_pointer = std::unique_ptr<pid_regulator>;

class pid_test : public rule_test {
protected:
    static void set_up(pid_regulator& rule, unsigned record, float high, float low, float kp, float ki, float kd) {
        rule.set_parameter_x(record, "x", static_cast<int>(record));
        rule.set_parameter_y(record, "y", static_cast<int>(record));
        rule.set_parameter_x_target_high(record, high);
        rule.set_parameter_x_target_low(record, low);
        rule.set_parameter_x_kp(record, kp);
        rule.set_parameter_x_ki(record, ki);
        rule.set_parameter_x_kd(record, kd);
    }
    static std::vector<rule_pointer> all_classes() {
        std::vector<rule_pointer> rules(3);
        rules[0] = std::make_unique<common_thermal_algorithm_pid>(1);
        rules[1] = std::make_unique<common_thermal_algorithm_pid_v2>(1);
        rules[2] = std::make_unique<common_thermal_algorithm_pid_v3>(1);
        return rules;
    }
    void give(unsigned record, float x, float y) {
        dao.update_dev("x", static_cast<int>(record), x, false);
        dao.update_dev("y", static_cast<int>(record), y, false);
    }
};

TEST_F(pid_test, the_three_classes_enter_hold_and_leave_the_band_in_their_own_way) {
    // Band 60 to 65, kp 1, ki 0.5, kd 0.25, r_max 100: x, y, and the result of each class.
    const std::tuple<float, float, float, float, float> passes[] = {
        {70, 50, 58.75f, 58.75f, 58.75f},  // +5 +2.5 +1.25
        {70, 50, 51.25f, 51.25f, 51.25f},  // +0 +2.5 -1.25
        {63, 50, 43.75f, 50, 50},          // the history alone: -5 -1.25
        {65, 40, 41.25f, 40, 50},          // the edge is inside; +1.25
        {60, 120, 100, 100, 50},           // so is the other
        {67, 40, 43.5f, 43.5f, 43.5f},     // +2 +1 +0.5
        {62, 120, 100, 100, 120},          // a new hold, beyond r_max
        {58, 30, 27, 26.5f, 26.5f},        // -2 -1, and kd * (-2 - 0 + 2) or kd * -2
        {50, 1, 0, 0, 0},                  // -13.5 is no result
        {62, 0, 14.5f, 0, 0},              // +10 +4.5; 0 holds nothing
        {62, 33, 30.5f, 33, 33},           // -2.5
        {62, 44, 44, 44, 33},
        {80, 95, 100, 100, 100},           // cut
        {80, 50, 53.75f, 53.75f, 53.75f},  // the error of the cut pass counts: +0 +7.5 -3.75
    };
    std::vector<rule_pointer> rules = all_classes();
    for (const rule_pointer& rule : rules) set_up(*rule, 1, 65, 60, 1, 0.5f, 0.25f);
    for (const auto& [x, y, run_on, clear, hold] : passes) {
        give(1, x, y);
        EXPECT_EQ(result_of(*rules[0]), run_on) << x << ", " << y;
        EXPECT_EQ(result_of(*rules[1]), clear) << x << ", " << y;
        EXPECT_EQ(result_of(*rules[2]), hold) << x << ", " << y;
    }
}

TEST_F(pid_test, formula_is_in_single_precision_from_left_to_right) {
    // Double precision gives 78.5999908, 36.1500015, 5.5399971; another order or a fused multiplication differs in one.
    const std::tuple<float, float, float> passes[] = {
        {82.2f, 35.6f, 78.5999985f}, {89.1f, 10.3f, 36.1500053f}, {67.6f, 43.8f, 5.53999615f}};
    for (const rule_pointer& rule : all_classes()) {
        set_up(*rule, 1, 65, 60, 1.6f, 0.7f, 0.2f);
        for (const auto& [x, y, result] : passes) {
            give(1, x, y);
            EXPECT_EQ(result_of(*rule), result) << rule->get_name() << " at " << x;
        }
    }
}

TEST_F(pid_test, reversed_band_drives_the_output_up_below_it) {
    const std::pair<float, float> rows[] = {{5, 55}, {10, 50}, {15, 50}, {20, 50}, {25, 45}};
    for (const auto& [x, result] : rows) {
        for (const rule_pointer& rule : all_classes()) {
            set_up(*rule, 1, 10, 20, 1, 0, 0);
            give(1, x, 50);
            EXPECT_EQ(result_of(*rule), result) << rule->get_name() << " at " << x;
        }
    }
}

TEST_F(pid_test, last_record_alone_decides_and_the_hold_is_shared) {
    std::vector<rule_pointer> rules = all_classes();
    for (const rule_pointer& rule : rules) {
        for (const unsigned record : {1u, 2u}) set_up(*rule, record, 65, 60, 1, 0, 0);
    }
    give(1, 62, 90);
    EXPECT_EQ(result_of(*rules[0]), 0.0f) << "the second record has nothing to read";
    // y of the first record, x and y of the second, results of the first and the third class.
    const std::tuple<float, float, float, float, float> passes[] = {
        {90, 62, 20, 20, 90}, {80, 70, 20, 25, 25}, {80, 62, 30, 25, 80}};
    for (const auto& [y1, x2, y2, run_on, hold] : passes) {
        give(1, 62, y1);
        give(2, x2, y2);
        EXPECT_EQ(result_of(*rules[0]), run_on) << y1 << ", " << x2;
        EXPECT_EQ(result_of(*rules[2]), hold) << y1 << ", " << x2;
    }
}

TEST_F(pid_test, lost_reading_gives_zero_and_leaves_the_history_for_the_next_pass) {
    common_thermal_dao without_y, without_x;
    without_y.update_dev("x", 1, 99.0f, false);
    without_x.update_dev("y", 1, 30.0f, false);
    give(1, 70, 50);
    for (const rule_pointer& rule : all_classes()) {
        set_up(*rule, 1, 65, 60, 1, 0.5f, 0.25f);
        EXPECT_EQ(result_of(*rule), 58.75f);
        EXPECT_TRUE(result_of(*rule, without_y) == 0.0f && result_of(*rule, without_x) == 0.0f);
        take_lines(0);
        EXPECT_EQ(result_of(*rule), 51.25f) << "as the pass after the first";
        EXPECT_EQ(
            take_lines(0x4000),
            text_lines{rule->get_name() + "::(1) - [100.00, 51.25]=65.00, 60.00, 70.00, 50.00, [5.00, 5.00, 0.00]\n"});
    }
}

}  // namespace
