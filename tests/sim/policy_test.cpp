#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "algorithm/common_thermal_algorithm_parser.hpp"
#include "bench/allocation_counter.hpp"
#include "sim/rule_check.hpp"
#include "tests/sim/machine.hpp"

// The example rule files on the simulated server.
namespace {

using namespace sim;

const std::filesystem::path rules_folder = THERMAL_SOURCE_DIR "/examples/rules";

struct policy : testing::Test {
    std::string text = content_of(rules_folder / "full_policy.ini");
    machine m{{}, 0, text};

    std::optional<unsigned> cap(cap_kind kind) const { return m.server.caps().of(kind).value; }
};

TEST(example_rule_files, load_in_full_and_hold_every_limit_over_the_bundled_half_hour) {
    unsigned files = 0;
    for (const auto& entry : std::filesystem::directory_iterator(rules_folder)) {
        const rule_check check = check_rules(entry.path().string());
        EXPECT_EQ(check.error, "") << entry.path();
        EXPECT_THAT(check.warnings, testing::IsEmpty()) << entry.path();
        machine m(load_profile::from(csv_table::parse(bundled_profile, "bundled"), socket_server()), 0,
                  content_of(entry.path()));
        const verdict result = m.judged(1800.0);
        EXPECT_TRUE(result.passed()) << entry.path();
        EXPECT_EQ(m.server.scheduler().get_thermal_algorithm_size(), check.rules) << entry.path();
        ++files;
    }
    EXPECT_GE(files, 12u);
}

TEST_F(policy, has_a_rule_of_every_type) {
    for (const std::string_view type : common_thermal_algorithm_parser::types()) {
        EXPECT_THAT(text, testing::HasSubstr("\nTYPE=" + std::string(type) + "\n"));
    }
}

TEST_F(policy, runs_an_hour_of_steady_load_without_a_single_allocation) {
    m.server.physics().set_load(60.0);
    m.server.run_until(900.0);
    const allocation_counter allocations;
    m.server.run_for(3600.0);
    EXPECT_EQ(allocations.calls(), 0u);
}

TEST_F(policy, caps_what_gets_warm_in_a_load_step_and_releases_it_afterwards) {
    m.server.run_until(120.0);
    EXPECT_EQ(cap(cap_kind::fans), 60u);
    m.server.physics().set_inlet(36.0);
    m.server.physics().set_load(100.0);
    for (const std::size_t drive : m.server.plan().find("nvme")) {
        m.server.physics().set_power(drive, 21.0);
    }
    m.server.run_for(400.0);
    EXPECT_EQ(cap(cap_kind::processors), 425u) << "85 % of both processors' TDP";
    EXPECT_LE(m.server.physics().power(m.part("cpu1")) + m.server.physics().power(m.part("cpu2")), 425.01);
    EXPECT_GE(cap(cap_kind::drives), 1u);
    EXPECT_EQ(cap(cap_kind::fans), std::nullopt) << "warm air ends the quiet";
    m.server.physics().set_fan(3, false);
    m.server.physics().set_inlet(25.0);
    m.server.physics().set_load(0.0);
    for (const std::size_t drive : m.server.plan().find("nvme")) {
        m.server.physics().set_power(drive, 4.0);
    }
    m.server.run_for(200.0);
    EXPECT_EQ(cap(cap_kind::processors), 450u) << "the failed fan's cap is left";
    EXPECT_EQ(cap(cap_kind::drives), std::nullopt);
    m.server.physics().set_fan(3, true);
    m.server.run_for(30.0);
    EXPECT_EQ(cap(cap_kind::processors), std::nullopt);
    EXPECT_EQ(cap(cap_kind::fans), std::nullopt) << "a cap that comes back waits";
    m.server.run_for(120.0);
    EXPECT_EQ(cap(cap_kind::fans), 60u);
    EXPECT_EQ(cap(cap_kind::host_power), std::nullopt);
}

// What the firmware does about caps, whoever asks for them; the bundled rules ask for none.
TEST(caps, are_obeyed_down_to_idle_power) {
    machine m;
    const auto request = [&m](std::uint16_t code, std::uint16_t watts) {
        auto* event = static_cast<bmc_event*>(QF::new_(sizeof(bmc_event), 191));
        event->data_word = watts;
        event->data_byte0 = static_cast<std::uint8_t>(code & 0xFFu);
        event->data_byte1 = static_cast<std::uint8_t>(code >> 8);
        EM::postFIFO(power_capping_controller, event);
        m.server.run_for(1.0);
    };
    const auto drawn_by = [&m](const char* name) {
        double watts = 0.0;
        for (const std::size_t part : m.server.plan().find(name)) {
            watts += m.server.physics().power(part);
        }
        return watts;
    };
    constexpr std::uint16_t processors = 0x2102, memory = 0x3102, system = 0x1102, none = 65535;
    m.server.run_until(120.0);
    const double idle = m.server.physics().power();
    m.server.physics().set_load(100.0);
    m.server.run_for(2.0);
    const double free = m.server.physics().power();
    request(processors, 300);
    EXPECT_NEAR(drawn_by("cpu"), 300.0, 0.1);
    request(memory, 50);
    EXPECT_NEAR(drawn_by("dimm"), 50.0, 0.1);
    EXPECT_NEAR(m.server.physics().power(), free - 200.0 - 46.0, 0.1);
    request(system, 900);
    EXPECT_NEAR(m.server.physics().power() + m.server.physics().fan_power(), 900.0, 10.0) << "fans gather speed";
    request(system, 10);
    EXPECT_NEAR(m.server.physics().power(), idle, 0.01);
    for (const std::uint16_t kind : {processors, memory, system}) {
        request(kind, none);
    }
    EXPECT_EQ(m.server.physics().power(), free);
}

TEST_F(policy, of_another_file_may_withdraw_host_power_and_a_third_gives_it_back) {
    m.server.run_until(100.0);
    m.rules.write(
        "[SUMMARY]\nALGORITHM_COUNT=1\n[1.ALGORITHM]\nNAME=OFF\n"
        "TYPE=common_thermal_algorithm_sensor_capping_power_permission\n");
    m.server.reload_rules();
    const verdict result = m.judged(10.0);
    EXPECT_EQ(m.server.physics().power(), 0.0);
    EXPECT_TRUE(result.limits_held());
    EXPECT_FALSE(result.passed());
    m.rules.write(text);
    m.server.reload_rules();
    m.server.run_for(10.0);
    EXPECT_GT(m.server.physics().power(), 50.0);
}

}  // namespace
