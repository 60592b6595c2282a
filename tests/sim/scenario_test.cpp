#include <gmock/gmock.h>

#include <sys/wait.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include "bench/allocation_counter.hpp"
#include "sim/rule_check.hpp"
#include "tests/sim/machine.hpp"

// Whole cycles on the simulated server, with the rules that are bundled with it.
namespace {

using namespace sim;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

std::string rule(unsigned number, const std::string& name, unsigned duty, const std::string& ki = "100") {
    const std::string device = "PREFIX=common_thermal_device_";
    return "[" + std::to_string(number) + ".ALGORITHM]\nTYPE=common_thermal_algorithm_pid\nNAME=" + name +
           "\nPARAMETER_COUNT=1\n1.PARAMETER_X_" + device + "dummy.dummy\n1.PARAMETER_X_INST=1\n1.PARAMETER_Y_" +
           device +
           "fan.pwm\n1.PARAMETER_Y_INST=1\n1.PARAMETER_X_TARGET_HI=-1\n1.PARAMETER_X_TARGET_LO=-1\n1.PARAMETER_X_KI=" +
           ki + "\n1.PARAMETER_R_MAX=" + std::to_string(duty) +
           "\nFAN_MAP_COUNT=1\n1.FAN_MAP=" + std::to_string(number) + "\n";
}

TEST(cold_start, polls_nothing_at_first_and_then_runs_cycles_of_106_ticks) {
    machine m;
    m.server.run_for(0.25);  // rules loaded at once, devices and rules dealt to slots 130 ms later
    EXPECT_EQ(m.server.scheduler().get_thermal_algorithm_size(), 72u);
    EXPECT_EQ(m.server.store().key_count(), 10u) << "the limits that an operator may set for its slots";
    const double second = m.time_of_cycle(2);
    EXPECT_NEAR(m.time_of_cycle(102) - second, 100 * cycle_s, 0.001);
}

TEST(cold_start, has_every_fan_driven_by_the_third_cycle_and_follows_the_boot_stages) {
    machine m;
    EXPECT_EQ(m.server.winner(1), "-");
    m.time_of_cycle(3);
    for (unsigned fan = 1; fan <= server_fans; ++fan) {
        EXPECT_EQ(m.server.winner(fan), "BOOT") << fan;
        EXPECT_NEAR(m.server.physics().duty(fan), 40.0, 0.3) << fan;
    }
    EXPECT_EQ(m.stored("pch_presence.presence"), 0.0f);
    m.server.run_until(60.0);
    for (const char* stage : {"ipmi_ready", "post_init", "post_completed", "power_good", "dp_ready"}) {
        EXPECT_EQ(m.stored(std::string("event_status.") + stage), 1.0f) << stage;
    }
    EXPECT_EQ(m.stored("pch_presence.presence"), 1.0f);
    EXPECT_EQ(m.stored("nvidia_ubb_presence.presence"), 1.0f);
    EXPECT_EQ(m.server.winner(1), "FLOOR");
    m.server.run_until(90.0);
    EXPECT_NEAR(m.stored("fan.tach"), m.server.physics().rpm(1), 1.0);
}

TEST(bundled_half_hour, holds_every_limit_without_hunting) {
    for (const unsigned seed : {0u, 1u, 7u}) {
        machine m(load_profile::from(csv_table::parse(bundled_profile, "bundled"), socket_server()), seed);
        const verdict result = m.judged(1800.0);
        EXPECT_TRUE(result.limits_held()) << "seed " << seed;
        EXPECT_GT(result.part("adapter").highest_c, 75.0) << "the load reaches the regulators";
        for (unsigned fan = 1; fan <= server_fans; ++fan) {
            EXPECT_LT(result.fan(fan).reversals_a_minute, 2.0) << "fan " << fan << ", seed " << seed;
        }
    }
}

TEST(load_step, settles_inside_the_band_of_the_rule_that_won) {
    machine m;
    m.server.run_until(120.0);
    m.server.physics().set_load(100.0);
    const verdict result = m.judged(600.0);
    EXPECT_TRUE(result.limits_held());
    EXPECT_THAT(m.server.winner(1), testing::AnyOf("ACCELERATOR", "ADAPTER"));
    EXPECT_NEAR(m.server.physics().temperature(m.part("gpu4")), 85.0, 3.0);
    EXPECT_LT(result.part("gpu").overshoot_c, 8.0);
    // The supply hears of its fan by event only.
    EXPECT_EQ(m.server.physics().duty(first_psu_fan), m.server.claim(first_psu_fan).duty);
}

TEST(lost_sensor, leaves_a_defined_value_and_a_safe_duty_until_it_is_back) {
    const struct {
        const char* part;
        const char* key;
        float value;
        unsigned fan;
        const char* winner;
        double duty;
    } rows[] = {
        {"adapter", "generic_temperature.temperature", 255.0f, 1, "ADAPTER_LOST", 85.0},
        {"switch", "nvswitch_temperature.temperature", 0.0f, 1, "SWITCH_LOST", 80.0},
        {"pch", "pch_temperature.temperature", 0.0f, 1, "PCH_LOST", 60.0},
        {"retimer", "retimer_temp.temperature", 0.0f, 1, "RETIMER_LOST", 60.0},
        {"cpu_vr1", "cpuvr.temperature", 255.0f, 1, "CPU_VR", 80.0},
        {"cpu1", "cpu_power.average_power", 0.0f, 1, "CPU_LOST", 80.0},
        {"nvme", "nvme_temperature.temperature", 255.0f, 1, "NVME_LOST", 70.0},
        {"m2_1", "m2_drive_temperature.temperature", 255.0f, storage_fan, "M2_1_LOST", 60.0},
        {"ambient", "ambient.temperature", 255.0f, 7, "WARM_INLET", 35.0},
        {"power_vr", "powervr.temperature", 255.0f, first_psu_fan, "POWER_VR", 100.0},
        {"psu_inlet1", "psu_inlet.inlet", 0.0f, first_psu_fan, "PSU_1_INLET_LOST", 60.0},
        {"raid", "raidcard_temp.temperature", 0.0f, storage_fan, "RAID_LOST", 60.0},
        {"battery", "raidcard_battery.temperature", 0.0f, storage_fan, "BATTERY_LOST", 60.0},
    };
    machine m;
    const auto set_sensors = [&m](const char* name, bool works) {
        for (const std::size_t part : m.server.plan().find(name)) {
            m.server.physics().set_sensor(part, works);
        }
    };
    m.server.run_until(100.0);
    for (const auto& row : rows) {
        set_sensors(row.part, false);
        m.server.run_for(4 * cycle_s);
        EXPECT_EQ(m.stored(row.key), row.value) << row.part;
        EXPECT_EQ(m.server.winner(row.fan), row.winner) << row.part;
        EXPECT_NEAR(m.server.physics().duty(row.fan), row.duty, 0.3) << row.part;
        set_sensors(row.part, true);
        m.server.run_for(60.0);
        EXPECT_EQ(m.server.winner(row.fan), "FLOOR") << row.part;
    }
    EXPECT_EQ(m.stored("generic_temperature.port_type"), 1.0f);
}

TEST(stalled_fan, makes_the_others_take_over_and_hold_full_load) {
    machine m;
    m.server.run_until(100.0);
    const double before = m.server.physics().duty(1);
    m.server.physics().set_fan(3, false);
    m.server.run_for(20.0);
    EXPECT_EQ(m.stored("fan.tach", 3), 0.0f);
    EXPECT_EQ(m.server.winner(1), "FAN_3_FAILED");
    EXPECT_GT(m.server.physics().duty(1), before + 50.0);
    m.server.physics().set_load(100.0);
    EXPECT_TRUE(m.judged(600.0).limits_held());
    m.server.physics().set_load(0.0);
    m.server.physics().set_fan(3, true);
    m.server.run_for(180.0);
    EXPECT_EQ(m.server.winner(1), "FLOOR");
}

TEST(rule_reload, takes_effect_within_two_cycles_of_a_running_machine) {
    machine m;
    m.server.run_until(100.0);
    m.rules.write("[SUMMARY]\nALGORITHM_COUNT=2\n" + rule(1, "FIRST", 33) + rule(2, "SECOND", 44));
    m.server.reload_rules();
    const unsigned before = m.server.cycles();
    m.time_of_cycle(before + 2);
    EXPECT_EQ(m.server.scheduler().get_thermal_algorithm_size(), 2u);
    EXPECT_EQ(m.server.winner(1), "FIRST");
    EXPECT_EQ(m.server.claim(2), (simulated_server::fan_claim{true, 2, 44}));
    m.server.run_for(2 * cycle_s);
    EXPECT_NEAR(m.server.physics().duty(2), 44.0, 0.3);
    // Nobody asks for these any more: they keep what they had, and the supply is told 0.
    EXPECT_EQ(m.server.winner(3), "-");
    EXPECT_NEAR(m.server.physics().duty(3), 20.0, 0.3);
    EXPECT_EQ(m.server.physics().duty(first_psu_fan), 0.0);
}

TEST(broken_reload, keeps_the_rules_so_far_and_says_once_where_it_stopped) {
    machine m;
    m.server.run_until(100.0);
    m.rules.write("[SUMMARY]\nALGORITHM_COUNT=3\n" + rule(1, "FIRST", 33) + rule(2, "SECOND", 44, "fast") +
                  rule(3, "THIRD", 55));
    m.server.host().log.captured().set_capacity(100);
    m.server.reload_rules();
    const unsigned before = m.server.cycles();
    m.server.run_for(20 * cycle_s);
    EXPECT_GE(m.server.cycles(), before + 19);
    EXPECT_EQ(m.server.scheduler().get_thermal_algorithm_size(), 1u);
    EXPECT_EQ(m.server.winner(1), "FIRST");
    EXPECT_EQ(m.server.winner(3), "-");
    std::vector<std::string> errors;
    for (const auto& line : m.server.host().log.captured().entries()) {
        if (line.level == thermal_host::log_level::error) {
            errors.push_back(line.text);
        }
    }
    ASSERT_EQ(errors.size(), 1u);
    EXPECT_THAT(errors[0], AllOf(HasSubstr("2.ALGORITHM"), HasSubstr("stof")));

    const rule_check check = check_rules(m.rules.path());
    EXPECT_THAT(check.error, AllOf(HasSubstr(":17: [2.ALGORITHM]"), HasSubstr("stof")));

    m.rules.write("[SUMMARY]\nALGORITHM_COUNT=1\n" + rule(1, "ONE", 33) + "1.PARAMETER_X_TARGET_HIGH=5\nFAN_MAP=1\n" +
                  "3.FAN_MAP=1\n12.PARAMETER_X_KP.2=1\n[other]\nanything=1\n");
    const std::vector<std::string> warnings = check_rules(m.rules.path()).warnings;
    ASSERT_EQ(warnings.size(), 3u);
    EXPECT_THAT(warnings[0],
                HasSubstr("[1.ALGORITHM] common_thermal_algorithm_pid reads no 1.PARAMETER_X_TARGET_HIGH"));
    EXPECT_THAT(warnings[1], HasSubstr("reads no FAN_MAP"));
    EXPECT_THAT(warnings[2], HasSubstr("reads no 12.PARAMETER_X_KP.2"));

    m.rules.write(bundled_rules);
    m.server.reload_rules();
    m.server.run_for(4 * cycle_s);
    EXPECT_EQ(m.server.winner(3), "FLOOR");
}

TEST(steady_load, runs_for_an_hour_without_a_single_allocation) {
    machine m;
    m.server.physics().set_load(60.0);
    m.server.run_until(900.0);
    const unsigned before = m.server.cycles();
    const allocation_counter allocations;
    m.server.run_for(3600.0);
    EXPECT_EQ(allocations.calls(), 0u);
    EXPECT_NEAR(m.server.cycles() - before, 3600.0 / cycle_s, 1.0);
}

TEST(trace, drives_one_part_at_its_own_times) {
    load_profile profile;
    const auto table = csv_table::parse("timestamp,watts\n08:00:00,30\n08:00:50,180\n", "trace");
    profile.add_trace(table, "watts", socket_server().find("adapter"));
    machine m(profile);
    m.server.run_until(49.0);
    const double before = m.server.physics().power();
    m.server.run_until(51.0);
    EXPECT_NEAR(m.server.physics().power() - before, 150.0, 0.1);
}

#ifdef THERMAL_SIM_TOOL

// Runs thermal-sim in the root directory; returns its exit code and all that it wrote.
std::pair<int, std::string> run_tool(const std::string& options) {
    const temporary_file output("");
    const int status =
        std::system(("cd / && " THERMAL_SIM_TOOL " " + options + " >" + output.path() + " 2>&1").c_str());
    std::stringstream text;
    text << std::ifstream(output.path()).rdbuf();
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, text.str()};
}

TEST(thermal_sim, tells_by_its_exit_code_whether_the_limits_held) {
    const auto [held, table] = run_tool("--duration 300");
    EXPECT_EQ(held, 0);
    EXPECT_THAT(table, AllOf(HasSubstr("04:00 --- processor load 100 %"), HasSubstr("fans 1-6 FLOOR.1 20% 3600 rpm"),
                             HasSubstr("Every limit held.")));
    const temporary_file recorded("time,watts\n08:00:00.1,30\n08:00:20.43,200\n");
    EXPECT_EQ(run_tool("--every 7 --trace " + recorded.path() + " --column adapter=watts").first, 0);
    const temporary_file furnace("time_s,inlet_c,adapter_w\n0,60,200\n");
    const auto [exceeded, verdict] = run_tool("--quiet --duration 300 --profile " + furnace.path());
    EXPECT_EQ(exceeded, 1);
    EXPECT_THAT(verdict, AllOf(HasSubstr("OVER ITS LIMIT"), Not(HasSubstr("load   "))));
}

TEST(thermal_sim, exits_with_2_and_names_what_is_wrong) {
    const temporary_file profile("time_s,load_percent\n0,0\n60,lots\n");
    const temporary_file range("time_s,load_percent\n# twice\n0,200\n");
    const temporary_file column("time_s,speed\n0,0\n");
    const temporary_file binary(std::string_view("\0\1\2\xFF", 4));
    const temporary_file number("[SUMMARY]\nALGORITHM_COUNT=1\n" + rule(1, "ONE", 33, "fast"));
    const std::pair<std::string, std::string> rows[] = {
        {"--no-such-option", "--no-such-option"},
        {"--duration never", "--duration"},
        {"--log-mask 0xZ", "--log-mask: '0xZ'"},
        {"--column adapter=x", "--trace and --column"},
        {"--profile /nowhere.csv", "/nowhere.csv:0: cannot be read"},
        {"--profile " + profile.path(), profile.path() + ":3: column 'load_percent': 'lots'"},
        {"--profile " + range.path(), range.path() + ":3: column 'load_percent': 200"},
        {"--profile " + column.path(), column.path() + ":0: column 'speed'"},
        {"--profile " + binary.path(), binary.path() + ":1: "},
        {"--rules /nowhere.ini", "/nowhere.ini:0: cannot be read"},
        {"--rules " + binary.path(), binary.path() + ":0: no rules"},
        {"--rules " + number.path(), number.path() + ":3: [1.ALGORITHM]"},
        {"--rules /tmp", "/tmp:0: cannot be read"},
        {"--csv /nowhere/x.csv", "/nowhere/x.csv:0: cannot be written"},
    };
    for (const auto& [options, message] : rows) {
        const auto [code, text] = run_tool(options);
        EXPECT_EQ(code, 2) << options;
        EXPECT_THAT(text, HasSubstr(message)) << options;
    }
}

TEST(thermal_sim, shows_caps_alarms_and_sensors_while_there_are_any) {
    const std::string policy = " --rules " THERMAL_SOURCE_DIR "/examples/rules/full_policy.ini";
    const auto [held, text] = run_tool("--sensors" + policy);
    EXPECT_EQ(held, 0);
    for (const char* part : {"caps: fans at most 60 %\n", "caps: processors 425 W\n", "sensors: fan 3 critical 0 rpm\n",
                             "critical        for 6", "25 sensors always ok, 0 without a reading",
                             "13   fan 3                   0 rpm   critical"}) {
        EXPECT_THAT(text, HasSubstr(part));
    }
    const auto [code, csv] = run_tool("--csv - --duration 100 --every 100" + policy);
    EXPECT_EQ(code, 0);
    EXPECT_THAT(csv,
                AllOf(HasSubstr(",cap_fans_percent,cap_host_power_w,worst_sensor_state\n"), HasSubstr(",60,,ok\n")));
}

TEST(thermal_sim, fails_a_run_that_withdraws_host_power) {
    const temporary_file rules(rule(1, "COLD", 33) + "[SUMMARY]\nALGORITHM_COUNT=2\n[2.ALGORITHM]\nNAME=OFF\n" +
                               "TYPE=common_thermal_algorithm_sensor_capping_power_permission\n");
    const auto [code, text] = run_tool("--duration 90 --rules " + rules.path());
    EXPECT_EQ(code, 1);
    EXPECT_THAT(text, AllOf(HasSubstr("caps: HOST POWER WITHDRAWN\n"), HasSubstr("Every limit held. HOST POWER WAS")));
}

#endif

}  // namespace
