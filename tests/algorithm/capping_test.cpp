#include <cmath>
#include <memory>
#include <tuple>

#include "algorithm/capping/level_capping.hpp"
#include "algorithm/capping/nvme_device.hpp"
#include "algorithm/capping/sensor_capping.hpp"
#include "algorithm/config/nvme_cap_params.hpp"
#include "platform/nvme.hpp"
#include "tests/support/host_fixture.hpp"
#include "tests/support/rules_text.hpp"

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

class capping_test : public host_fixture {
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
    const struct {
        rule_pointer (*make)(const std::string& keys);
        const char* setting;
        floats x, y;
        float sum, candidate;
        int cap;
    } rows[] = {
        {made<cpu_percentage>, "PERCENTAGE=50", {1, 1}, {125.0f, 125.5f}, 250, 125, 125},
        {made<cpu_percentage>, "PERCENTAGE=100", {1, 0, -2, 0.1f, missing}, {9.9f, 50, 0.9f, 1.2f, 50}, 10, 10, 10},
        {made<cpu_percentage>, "PERCENTAGE=100", {1, 1, nan_value}, {50, missing, 20}, 70, 70, 70},
        {made<cpu_percentage>, "PERCENTAGE=100", {1, 1, 1}, {300, -500, 20}, 20, 20, 20},
        {made<cpu_percentage>, "PERCENTAGE=100", {1, 1}, {300, nan_value}, 0, 0, 0},
        {made<cpu_percentage>, "PERCENTAGE=1", {1, 1}, {infinity, 5}, 4294967296.0f, 42949672.96f, 65535},
        {made<cpu_percentage>, "PERCENTAGE=21", {1}, {600}, 600, 125.999992f, 125},
        {made<cpu_percentage>, "PERCENTAGE=29", {1}, {100}, 100, 29, 29},
        {made<cpu_percentage>, "PERCENTAGE=-5", {1}, {100}, 100, -5, 0},
        {made<cpu_percentage>, "PERCENTAGE=nan", {1}, {100}, 100, nan_value, 65535},
        {made<cpu_percentage>, "PERCENT=1", {1}, {100}, 100, 0, 0},
        {made<cpu_constant>, "PER_CPU_WATT=1.5", {1}, {}, 1, 1, 1},
        {made<cpu_constant>, "PER_CPU_WATT=1.5", {1, 0, 1, missing, -1}, {}, 3, 3, 3},
        {made<dimm>, "PER_DIMM_WATT=2.5", {1, 0, infinity, nan_value, missing}, {}, 3, 7.5f, 7},
        {made<dimm_constant>, "PER_DIMM_WATT=4.9", {-1, 1}, {}, 2, 9.8f, 9},
        {made<dimm_constant>, "PER_DIMM_WATT=4.9", {}, {}, 0, 0, 0},
        {made<system_percentage>, "PERCENTAGE=50", {100.9f, missing, 50.9f, 0}, {}, 150, 75, 75},
        {made<system_percentage>, "PERCENTAGE=100", {100, -200, 7}, {}, 7, 7, 7},
        {made<system_percentage>, "PERCENTAGE=100", {100, nan_value, 7.5f}, {}, 7, 7, 7},
    };
    for (const auto& r : rows) {
        const bool is_powered = !r.y.empty();
        const rule_pointer rule =
            r.make("PARAMETER_COUNT=1\n1.PARAMETER_R_MIN=-1000\n" +
                   record(1, is_powered ? "XY_COUNT" : "X_COUNT", r.x.size(), std::string(r.setting)));
        common_thermal_dao store;
        give(store, "x", r.x), give(store, "y", r.y);
        take_lines(0);
        const float result = polled(*rule, store);
        EXPECT_EQ(result, std::fmin(r.candidate, 65535.0f)) << rule->get_name() << ' ' << r.setting;
        const int cap = rule->supports(common_thermal_algorithm::action_capping_cpu)
                            ? rule->get_action_sensor_capping_cpu_value()
                        : rule->supports(common_thermal_algorithm::action_capping_dimm)
                            ? rule->get_action_sensor_capping_dimm_value()
                            : rule->get_action_sensor_capping_system_value();
        EXPECT_EQ(cap, r.cap) << rule->get_name() << ' ' << r.setting;
        const auto line = take_lines(0x4000).at(0);
        const int sum = static_cast<int>(saturate_to_unsigned(r.sum));
        EXPECT_NE(line.find("]=" + std::to_string(sum) + ","), std::string::npos) << line;
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
        {made<dimm>("PARAMETER_COUNT=-1\n"), 65535.0f},
        {made<dimm>("PARAMETER_COUNT=1\n1.PARAMETER_X_COUNT=-2\n"), 0.0f},
        {made<system_percentage>("PARAMETER_COUNT=1\n1.PARAMETER_X_COUNT=2147483647\n1.PARAMETER_R_MIN=5\n"), 5.0f},
        {made<cpu_constant>("PARAMETER_COUNT=1\n1.PARAMETER_R_MIN=70000\n"), 65535.0f},
        {made<system_constant>("PARAMETER_COUNT=0\n"), 65535.0f},
        {made<system_constant>("PARAMETER_COUNT=2\n1.PARAMETER_WATT=250.5\n"), 100.0f},
        {made<system_constant>("PARAMETER_COUNT=2\n1.PARAMETER_WATT=250.5\n2.PARAMETER_WATT=1e6\n"), 250.5f},
    };
    for (const auto& [other, result] : others) {
        EXPECT_EQ(polled(*other), result) << other->debugging();
    }
    cpu_constant unread(1);
    unread.set_parameter_size(1);
    polled(unread);
    EXPECT_EQ(unread.get_action_sensor_capping_cpu_value(), 100) << "the floor that a record starts with";
}

TEST_F(capping_test, memory_percentage_is_the_first_records_and_the_result_is_no_cap) {
    const std::string one = "PARAMETER_COUNT=1\n", percent = "1.PARAMETER_PERCENTAGE=";
    const std::pair<std::string, int> rows[] = {
        {"", 100},
        {one, 0},
        {one + percent + "80.9", 80},
        {one + percent + "-7", 0},
        {one + percent + "nan", 0},
        {one + percent + "150", 150},
        {"PARAMETER_COUNT=2\n2.PARAMETER_PERCENTAGE=60\n" + percent + "80", 80}};
    for (const auto& [keys, percentage] : rows) {
        const rule_pointer rule = made<dimm_percentage>(keys);
        EXPECT_EQ(rule->get_action_sensor_capping_dimm_value_percentage(), 65535);
        EXPECT_EQ(polled(*rule), 65535.0f);
        EXPECT_EQ(rule->get_action_sensor_capping_dimm_value(), 65535);
        EXPECT_EQ(rule->get_action_sensor_capping_dimm_value_percentage(), percentage) << keys;
    }
}

TEST_F(capping_test, text_and_log_lines_show_the_last_poll) {
    give(dao, "x", {1, 0});
    give(dao, "y", {150});
    const std::string name = "common_thermal_algorithm_sensor_capping_", zero = "0.000000", one = "1.000000";
    const auto parts = [&](const std::string& heading, const std::string& word, const std::string& end = "") {
        return heading + "1\nx_key=x.1" + end + word + one + heading + "2\nx_key=x.2" + end + word + zero;
    };
    const struct {
        rule_pointer rule;
        std::string text, lines;
    } rows[] = {
        {made<cpu_percentage>("PARAMETER_COUNT=1\n" + record(1, "XY_COUNT", 2, "PERCENTAGE=50")),
         "\nxy_index=1\nx_key=x.1\ny_key=y.1\nx(presence)=1.000000\ny(tdp)=150.000000"
         "\nxy_index=2\nx_key=x.2\ny_key=y.2\nx(presence)=0.000000\ny(tdp)=0.000000"
         "\npercentage=50.000000\ntdp_sum=150.000000\nr=75.000000\nr_min=0.000000\nr=sum(y)/sum(x)",
         "cpu_percentage::custom.R.result - [0.00, 75.00]=150, 0.50\n"},
        {made<cpu_constant>("PARAMETER_COUNT=1\n" + record(1, "X_COUNT", 2, "PER_CPU_WATT=90")),
         parts("\nxy_index=", "\nx(presence)=") +
             "\nper_cpu_watt=90.000000\ncpu_watt_sum=90.000000\nr=90.000000\nr_min=0.000000",
         "cpu_constant::custom.R.result - [0.00, 90.00]=90, 90.00\n"},
        {made<dimm>("PARAMETER_COUNT=1\n" + record(1, "X_COUNT", 2, "PER_DIMM_WATT=4.5")),
         parts("\nx_index=", "\nx(presence)=") +
             "\nper_dimm_watt=4.500000\nr=4.500000\nr_min=0.000000\nr=sum(x)*per_dimm_watt",
         "dimm::custom.R.result - [0.00, 4.50]=1, 4.50\n"},
        {made<dimm_percentage>("PARAMETER_COUNT=1\n" + record(1, "X_COUNT", 2, "PERCENTAGE=80")),
         parts("\nx_index=", "\nx(presence)=") +
             "\nper_dimm_max_watt= NA\npercentage=80.000000\nr=80.000000\nr_min=0.000000\nr=percentage",
         "dimm_percentage::custom.R.result - [0.00, 80.00]=1, 80.00\n"},
        {made<system_percentage>("PARAMETER_COUNT=1\n" + record(1, "X_COUNT", 2, "PERCENTAGE=80")),
         parts("\nx_index=", "\nx(sys_power)=") +
             "\npercentage=80.000000\nr=0.800000\nr_min=0.000000\nr=sum(x)*percentage",
         "system_percentage::custom.R.result - [0.00, 0.80]=1, 0.80\n"},
        {made<system_constant>("PARAMETER_COUNT=1\n1.PARAMETER_WATT=300\n"), "\nwatt=300.000000\nr=300.000000\nr=watt",
         "system_constant::custom.R.result - [300.00]=300.00\n"},
        {made<fan_percentage>("PARAMETER_COUNT=1\n"), "\npercentage=100.000000\nreassertion_deferment=120.000000",
         "fan_percentage::custom.R.result - [100.00][120.00]\n"},
        {made<gpu_percentage>("PARAMETER_COUNT=1\n"), "\npercentage=0.000000",
         "gpu_percentage::custom.R.result - 0.00\n"},
        {made<nvme_device>("PARAMETER_COUNT=1\n1.PARAMETER_X_PREFIX=y\n1.PARAMETER_X_INST=1\n"
                           "1.PARAMETER_HYSTERESIS=2\n"),
         "\nx_key=y.1\nminimal_power_threshold=0.000000\nmiddle_power_threshold=0.000000\nhysteresis=2.000000"
         "\nr=1\nr=capping level",
         "nvme_device::custom.R.result - [r 1, result 1.00]\n"},
    };
    for (const auto& [rule, text, line] : rows) {
        take_lines(0);
        polled(*rule);
        EXPECT_EQ(rule->debug(), "\nindex=1" + text);
        EXPECT_EQ(take_lines(0x4000), text_lines{name + line});
    }
}

TEST_F(capping_test, level_rules_hand_their_constant_to_permission_brake_and_limit) {
    const std::string slots = "PCI_MAP_COUNT=2\n1.PCI_LOCATION=1\n1.PCI_SLOT_NO=3\n2.PCI_LOCATION=1\n2.PCI_SLOT_NO=4\n";
    const auto permission = made<common_thermal_algorithm_sensor_capping_power_permission>("");
    EXPECT_NE(permission->get_debug_txt().find("=1.000000\n"), std::string::npos);
    EXPECT_EQ(permission->get_action_sensor_capping_power_permission_value(), 1);
    EXPECT_EQ(polled(*permission), 0.0f);
    EXPECT_EQ(permission->get_action_sensor_capping_power_permission_value(), 0);
    const auto brake = made<common_thermal_algorithm_sensor_capping_pciegen_pwrbrk>(slots);
    EXPECT_FALSE(brake->get_action_pciegen_pwrbrk_by_location_slot_no(1, 4));
    EXPECT_EQ(polled(*brake), 1.0f);
    EXPECT_TRUE(brake->get_action_pciegen_pwrbrk_by_location_slot_no(1, 3) &&
                brake->get_action_pciegen_pwrbrk_by_location_slot_no(1, 4));
    const std::tuple<const char*, float, int> limits[] = {
        {"", 100, 100},
        {"PARAMETER_COUNT=2\n1.PARAMETER_PERCENTAGE=80\n2.PARAMETER_PERCENTAGE=50.7\n", 50.7f, 50},
        {"PARAMETER_COUNT=2\n1.PARAMETER_PERCENTAGE=80\n", 0, 0},
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
    const struct {
        std::string keys;
        float first, back;
        std::vector<std::pair<int, float>> later;
    } rows[] = {
        {"", 100, 100, {{0, 100}}},
        {lead + deferments("0", "0"), 60, 60, {{0, 60}}},
        {lead + deferments("10", "10"), 60, 100, {{0, 100}, {10, 100}, {1, 60}, {0, 60}}},
        {lead + deferments("300", "300"), 60, 100, {{44, 100}, {1, 60}}},
        {lead + deferments("256", "256"), 60, 100, {{0, 100}, {1, 60}}},
        {lead + deferments("-4", "0.9"), 60, 100, {{0, 100}, {1, 60}}},
        {lead + deferments("100", "5"), 60, 100, {{5, 100}, {1, 60}}},
        {lead + deferments("20", "0"), 60, 80, {{0, 100}, {20, 100}, {1, 60}}},
        {lead, 60, 100, {{120, 100}, {1, 60}}},
        {"PARAMETER_COUNT=1\n1.PARAMETER_PERCENTAGE=130\n", 100, 100, {{121, 100}}},
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
    EXPECT_EQ(take_lines(0x2000),
              text_lines(2,
                         "common_thermal_algorithm_sensor_capping_fan_percentage::custom.R.result Reassertion "
                         "Started\n"));
    rule->set_first_assertion(false);
    passes({{0, true, 60}, {0, true, 100}, {2, true, 60}});
    passes({{0, false, 0}});
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
        {70.0f, 60.0f, 0.0f, {{70, 1}, {69.9f, 2}, {60, 2}, {59.9f, 3}, {70, 1}, {59.9f, 3}}},
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
    EXPECT_NE(rule.debug().find("\nr=2\nr=capping level\nindex=2"), std::string::npos) << rule.debug();
    EXPECT_NE(rule.debug().rfind("\nr=0\nr=capping level"), std::string::npos) << "no number, no level";
}

TEST_F(capping_test, drive_parameters_are_cut_to_the_firmwares_widths_and_shown_with_what_it_holds) {
    const std::string key = "\n1.PARAMETER_NVME_PWR_CAP_";
    rules_text text("[1]\nPARAMETER_COUNT=3" + key + "MARGIN1=300.9" + key + "MARGIN2=-1\n[2]\nPARAMETER_COUNT=1" +
                    key + "MARGIN_LOWER=7" + key + "MARGIN_UPPER=1e20" + key + "TIMER_LOWER=65537" + key +
                    "TIMER_UPPER=nan\n");
    nvme_params one(4);
    nvme_params_v2 two(7);
    one.parse_parameters(&text, "1"), two.parse_parameters(&text, "2");
    nvme_params::open_place(), nvme_params_v2::open_place();
    one.polling(&dao, 0), two.polling(&dao, 0);
    int instance = 0;
    std::uint8_t a = 1, b = 2, c = 3;
    std::uint16_t lower = 5, upper = 5;
    EXPECT_TRUE(nvme_params::get_effective_params(instance, a, b, c));
    EXPECT_EQ(std::tuple(instance, a, b, c), std::tuple(4, 44, 0, 0));
    nvme_params::apply_nvme_params(a, 8, 9);
    nvme_params::apply_nvme_params(a, 8, c);
    EXPECT_EQ(one.debug().find("\nindex=1\nnvme_pwr_cap_margin1=300.899994\nnvme_pwr_cap_margin2=-1.000000"
                               "\nnvme_pwr_cap_hysteresis=0.000000\neffective=1\neffective instance=4"
                               "\ncap_property_creation=1\ncap_property_status=1\nsep params=[44,8,0]\nindex=2"),
              0u)
        << one.debug();
    EXPECT_TRUE(nvme_params_v2::get_effective_params(instance, a, b, lower, upper));
    EXPECT_EQ(std::tuple(instance, a, b, lower, upper), std::tuple(7, 7, 255, 1, 0));
    host.properties.find("/ac/zorm/agentless/nvme_pwr_cap")->set(std::uint8_t{7}, property_flags, property_notify);
    nvme_params_v2::apply_nvme_params(a, b, 513, upper);
    EXPECT_NE(two.debug().find("=-1\ncap_property_status=7\nsep params=[7,255,513,0]"), std::string::npos);
    nvme_params::forget_everything();
    EXPECT_FALSE(nvme_params::get_effective_params(instance, a, b, c));
    EXPECT_NE(one.debug().find("instance=-1\ncap_property_creation=-1\ncap_property_status=-1\n"), std::string::npos);
    const thermal_host::platform next({.virtual_time = true});
    EXPECT_NE(two.debug().find("[0,0,0,0]"), std::string::npos) << "a new host knows nothing";
}

}  // namespace
