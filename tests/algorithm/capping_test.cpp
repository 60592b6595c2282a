#include "algorithm/capping/level_capping.hpp"
#include "algorithm/capping/nvme_device.hpp"
#include "algorithm/capping/sensor_capping.hpp"
#include "algorithm/config/nvme_cap_params.hpp"
#include "platform/nvme.hpp"
#include "tests/support/rule_fixture.hpp"

namespace {

using rule_pointer = std::unique_ptr<common_thermal_algorithm>;
using floats = std::vector<float>;
constexpr float nan_value = std::numeric_limits<float>::quiet_NaN();
constexpr float infinity = std::numeric_limits<float>::infinity();
constexpr float missing = -4711.0f;  // stands for a key that nobody writes

template <class Rule>
rule_pointer made(const std::string& keys) {
    auto rule = std::make_unique<Rule>(1);
    rules_text text("[R]\nNAME=R\n" + keys);
    rule->parse_result_name(&text, "R");
    rule->parse_parameters(&text, "R");
    rule->parse_action(&text, "R");
    return rule;
}

using cpu_percentage = common_thermal_algorithm_sensor_capping_cpu_percentage;
using cpu_constant = common_thermal_algorithm_sensor_capping_cpu_constant;
using dimm = common_thermal_algorithm_sensor_capping_dimm;
using dimm_constant = common_thermal_algorithm_sensor_capping_dimm_constant;
using dimm_percentage = common_thermal_algorithm_sensor_capping_dimm_percentage;
using system_percentage = common_thermal_algorithm_sensor_capping_system_percentage;
using system_constant = common_thermal_algorithm_sensor_capping_system_constant;
using fan_percentage = common_thermal_algorithm_sensor_capping_fan_percentage;
using gpu_percentage = common_thermal_algorithm_sensor_capping_gpu_percentage;
using nvme_device = common_thermal_algorithm_sensor_capping_nvme_device;
using nvme_params = common_thermal_algorithm_config_nvme_cap_params;
using nvme_params_v2 = common_thermal_algorithm_config_nvme_cap_params_v2;

class capping_test : public rule_test {
protected:
    capping_test() { nvme_params::forget_everything(), nvme_params_v2::forget_everything(); }

    // x.1, x.2 ... of a store of their own, and y likewise.
    static void give(common_thermal_dao& store, const char* name, const floats& values) {
        for (std::size_t i = 0; i < values.size(); ++i) {
            if (values[i] != missing) store.update_dev(name, static_cast<int>(i) + 1, values[i], false);
        }
    }
    // Record `number` with a row for each value.
    static std::string record(int number, const char* count_key, std::size_t rows, const std::string& keys) {
        const std::string lead = std::to_string(number) + ".PARAMETER_";
        std::string text = lead + count_key + "=" + std::to_string(rows) + "\n" + lead + keys + "\n";
        for (std::size_t i = 1; i <= rows; ++i) {
            const std::string row = std::to_string(i);
            for (const char* axis : {"X", "Y"}) {
                const char* name = *axis == 'X' ? "x" : "y";
                text.append(lead).append(axis).append("_PREFIX." + row + "=").append(name).append("\n");
                text.append(lead).append(axis).append("_INST." + row + "=").append(row).append("\n");
            }
        }
        return text;
    }
    float polled(common_thermal_algorithm& rule, common_thermal_dao& store) {
        rule.polling(&store, 0);
        return value_in(store, "custom.R.result");
    }
    float polled(common_thermal_algorithm& rule) { return polled(rule, dao); }
    // One pass of the manager over a rule; without the conditions no result is made.
    float pass(common_thermal_algorithm& rule, bool holds) {
        rule.deasserted();
        const float result = holds ? polled(rule) : nan_value;
        if (holds) rule.asserted();
        rule.update_pre_asserted();
        return result;
    }
    static void set_up(nvme_device& rule, unsigned record, float minimal, float middle, float hysteresis) {
        rule.set_parameter_x(record, "t", static_cast<int>(record));
        rule.set_parameter_min_power_thd(record, minimal);
        rule.set_parameter_middle_pwr_thd(record, middle);
        rule.set_parameter_hysteresis(record, hysteresis);
    }
    void let_seconds_pass(int seconds) { host.loop.run_for(std::chrono::seconds(seconds)); }
};

TEST_F(capping_test, sums_lose_their_fraction_at_each_addition_and_stay_in_single_precision) {
    using maker = rule_pointer (*)(const std::string&);
    // x and y of each part, their sum, what comes of it and the cap.
    const std::tuple<maker, const char*, floats, floats, float, float, int> rows[] = {
        {made<cpu_percentage>, "PERCENTAGE=50", {1, 1}, {125.0f, 125.5f}, 250, 125, 125},
        {made<cpu_percentage>, "PERCENTAGE=100", {1, 0, -2, 0.1f, missing}, {9.9f, 50, 0.9f, 1.2f, 50}, 10, 10, 10},
        {made<cpu_percentage>, "PERCENTAGE=100", {1, 1, nan_value}, {50, missing, 20}, 70, 70, 70},
        {made<cpu_percentage>, "PERCENTAGE=100", {1, 1, 1}, {300, -500, 20}, 20, 20, 20},
        {made<cpu_percentage>, "PERCENTAGE=1", {1, 1}, {infinity, 5}, 4294967296.0f, 42949672.96f, 65535},
        {made<cpu_percentage>, "PERCENTAGE=21", {1}, {600}, 600, 125.999992f, 125},
        {made<cpu_percentage>, "PERCENTAGE=-5", {1}, {100}, 100, -5, 0},
        {made<cpu_percentage>, "PERCENTAGE=nan", {1}, {100}, 100, nan_value, 65535},
        {made<cpu_constant>, "PER_CPU_WATT=1.5", {1, 0, 1, missing, -1}, {}, 3, 3, 3},
        {made<dimm>, "PER_DIMM_WATT=2.5", {1, 0, infinity, nan_value, missing}, {}, 3, 7.5f, 7},
        {made<dimm_constant>, "PER_DIMM_WATT=4.9", {-1, 1}, {}, 2, 9.8f, 9},
        {made<system_percentage>, "PERCENTAGE=50", {100.9f, missing, 50.9f, 0}, {}, 150, 75, 75},
        {made<system_percentage>, "PERCENTAGE=100", {100, -200, 7}, {}, 7, 7, 7},
    };
    for (const auto& [make, setting, x, y, sum, candidate, expected] : rows) {
        const rule_pointer rule = make("PARAMETER_COUNT=1\n1.PARAMETER_R_MIN=-1000\n" +
                                       record(1, y.empty() ? "X_COUNT" : "XY_COUNT", x.size(), setting));
        common_thermal_dao store;
        give(store, "x", x), give(store, "y", y);
        take_lines(0);
        EXPECT_EQ(polled(*rule, store), std::fmin(candidate, 65535.0f)) << rule->get_name() << ' ' << setting;
        const int cap = rule->supports(common_thermal_algorithm::action_capping_cpu)
                            ? rule->get_action_sensor_capping_cpu_value()
                        : rule->supports(common_thermal_algorithm::action_capping_dimm)
                            ? rule->get_action_sensor_capping_dimm_value()
                            : rule->get_action_sensor_capping_system_value();
        EXPECT_EQ(cap, expected) << rule->get_name() << ' ' << setting;
        const auto line = take_lines(0x4000).at(0);
        const int shown_sum = static_cast<int>(saturate_to_unsigned(sum));
        EXPECT_NE(line.find("]=" + std::to_string(shown_sum) + ","), std::string::npos) << line;
    }
}

TEST_F(capping_test, lowest_record_wins_each_record_has_a_floor_and_lost_parts_stop_counting) {
    give(dao, "x", {1, 1, 1});
    give(dao, "y", {100, 200, 300});
    // 600 W at 50 % and 25 %; the floor of the second record decides.
    const rule_pointer rule =
        made<cpu_percentage>("PARAMETER_COUNT=2\n1.PARAMETER_R_MIN=100\n2.PARAMETER_R_MIN=200\n" +
                             record(1, "XY_COUNT", 3, "PERCENTAGE=50") + record(2, "XY_COUNT", 3, "PERCENTAGE=25"));
    const std::tuple<floats, float> passes[] = {
        {{1, 1, 1}, 200}, {{1, 0, 0}, 100}, {{0, 1, 0}, 100}, {{0, 0, 0}, 100}, {{1, 1, 1}, 200}};
    for (const auto& [x, result] : passes) {
        give(dao, "x", x);
        EXPECT_EQ(polled(*rule), result);
    }
    const std::pair<rule_pointer, float> others[] = {
        {made<cpu_percentage>(""), 65535.0f},
        {made<dimm>("PARAMETER_COUNT=1\n1.PARAMETER_X_COUNT=-2\n"), 0.0f},
        {made<system_percentage>("PARAMETER_COUNT=1\n1.PARAMETER_X_COUNT=2147483647\n1.PARAMETER_R_MIN=5\n"), 5.0f},
        {made<cpu_constant>("PARAMETER_COUNT=1\n1.PARAMETER_R_MIN=70000\n"), 65535.0f},
        {made<system_constant>("PARAMETER_COUNT=0\n"), 65535.0f},
        {made<system_constant>("PARAMETER_COUNT=2\n1.PARAMETER_WATT=250.5\n"), 100.0f},
    };
    for (const auto& [other, result] : others) EXPECT_EQ(polled(*other), result) << other->debugging();
}

TEST_F(capping_test, memory_percentage_is_the_first_records_and_the_result_is_no_cap) {
    const std::string one = "PARAMETER_COUNT=1\n", percent = "1.PARAMETER_PERCENTAGE=";
    const std::string two = "PARAMETER_COUNT=2\n2.PARAMETER_PERCENTAGE=60\n";
    for (const auto& [keys, percentage] : {std::pair{std::string(), 100},
                                           {one, 0},
                                           {one + percent + "80.9", 80},
                                           {one + percent + "-7", 0},
                                           {one + percent + "nan", 0},
                                           {one + percent + "150", 150},
                                           {two + percent + "80", 80}}) {
        const rule_pointer rule = made<dimm_percentage>(keys);
        EXPECT_EQ(rule->get_action_sensor_capping_dimm_value_percentage(), 65535);
        EXPECT_EQ(polled(*rule), 65535.0f);
        EXPECT_EQ(rule->get_action_sensor_capping_dimm_value(), 65535);
        EXPECT_EQ(rule->get_action_sensor_capping_dimm_value_percentage(), percentage) << keys;
    }
}

TEST_F(capping_test, log_lines_show_the_last_poll) {
    give(dao, "x", {1, 0});
    give(dao, "y", {150});
    const std::pair<rule_pointer, const char*> rows[] = {
        {made<cpu_percentage>("PARAMETER_COUNT=1\n" + record(1, "XY_COUNT", 2, "PERCENTAGE=50")),
         "cpu_percentage::custom.R.result - [0.00, 75.00]=150, 0.50\n"},
        {made<fan_percentage>("PARAMETER_COUNT=1\n"), "fan_percentage::custom.R.result - [100.00][120.00]\n"},
        {made<nvme_device>("PARAMETER_COUNT=1\n1.PARAMETER_X_PREFIX=y\n1.PARAMETER_X_INST=1\n"),
         "nvme_device::custom.R.result - [r 1, result 1.00]\n"}};
    for (const auto& [rule, line] : rows) {
        take_lines(0);
        polled(*rule);
        EXPECT_EQ(take_lines(0x4000), text_lines{std::string("common_thermal_algorithm_sensor_capping_") + line});
    }
    EXPECT_EQ(rows[0].first->debug(),
              "\nindex=1\nxy_index=1\nx_key=x.1\ny_key=y.1\nx(presence)=1.000000\ny(tdp)=150.000000"
              "\nxy_index=2\nx_key=x.2\ny_key=y.2\nx(presence)=0.000000\ny(tdp)=0.000000"
              "\npercentage=50.000000\ntdp_sum=150.000000\nr=75.000000\nr_min=0.000000\nr=sum(y)/sum(x)");
}

TEST_F(capping_test, level_rules_hand_their_constant_to_permission_brake_and_limit) {
    const std::string slots = "PCI_MAP_COUNT=2\n1.PCI_LOCATION=1\n1.PCI_SLOT_NO=3\n2.PCI_LOCATION=1\n2.PCI_SLOT_NO=4\n";
    const auto permission = made<common_thermal_algorithm_sensor_capping_power_permission>("");
    EXPECT_EQ(permission->get_action_sensor_capping_power_permission_value(), 1);
    EXPECT_EQ(polled(*permission), 0.0f);
    EXPECT_EQ(permission->get_action_sensor_capping_power_permission_value(), 0);
    const auto brake = made<common_thermal_algorithm_sensor_capping_pciegen_pwrbrk>(slots);
    EXPECT_FALSE(brake->get_action_pciegen_pwrbrk_by_location_slot_no(1, 4));
    EXPECT_EQ(polled(*brake), 1.0f);
    EXPECT_TRUE(brake->get_action_pciegen_pwrbrk_by_location_slot_no(1, 4));
    const std::tuple<const char*, float, int> limits[] = {
        {"", 100, 100},
        {"PARAMETER_COUNT=2\n1.PARAMETER_PERCENTAGE=80\n2.PARAMETER_PERCENTAGE=50.7\n", 50.7f, 50},
        {"PARAMETER_COUNT=1\n1.PARAMETER_PERCENTAGE=nan\n", 100, 100},
        {"PARAMETER_COUNT=1\n1.PARAMETER_PERCENTAGE=-3\n", -3, 0}};
    for (const auto& [keys, result, limit] : limits) {
        const auto gpu = made<gpu_percentage>(slots + keys);
        EXPECT_EQ(polled(*gpu), result) << keys;
        EXPECT_EQ(gpu->get_action_powerlimit_pci_by_location_slot_no(1, 3), limit);
    }
}

TEST_F(capping_test, fan_cap_that_comes_back_waits_for_its_deferment) {
    const std::string lead = "PARAMETER_COUNT=2\n1.PARAMETER_PERCENTAGE=60\n2.PARAMETER_PERCENTAGE=80\n";
    const auto deferments = [](const char* first, const char* second) {
        return std::string("1.PARAMETER_REASSERTION_DEFERMENT=") + first +
               "\n2.PARAMETER_REASSERTION_DEFERMENT=" + second + "\n";
    };
    // Asserted, asserted, paused, back; then the seconds that pass and the result behind them.
    const std::tuple<std::string, float, float, std::vector<std::pair<int, float>>> rows[] = {
        {"", 100, 100, {{0, 100}}},
        {lead + deferments("0", "0"), 60, 60, {{0, 60}}},
        {lead + deferments("256", "256"), 60, 100, {{0, 100}, {1, 60}}},
        {lead + deferments("-4", "0.9"), 60, 100, {{0, 100}, {1, 60}}},
        {lead + deferments("100", "5"), 60, 100, {{5, 100}, {1, 60}}},
        {lead + deferments("20", "0"), 60, 80, {{0, 100}, {20, 100}, {1, 60}}},
        {lead, 60, 100, {{120, 100}, {1, 60}}},
    };
    for (const auto& [keys, first, back, later] : rows) {
        const rule_pointer rule = made<fan_percentage>(keys);
        EXPECT_EQ(rule->get_action_sensor_capping_fan_value(), 65535);
        EXPECT_EQ(pass(*rule, true), first) << keys;
        EXPECT_TRUE(rule->has_first_assertion());
        EXPECT_EQ(pass(*rule, true), first) << keys;
        pass(*rule, false);
        EXPECT_EQ(pass(*rule, true), back) << keys;
        for (const auto& [seconds, result] : later) {
            let_seconds_pass(seconds);
            EXPECT_EQ(pass(*rule, true), result) << keys << seconds;
            EXPECT_EQ(rule->get_action_sensor_capping_fan_value(), static_cast<int>(result));
        }
    }
}

TEST_F(capping_test, deferment_starts_anew_with_each_pause_and_outlives_a_forgotten_first_assertion) {
    const rule_pointer rule =
        made<fan_percentage>("PARAMETER_COUNT=1\n1.PARAMETER_PERCENTAGE=60\n1.PARAMETER_REASSERTION_DEFERMENT=10\n");
    const auto passes = [&](std::initializer_list<std::tuple<int, bool, float>> steps) {
        for (const auto& [seconds, holds, result] : steps) {
            let_seconds_pass(seconds);
            const float got = pass(*rule, holds);
            EXPECT_TRUE(holds ? got == result : std::isnan(got)) << got;
        }
    };
    passes(
        {{0, true, 60}, {0, false, 0}, {0, true, 100}, {8, true, 100}, {0, false, 0}, {2, true, 100}, {9, true, 100}});
    const std::string line = rule->get_name() + "::custom.R.result Reassertion Started\n";
    EXPECT_EQ(take_lines(0x2000), (text_lines{line, line}));
    rule->set_first_assertion(false);
    passes({{0, true, 60}, {0, true, 100}, {2, true, 60}, {0, false, 0}});
    host.clock.fail_monotonic(1);
    passes({{0, true, 100}, {0, true, 60}});
}

TEST_F(capping_test, drive_level_follows_its_value_with_hysteresis_on_both_scales) {
    using steps = std::vector<std::pair<float, int>>;
    const std::tuple<float, float, float, steps> scales[] = {
        {70.0f, 60.0f, 5.0f, {{59, 3}, {60, 2}, {59, 2}, {55, 2}, {54.9f, 3}, {59, 3}, {70, 1}, {69, 1}, {65, 1}}},
        {70.0f, 60.0f, 5.0f, {{70, 1}, {64.9f, 2}, {69.9f, 2}, {70, 1}, {59, 2}, {54, 3}, {1e9f, 1}, {54, 3}}},
        {70.0f, 60.0f, 5.0f, {{70, 1}, {missing, 0}, {66, 1}, {nan_value, 0}, {66, 1}, {infinity, 1}, {59, 2}}},
        {70.0f, 60.0f, 5.0f, {{60, 2}, {nan_value, 0}, {55, 2}, {missing, 0}, {55, 2}, {-infinity, 3}, {58, 3}}},
        {10.0f, 20.0f, 2.0f, {{21, 3}, {20, 2}, {22, 2}, {22.5f, 3}, {21, 3}, {10, 1}, {11.5f, 1}, {12, 1}}},
        {10.0f, 20.0f, 2.0f, {{10, 1}, {12.5f, 2}, {12, 2}, {10, 1}, {21, 2}, {22.5f, 3}, {nan_value, 0}, {-5, 1}}},
        {50.0f, 50.0f, 5.0f, {{50, 1}, {49, 2}, {45, 2}, {44, 3}, {49, 3}, {50, 1}}},
    };
    for (const auto& [minimal, middle, hysteresis, passes] : scales) {
        nvme_device rule(1);
        set_up(rule, 1, minimal, middle, hysteresis);
        for (const auto& [value, level] : passes) {
            common_thermal_dao store;
            give(store, "t", {value});
            rule.polling(&store, 0);
            EXPECT_EQ(rule.get_action_sensor_capping_nvme_value(), level != 0 ? level : 65535) << value;
        }
    }
    for (const auto& [level, value] : {std::pair{1u, 2}, {2u, 1}, {3u, 0}, {0u, 2}, {4u, 2}, {65535u, 2}}) {
        EXPECT_EQ(nvme_device::power_val_for_sepcomm(level), value) << level;
    }
}

TEST_F(capping_test, drive_records_share_one_history_and_the_tightest_level_wins) {
    nvme_device rule(1);
    polled(rule);
    EXPECT_EQ(rule.get_action_sensor_capping_nvme_value(), 65535);
    for (const unsigned number : {1u, 2u}) set_up(rule, number, 70, 60, 5);
    const std::tuple<float, float, int> passes[] = {{50, 75, 1}, {66, 50, 1}, {50, 66, 2},        {58, 50, 2},
                                                    {50, 58, 3}, {75, 58, 1}, {nan_value, 50, 3}, {66, nan_value, 2}};
    for (const auto& [first, second, level] : passes) {
        give(dao, "t", {first, second});
        polled(rule);
        EXPECT_EQ(rule.get_action_sensor_capping_nvme_value(), level) << first << ", " << second;
    }
}

TEST_F(capping_test, drive_parameters_are_cut_to_the_firmwares_widths_and_shown_with_what_it_holds) {
    const std::string key = "\n1.PARAMETER_NVME_PWR_CAP_";
    nvme_params one(4);
    nvme_params_v2 two(7);
    read(one, "PARAMETER_COUNT=3" + key + "MARGIN1=300.9" + key + "MARGIN2=-1\n");
    read(two, "PARAMETER_COUNT=1" + key + "MARGIN_LOWER=7" + key + "MARGIN_UPPER=1e20" + key + "TIMER_LOWER=65537" +
                  key + "TIMER_UPPER=nan\n");
    nvme_params::open_place(), nvme_params_v2::open_place();
    one.polling(&dao, 0), two.polling(&dao, 0);
    int instance = 0;
    std::uint8_t a = 1, b = 2, c = 3;
    std::uint16_t lower = 5, upper = 5;
    EXPECT_TRUE(nvme_params::get_effective_params(instance, a, b, c));
    EXPECT_EQ(std::tuple(instance, a, b, c), std::tuple(4, 44, 0, 0));
    nvme_params::apply_nvme_params(a, 8, 9);
    nvme_params::apply_nvme_params(a, 8, c);
    EXPECT_NE(one.debug().find("\neffective=1\neffective instance=4\ncap_property_creation=1\ncap_property_status=1"
                               "\nsep params=[44,8,0]\nindex=2"),
              std::string::npos)
        << one.debug();
    EXPECT_TRUE(nvme_params_v2::get_effective_params(instance, a, b, lower, upper));
    EXPECT_EQ(std::tuple(instance, a, b, lower, upper), std::tuple(7, 7, 255, 1, 0));
    nvme_params::forget_everything();
    EXPECT_FALSE(nvme_params::get_effective_params(instance, a, b, c));
}

}  // namespace
