#include "algorithm/control/cubic_equation.hpp"
#include "algorithm/control/dummy.hpp"
#include "algorithm/control/stepwise.hpp"
#include "tests/support/rule_fixture.hpp"

namespace {

constexpr float nan_reading = std::numeric_limits<float>::quiet_NaN();

class curves_test : public rule_test {
protected:
    float result_at(common_thermal_algorithm& rule, float t) {
        dao.update_dev("t", 1, t, false);
        return result_of(rule);
    }
    bool held() { return !take_lines(0x2000).empty(); }

    common_thermal_algorithm_cubic_equation plain{1};
    common_thermal_algorithm_cubic_equation_v2 limited{1};
    common_thermal_algorithm_stepwise steps{1};
};

TEST_F(curves_test, cubic_is_added_up_in_single_precision_from_the_highest_powers_down) {
    // Double precision, Horner's scheme and any other grouping differ in the last digits.
    const std::tuple<cubic_curve, float, float> rows[] = {{{0.003f, -0.025f, 0.2f, 15.6f}, 27.3f, 63.4669952f},
                                                          {{0.003f, -0.026f, -0.26f, 7.3f}, 25.4f, 33.0830231f},
                                                          {{0.002f, -0.01f, 0.13f, 3.0f}, 25.2f, 31.9316177f}};
    plain.set_parameter_x(1, "t", 1);
    for (const auto& [curve, t, result] : rows) {
        plain.set_parameter_a(1, curve.a);
        plain.set_parameter_b(1, curve.b);
        plain.set_parameter_c(1, curve.c);
        plain.set_parameter_d(1, curve.d);
        EXPECT_EQ(result_at(plain, t), result);
    }
}

TEST_F(curves_test, missing_limits_are_zero_in_the_first_class_and_0_to_100_in_the_second) {
    const std::string line =
        "NAME=C\nPARAMETER_COUNT=1\n1.PARAMETER_X_PREFIX=t\n1.PARAMETER_X_INST=1\n1.PARAMETER_C=2\n1.PARAMETER_D=10\n";
    read(plain, line);
    read(limited, line);
    for (const auto& [t, result] : {std::pair{30.0f, 70.0f}, {-50, 10}, {0, 10}, {1000, 100}}) {
        EXPECT_EQ(result_at(plain, t), 0.0f) << t;
        EXPECT_EQ(result_at(limited, t), result) << t;
    }
    plain.set_parameter_r_max(1, 60);
    EXPECT_EQ(result_at(plain, 30), 60.0f);
    EXPECT_EQ(result_at(plain, -50), 0.0f) << "-90 is no result";
    limited.set_parameter_r_max(1, 1000);
    EXPECT_EQ(result_at(limited, 1000), 210.0f) << "x stops at 100";
    limited.set_parameter_x_min(1, 20);
    take_lines(0);
    EXPECT_EQ(result_at(limited, 1), 50.0f);
    limited.set_parameter_x_max(1, 15);
    EXPECT_EQ(result_at(limited, 30), 40.0f) << "of crossed limits the upper one wins";
    EXPECT_EQ(result_at(plain, 1), 12.0f);
    const std::string head = "common_thermal_algorithm_cubic_equation";
    const text_lines lines = take_lines(0x4000);
    EXPECT_EQ(lines.at(1),
              head + "_v2::custom.C.result - [40.00]=0.00, 0.00, 2.00, 10.00, 15.00, 20.00, 15.00, 1000.00\n");
    EXPECT_EQ(lines.at(2), head + "::custom.C.result - [60.00, 12.00]=0.00, 0.00, 2.00, 10.00, 1.00\n");
}

TEST_F(curves_test, larger_of_two_curves_wins_and_a_lost_input_leaves_the_other) {
    for (const unsigned record : {1u, 2u}) {
        limited.set_parameter_x(record, "t", static_cast<int>(record));
        limited.set_parameter_c(record, 1);
    }
    EXPECT_EQ(result_of(limited), 0.0f);
    EXPECT_EQ(result_at(limited, 40), 40.0f);
    for (const auto& [first, second, result] : {std::tuple{40.0f, 30.0f, 40.0f}, {40, 50, 50}, {nan_reading, 50, 50}}) {
        dao.update_dev("t", 2, second, false);
        EXPECT_EQ(result_at(limited, first), result);
    }
    common_thermal_algorithm_dummy dummy(1);
    EXPECT_EQ(result_of(dummy), 0.0f);
}

TEST_F(curves_test, row_is_left_upwards_at_once_and_downwards_by_the_hysteresis) {
    // Rows in no order; the first of two with the same x stays.
    read(steps,
         "NAME=C\nPARAMETER_COUNT=1\n1.PARAMETER_T_PREFIX=t\n1.PARAMETER_T_INST=1\n1.PARAMETER_HYSTERESIS=3\n"
         "1.PARAMETER_STEPWISE_COUNT=4\n1.PARAMETER_X.1=40\n1.PARAMETER_PWM.1=40\n1.PARAMETER_X.2=50\n"
         "1.PARAMETER_PWM.2=60\n1.PARAMETER_X.3=30\n1.PARAMETER_PWM.3=20\n1.PARAMETER_X.4=40\n1.PARAMETER_PWM.4=99\n");
    const std::tuple<float, float, bool> passes[] = {
        {10, 20, false},          {30, 20, false},   {29, 20, false}, {39.9f, 20, true}, {40, 40, false},
        {38, 40, true},           {49.9f, 40, true}, {37, 20, false}, {39, 20, true},    {28, 20, true},
        {27, 20, false},          {50, 60, false},   {48, 60, true},  {47, 40, false},   {1000, 60, false},
        {nan_reading, 60, false}, {42, 40, false}};
    for (const auto& [t, duty, holds] : passes) {
        EXPECT_EQ(result_at(steps, t), duty) << t;
        EXPECT_EQ(held(), holds) << t;
    }
    result_at(steps, 41);
    EXPECT_EQ(take_lines(0x4000), text_lines{"common_thermal_algorithm_stepwise::custom.C.result - [40.00]=41.00 40.00 "
                                             "40.00 3.00 37.00 50.00\n"});
    steps.set_parameter_hysteresis(1, 20);
    for (const auto& [t, duty] : {std::pair{50.0f, 60.0f}, {41, 60}, {40, 40}, {31, 40}, {30, 20}}) {
        EXPECT_EQ(result_at(steps, t), duty) << t << ": the row underneath ends the range";
    }
}

TEST_F(curves_test, single_row_is_always_chosen_and_a_range_may_hold_a_lost_temperature) {
    steps.set_parameter_dao_t(1, "t", 1);
    EXPECT_EQ(result_at(steps, 3), 0.0f);
    EXPECT_EQ(take_lines(0x2000), text_lines{"common_thermal_algorithm_stepwise::poll - No stepwise configuration\n"});
    steps.set_x_pwm_table(5, 80);
    steps.set_parameter_hysteresis(1, 10);
    for (const auto& [t, holds] : {std::pair{3.0f, false}, {5, false}, {3, true}, {-5, false}, {4, false}}) {
        EXPECT_EQ(result_at(steps, t), 80.0f);
        EXPECT_EQ(held(), holds) << t;
    }
    steps.set_x_pwm_table(-20, 10);
    EXPECT_EQ(result_at(steps, 7), 80.0f);
    steps.set_parameter_dao_t(1, "lost", 1);
    EXPECT_EQ(result_of(steps), 80.0f) << "0.0 is held from -5 to 5";
}

TEST_F(curves_test, records_move_one_hold_range_and_the_larger_duty_wins) {
    for (const auto& [x, pwm] : {std::pair{30.0f, 20.0f}, {40, 40}, {50, 60}}) steps.set_x_pwm_table(x, pwm);
    for (const unsigned record : {1u, 2u}) {
        steps.set_parameter_dao_t(record, "t", static_cast<int>(record));
        steps.set_parameter_hysteresis(record, 3);
    }
    for (const auto& [first, second, duty] :
         {std::tuple{45.0f, 35.0f, 40.0f}, {38, 35, 20}, {45, 38, 40}, {35, 38, 20}}) {
        dao.update_dev("t", 2, second, false);
        EXPECT_EQ(result_at(steps, first), duty) << first << ", " << second;
    }
}

}  // namespace
