#include "algorithm/capping/level_capping.hpp"
#include "algorithm/capping/nvme_device.hpp"
#include "algorithm/capping/sensor_capping.hpp"
#include "algorithm/config/nvme_cap_params.hpp"
#include "platform/nvme.hpp"
#include "tests/orchestration/orchestration_fixture.hpp"
#include "tests/support/rules_text.hpp"

namespace {

using values = std::vector<int>;
using firmware = sep_comm_logical_device;
using nvme_params = common_thermal_algorithm_config_nvme_cap_params;
using nvme_params_v2 = common_thermal_algorithm_config_nvme_cap_params_v2;

// Rules of a rule file, each holding while "on.<its instance>" is 1.
class capping_cycle_test : public manager_test {
protected:
    template <class Rule>
    std::unique_ptr<Rule> made(int instance, const std::string& keys) {
        auto rule = std::make_unique<Rule>(instance);
        rules_text text("[R]\nNAME=" + std::to_string(instance) + "\n" + keys);
        rule->parse_result_name(&text, "R");
        rule->parse_parameters(&text, "R");
        rule->parse_action(&text, "R");
        rule->add_condition(1, "on", instance, utils::OP_EQ, 1.0f);
        return rule;
    }
    // These rules hold from now on and no other.
    void hold(const values& holding) {
        for (int instance = 1; instance <= 8; ++instance) {
            dao.update_dev("on", instance, std::ranges::count(holding, instance) != 0 ? 1.0f : 0.0f, false);
        }
    }
    void run_with(const values& holding) { hold(holding), finish_cycle(); }
    values words(QSignal signal, int receiver, int code) {
        values found;
        for (const auto& each : sent(signal)) {
            EXPECT_EQ(each.receiver, receiver);
            EXPECT_EQ(each.event.data_byte0 | each.event.data_byte1 << 8, code);
            found.push_back(each.event.data_word);
        }
        return found;
    }
};

TEST_F(capping_cycle_test, the_processors_of_the_board_decide_which_memory_and_system_caps_go_out) {
    const auto whole = made<common_thermal_algorithm_sensor_capping_system_constant>(1, "PARAMETER_COUNT=1\n");
    const auto modules =
        made<common_thermal_algorithm_sensor_capping_dimm>(2, "PARAMETER_COUNT=1\n1.PARAMETER_R_MIN=40\n");
    const auto share = made<common_thermal_algorithm_sensor_capping_dimm_percentage>(
        3, "PARAMETER_COUNT=1\n1.PARAMETER_PERCENTAGE=30\n");
    counting_device first(utils::tdev_cpu_channel), second(utils::tdev_cpu_channel);
    counting_device intel(utils::tdev_cpu_agent_intel), amd(utils::tdev_cpu_agent_amd);
    // Agents of the second channel, whether they go together, code and word of what is sent as caps come and go.
    using requests = std::vector<std::pair<int, int>>;
    const std::tuple<std::vector<common_thermal_device*>, bool, requests, requests> boards[] = {
        {{}, true, {}, {}},
        {{&intel}, true, {{0x3102, 40}, {0x1102, 100}}, {{0x3102, 65535}, {0x1102, 65535}}},
        {{&intel, &amd}, false, {}, {}},
    };
    start({&first, &second}, {whole.get(), modules.get(), share.get()});
    for (const auto& [agents, agree, coming, going] : boards) {
        for (common_thermal_device* agent : agents) second.add_depend(agent);
        EXPECT_EQ(manager.chk_platform_cpu_type_number(), agree);
        EXPECT_EQ(lines_with("common_thermal_manager:: Both CPU types are available!?\n"), agree ? 0 : 1);
        for (const auto& [holding, expected] : {std::pair{values{1, 2, 3}, coming}, {values{}, going}}) {
            run_with(holding);
            requests got;
            for (const auto& each : sent(191)) {
                got.emplace_back(each.event.data_byte0 | each.event.data_byte1 << 8, each.event.data_word);
            }
            EXPECT_EQ(got, expected);
        }
    }
}

TEST_F(capping_cycle_test, amd_processors_hear_what_to_leave_out_of_the_memory) {
    const auto share = made<common_thermal_algorithm_sensor_capping_dimm_percentage>(
        1, "PARAMETER_COUNT=1\n1.PARAMETER_PERCENTAGE=30\n");
    const auto no_limit = made<common_thermal_algorithm_sensor_capping_dimm_percentage>(
        2, "PARAMETER_COUNT=1\n1.PARAMETER_PERCENTAGE=150\n");
    counting_device channel(utils::tdev_cpu_channel), amd(utils::tdev_cpu_agent_amd);
    channel.add_depend(&amd);
    start({&channel}, {share.get(), no_limit.get()});
    const std::pair<values, values> cycles[] = {{{1}, {70}}, {{1, 2}, {}}, {{2}, {0}}, {{}, {0}}, {{1}, {70}}};
    for (const auto& [holding, expected] : cycles) {
        run_with(holding);
        EXPECT_EQ(words(191, 4, 0x3502), expected);
    }
}

TEST_F(capping_cycle_test, the_drives_are_told_their_level_once_and_the_tightest_one_when_the_rule_lets_go) {
    const std::string keys =
        "PARAMETER_COUNT=1\n1.PARAMETER_X_PREFIX=t\n1.PARAMETER_MINIMAL_POWER_THRESHOLD=70\n"
        "1.PARAMETER_MIDDLE_POWER_THRESHOLD=60\n1.PARAMETER_HYSTERESIS=5\n";
    const auto one = made<common_thermal_algorithm_sensor_capping_nvme_device>(1, keys);
    const auto two = made<common_thermal_algorithm_sensor_capping_nvme_device>(2, keys + "1.PARAMETER_X_INST=1\n");
    start({}, {one.get(), two.get()});
    const std::tuple<values, float, float, values> cycles[] = {
        {{}, 80, 80, {}},     {{1, 2}, 50, 50, {0}}, {{1, 2}, 50, 65, {1}}, {{1, 2}, 80, 65, {2}},
        {{1, 2}, 66, 50, {}}, {{2}, 80, 50, {0}},    {{2}, 80, 50, {}},     {{1, 2}, 66, 50, {2}},
        {{2}, 66, 50, {0}},   {{}, 50, 50, {2}},     {{}, 50, 50, {}},      {{1}, 50, 50, {0}}};
    for (const auto& [holding, first, second, expected] : cycles) {
        dao.update_dev("t", 0, first, false);
        dao.update_dev("t", 1, second, false);
        run_with(holding);
        EXPECT_EQ(words(317, 5, 0), expected) << first << ", " << second;
    }
}

TEST_F(capping_cycle_test, drive_parameters_go_out_when_both_rule_and_values_are_new) {
    const std::string lead = "PARAMETER_COUNT=1\n1.PARAMETER_NVME_PWR_CAP_", margin = lead + "MARGIN";
    const auto first = made<nvme_params>(1, margin + "1=10\n"), second = made<nvme_params>(2, margin + "1=10\n"),
               third = made<nvme_params>(3, lead + "HYSTERESIS=5\n"), empty = made<nvme_params>(4, "");
    const auto lower = made<nvme_params_v2>(5, margin + "_LOWER=7\n"),
               timer = made<nvme_params_v2>(6, lead + "TIMER_UPPER=65538\n"),
               zero = made<nvme_params_v2>(7, "PARAMETER_COUNT=1\n");
    start({}, {empty.get(), first.get(), second.get(), third.get(), zero.get(), lower.get(), timer.get()});
    const auto shown_params = [] {
        return values{firmware::NVME_PWR_CAP_MARGIN1, firmware::NVME_PWR_CAP_HYSTERESIS,
                      firmware::NVME_PWR_CAP_MARGIN_LOWER, firmware::NVME_PWR_CAP_TIMER_UPPER,
                      firmware::NVME_PWR_CAP_ALG_VER};
    };
    // What holds, the first margin of rules 1 and 2, what the firmware has then, and whether that is news.
    const std::tuple<values, float, float, values, bool> cycles[] = {
        {{1}, 10, 10, {0, 0, 0, 0, 0}, false},     // the place opens with the end of this cycle
        {{1, 4}, 10, 10, {10, 0, 0, 0, 0}, true},  // a rule without records takes no place
        {{1}, 10, 10, {10, 0, 0, 0, 0}, false},
        {{1}, 20, 10, {10, 0, 0, 0, 0}, false},  // other values of the same rule
        {{2}, 20, 10, {10, 0, 0, 0, 0}, false},  // the same values of another rule, which is not remembered
        {{1, 2, 3}, 20, 30, {10, 0, 0, 0, 0}, false},
        {{2, 3}, 20, 30, {30, 0, 0, 0, 0}, true},
        {{1, 3}, 20, 30, {20, 0, 0, 0, 0}, true},
        {{}, 20, 30, {20, 0, 0, 0, 0}, false},
        {{1, 3, 5, 6}, 20, 30, {20, 0, 7, 0, 2}, true},
        {{3, 5, 6}, 20, 30, {20, 0, 7, 0, 2}, false},  // nothing new, and still ahead of the first generation
        {{3}, 20, 30, {0, 5, 7, 0, 2}, true},
        {{6}, 20, 30, {0, 5, 0, 2, 2}, true},
        {{7}, 20, 30, {0, 5, 0, 0, 2}, true}};
    for (const auto& [holding, of_first, of_second, expected, is_news] : cycles) {
        first->set_parameter_cap_margin1(1, of_first);
        second->set_parameter_cap_margin1(1, of_second);
        host.log.captured().clear();
        run_with(holding);
        EXPECT_EQ(shown_params(), expected);
        EXPECT_EQ(lines_with("apply_capping_value ["), 7 + (is_news ? 1 : 0)) << holding.size();
    }
    EXPECT_EQ(lines_with("common_thermal_manager::apply_capping_value [7][0, 0, 0, 0]\n"), 1);
    EXPECT_EQ(host.properties.find("/ac/zorm/agentless/nvme_pwr_cap")->get_byte(), 1);
}

}  // namespace
