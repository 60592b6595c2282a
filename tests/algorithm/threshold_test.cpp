#include "algorithm/control/threshold.hpp"
#include "tests/support/rule_fixture.hpp"

namespace {

constexpr float nan_reading = std::numeric_limits<float>::quiet_NaN();

class threshold_test : public rule_test {
protected:
    // x and y of record n at instance n; r_max 100.
    static void set_up(threshold_regulator& rule, unsigned record, float control, float critical, float guard_band) {
        rule.set_parameter_x(record, "x", static_cast<int>(record));
        rule.set_parameter_y(record, "y", static_cast<int>(record));
        rule.set_parameter_x_tcontrol(record, control);
        rule.set_parameter_x_tcritical(record, critical);
        rule.set_parameter_x_guard_band(record, guard_band);
        rule.set_parameter_y_incremental(record, 2);
    }
    float result_at(threshold_regulator& rule, float x, float y, unsigned long timestamp = 1000) {
        dao.update_dev("x", 1, x, false);
        dao.update_dev("y", 1, y, false);
        rule.polling(&dao, timestamp);
        return value_of(rule.get_name() + ".result");
    }

    common_thermal_algorithm_threshold quick{1};
    common_thermal_algorithm_threshold_v2 ramp{1};
};

TEST_F(threshold_test, quick_regulator_climbs_from_y_holds_in_the_guard_band_and_lets_go_below) {
    // Control 70, critical 90, release 65: x, y, result. NaN is neither hot nor cool.
    const std::tuple<float, float, float> passes[] = {
        {69, 40, 0}, {70, 40, 42},     {67, 40, 40},  {65.01f, 33, 33}, {nan_reading, 30, 30}, {65, 40, 0},
        {69, 40, 0}, {89.9f, 99, 100}, {90, 40, 100}, {90, -10, 90},    {70, -10, 0}};
    set_up(quick, 1, 70, 90, 5);
    for (const auto& [x, y, result] : passes) EXPECT_EQ(result_at(quick, x, y), result) << x << ", " << y;
    set_up(quick, 1, 70, 90, 0);
    EXPECT_EQ(result_at(quick, 70, 40), 0.0f) << "without a band the control level is the release";
    set_up(quick, 1, 70, 60, 20);
    for (const auto& [x, result] : {std::pair{59.0f, 0.0f}, {60, 100}, {75, 100}, {59, 40}, {50, 0}, {59, 0}}) {
        EXPECT_EQ(result_at(quick, x, 40), result) << x << " with the critical level inside the band";
    }
    set_up(quick, 1, 70, 45, 20);
    for (const auto& [x, result] : {std::pair{51.0f, 100.0f}, {50, 0}, {46, 0}, {51, 100}}) {
        EXPECT_EQ(result_at(quick, x, 40), result) << x << " with the critical level below the release";
    }
}

TEST_F(threshold_test, ramp_is_seeded_once_and_timed_in_both_directions_by_one_timer) {
    // Control 70, band 5, critical 90, 2 up each 30 s, 9 down each 10 s, r_max 50: time, x, y, result.
    const std::tuple<unsigned long, float, float, float> passes[] = {
        {1000, 60, 40, 0},   // a step down, from nothing
        {1005, 70, 40, 40},  // the seed; its step waits for the timer
        {1029, 70, 10, 40},
        {1030, 70, 10, 42},
        {1059, 67, 10, 42},  // the band holds
        {1060, 71, 10, 44},
        {1070, 95, 10, 50},
        {1090, 90, 10, 50},
        {1099, 65, 10, 50},  // a swallowed step takes the timer with it
        {1100, 65, 10, 41},
        {1110, 66, 10, 32},  // the band no longer holds
        {1111, 70, 20, 20},  // a new seed, even a lower one
        {500, 70, 99, 22},   // a clock that was set back steps at once
        {509, 60, 99, 22},
        {510, 60, 99, 13},
        {520, 60, 99, 4},
        {530, 60, 99, 0},
        {600, 70, -5, 0},                      // seed and step together: -3
        {(1ul << 16 << 16) + 629, 70, 99, 0},  // 32 bits of a time count: 29 s
        {(1ul << 16 << 16) + 630, 70, 99, 2}};
    set_up(ramp, 1, 70, 90, 5);
    ramp.set_parameter_r_max(1, 50);
    ramp.set_parameter_y_incremental_poll_seconds(1, 30);
    ramp.set_parameter_y_decremental(1, 9);
    ramp.set_parameter_y_decremental_poll_seconds(1, 10);
    for (const auto& [time, x, y, result] : passes) EXPECT_EQ(result_at(ramp, x, y, time), result) << time;
}

TEST_F(threshold_test, reversed_scale_mirrors_the_ramp) {
    const std::pair<float, float> passes[] = {{22, 0},  {18, 32},    {22, 32},    {20, 34}, {nan_reading, 34},
                                              {24, 31}, {23.9f, 28}, {20.1f, 25}, {19, 32}, {5.1f, 34},
                                              {5, 60},  {4, 60},     {30, 57}};
    set_up(ramp, 1, 20, 5, 4);
    ramp.set_parameter_y_decremental(1, 3);
    ramp.set_parameter_r_max(1, 60);
    for (const auto& [x, result] : passes) EXPECT_EQ(result_at(ramp, x, 30), result) << x;
    set_up(ramp, 1, 20, 5, 0);
    EXPECT_EQ(result_at(ramp, 20, 30), 54.0f) << "without a band the control level is cool";
    for (const float result : {0.0f, 2.0f, 4.0f}) {
        EXPECT_EQ(result_at(ramp, 19, nan_reading), result) << "a start from no number is one from 0";
    }
}

TEST_F(threshold_test, records_share_the_state_and_the_larger_output_wins) {
    for (const unsigned record : {1u, 2u}) {
        set_up(quick, record, 70, 90, 5);
        set_up(ramp, record, 70, 90, 5);
        ramp.set_parameter_y_decremental(record, 1);
    }
    // x and y of both records, results of both classes. Every step is due.
    const std::tuple<float, float, float, float, float, float> passes[] = {
        {67, 30, 72, 40, 42, 42},                            // the first record is not yet held
        {67, 30, 60, 40, 30, 42},                            // it is, and the second lets go
        {67, 30, 60, 40, 0, 40},                             // 40, 39
        {72, 40, 72, 50, 52, 44},                            // two hot records step twice
        {72, 40, 72, 30, 42, 48}, {72, 20, 60, 50, 22, 50},  // a hot and a cool one toggle the state
        {72, 60, 60, 50, 62, 62},                            // so that the ramp begins anew in each pass
        {72, 20, 60, 50, 22, 22},
    };
    for (const auto& [x1, y1, x2, y2, quick_result, ramp_result] : passes) {
        dao.update_dev("x", 2, x2, false);
        dao.update_dev("y", 2, y2, false);
        EXPECT_EQ(result_at(quick, x1, y1), quick_result) << x1 << ", " << x2;
        EXPECT_EQ(result_at(ramp, x1, y1), ramp_result) << x1 << ", " << x2;
    }
}

TEST_F(threshold_test, lost_reading_leaves_no_trace_and_other_passes_show_the_last_output_with_their_readings) {
    const std::string keys =
        "NAME=T\nPARAMETER_COUNT=1\n1.PARAMETER_X_PREFIX=x\n1.PARAMETER_X_INST=1\n1.PARAMETER_Y_PREFIX=y\n"
        "1.PARAMETER_Y_INST=1\n1.PARAMETER_X_TCONTROL=70\n1.PARAMETER_X_TCRITICAL=90\n1.PARAMETER_X_GUARD_BAND=5\n"
        "1.PARAMETER_Y_INCREMENTAL=2\n1.PARAMETER_Y_INCREMENTAL_POLL_SECONDS=30\n1.PARAMETER_Y_DECREMENTAL=3\n"
        "1.PARAMETER_Y_DECREMENTAL_POLL_SECONDS=10\n1.PARAMETER_R_MAX=80\n";
    const std::string head = "common_thermal_algorithm_threshold";
    const std::tuple<threshold_regulator*, float, float, text_lines> rows[] = {
        {&quick,
         41,
         0,
         {head + "::custom.T.result - [80.00, 42.00]=70.00, 65.00, 90.00, 2.00, 70.00, 40.00\n",
          head + "::custom.T.result - [80.00, 41.00]=70.00, 65.00, 90.00, 2.00, 67.00, 41.00\n"}},
        {&ramp,
         42,
         42,
         {head + "_v2::custom.T.result - [80.00, 42.00]=0, 1, 42.00, 70.00, 40.00\n",
          head + "_v2::custom.T.result - [80.00, 42.00]=1, 1, 42.00, 67.00, 41.00\n"}}};
    for (const auto& [rule, held, let_go, lines] : rows) {
        read(*rule, keys);
        take_lines(0);
        EXPECT_EQ(result_at(*rule, 70, 40), 42.0f);
        rule->set_parameter_y(1, "lost", 1);
        EXPECT_EQ(result_at(*rule, 64, 40), 0.0f);
        rule->set_parameter_y(1, "y", 1);
        EXPECT_EQ(result_at(*rule, 67, 41), held) << "still held";
        EXPECT_EQ(take_lines(0x4000), lines);
        EXPECT_EQ(result_at(*rule, 64, 40), let_go);
    }
}

}  // namespace
