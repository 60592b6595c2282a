#include <gmock/gmock.h>

#include <cmath>
#include <random>

#include "foundation/host_attribute.hpp"
#include "tests/sim/machine.hpp"

// Cards in the slots of both machines, from the inventory to the limits that they keep.
namespace {

using namespace sim;

constexpr unsigned mailbox_slot = 2;

std::string rules_for_slot(const std::string& type, const std::string& record) {
    const auto identity = [](const std::string& letter, const std::string& word) {
        return "1.PARAMETER_" + letter + "_PREFIX=common_thermal_device_pci_slot." + word + "\n1.PARAMETER_" + letter +
               "_INST=2\n1.PARAMETER_" + letter + ".1=65535\n";
    };
    return "[SUMMARY]\nALGORITHM_COUNT=2\n[1.ALGORITHM]\nTYPE=common_thermal_algorithm_config_pci_max_watt\nNAME=MOST\n"
           "PARAMETER_COUNT=1\n1.PARAMETER_XYZW_COUNT=1\n1.PARAMETER_W.1=300\n"
           "1.PARAMETER_W_PREFIX=common_thermal_device_pci_slot.max_power\n1.PARAMETER_W_INST=2\n" +
           identity("X", "vid") + identity("Y", "did") + identity("Z", "sdid") +
           "[2.ALGORITHM]\nNAME=HOLD\nTYPE=common_thermal_algorithm_sensor_capping_" + type + "\n" + record +
           "PCI_MAP_COUNT=1\n1.PCI_LOCATION=1\n1.PCI_SLOT_NO=2\n";
}

struct cards : testing::Test {
    machine m;

    float slot(const char* word, int number) { return m.stored(std::string("pci_slot.") + word, number); }
    double die(const char* part) const { return m.server.physics().temperature(m.part(part)); }
    double drawn(const char* part) const { return m.server.physics().power(m.part(part)); }
    server_slots& slots() { return m.server.physics().slots(); }
    void use(const std::string& rules) {
        m.rules.write(rules);
        m.server.reload_rules();
    }
};

TEST_F(cards, are_found_in_the_inventory_and_read_in_their_own_way) {
    m.server.run_until(50.0);
    EXPECT_EQ(slot("multi_funcs", 1), 0.0f) << "the data path is not up";
    m.server.run_until(150.0);
    const struct {
        int slot;
        const char* part;
        float vendor;
        bool tells_margin, tells_power;
    } rows[] = {{1, "gpu1", 0x10DE, true, true}, {3, "gpu3", 0x10DE, true, true},    {4, "gpu4", 0x1002, false, true},
                {5, "nic", 0x15B3, true, false}, {6, "flash", 0x1179, false, false}, {7, "lan", 0x8086, false, false}};
    for (const auto& row : rows) {
        EXPECT_EQ(slot("presence", row.slot), 1.0f) << row.part;
        EXPECT_EQ(slot("vid", row.slot), row.vendor) << row.part;
        EXPECT_NEAR(slot("temperature", row.slot), die(row.part), 1.6) << row.part;
        EXPECT_NEAR(slot("margin", row.slot), row.tells_margin ? 95.0 - die(row.part) : 255.0, 1.6) << row.part;
        EXPECT_NEAR(slot("power", row.slot), row.tells_power ? drawn(row.part) * 1000.0 : 0.0, 600.0) << row.part;
    }
    EXPECT_EQ(slot("presence", 8), 0.0f);
    EXPECT_EQ(slot("presence", 9), 1.0f);
    EXPECT_EQ(slot("temperature", 9), 0.0f) << "nobody knows how to ask this card";
}

TEST_F(cards, keep_the_limit_of_a_rule_and_are_free_again_without_it) {
    m.server.run_until(120.0);
    m.server.physics().set_power(m.part("gpu2"), 300.0);
    use(rules_for_slot("gpu_percentage", "PARAMETER_COUNT=1\n1.PARAMETER_PERCENTAGE=50\n"));
    m.server.run_for(90.0);
    EXPECT_EQ(slot("tgp", mailbox_slot), 150.0f);
    EXPECT_EQ(slots().limit(mailbox_slot), 150.0);
    EXPECT_NEAR(drawn("gpu2"), 150.0, 0.1);
    EXPECT_NEAR(slot("power_ratio", mailbox_slot), 0.5, 0.01);
    EXPECT_EQ(m.server.slot(mailbox_slot).limit_winner, "HOLD");
    EXPECT_FALSE(m.server.slot(3).is_limited());
    use(rules_for_slot("gpu_percentage", "PARAMETER_COUNT=1\n1.PARAMETER_PERCENTAGE=100\n"));
    m.server.run_for(60.0);
    EXPECT_NEAR(drawn("gpu2"), 300.0, 0.1);
}

TEST_F(cards, brake_on_their_pin_if_the_host_lets_them) {
    m.server.run_until(120.0);
    m.server.physics().set_power(m.part("gpu2"), 300.0);
    use(rules_for_slot("pciegen_pwrbrk", ""));
    m.server.run_for(30.0);
    EXPECT_FALSE(slots().is_braked(mailbox_slot)) << "mode 0";

    machine braking;
    braking.server.host().settings.attributes[power_brake_attribute] = "1";
    braking.server.run_until(120.0);
    braking.server.physics().set_power(braking.part("gpu2"), 300.0);
    braking.rules.write(rules_for_slot("pciegen_pwrbrk", ""));
    braking.server.reload_rules();
    braking.server.run_for(30.0);
    EXPECT_TRUE(braking.server.physics().slots().is_braked(mailbox_slot));
    EXPECT_NEAR(braking.server.physics().power(braking.part("gpu2")), 40.0 + 260.0 / 4, 0.1);
    EXPECT_EQ(braking.server.slot(mailbox_slot).brake_winner, "HOLD");
    EXPECT_FALSE(braking.server.physics().slots().is_braked(3));
}

TEST_F(cards, come_back_from_every_fault_without_blinding_their_neighbours) {
    m.server.run_until(150.0);
    for (const card_fault fault :
         {card_fault::silent, card_fault::refuses, card_fault::echoes_another, card_fault::never_ready}) {
        slots().set_fault(mailbox_slot, fault);
        // Each request waits its turn until the one ahead has lost its patience.
        m.server.run_for(fault == card_fault::never_ready ? 500.0 : 120.0);
        EXPECT_EQ(slot("temperature", mailbox_slot), 0.0f) << static_cast<int>(fault);
        EXPECT_EQ(slot("margin", mailbox_slot), 255.0f) << static_cast<int>(fault);
        EXPECT_NEAR(slot("temperature", 1), die("gpu1"), 1.6);
        EXPECT_NEAR(slot("temperature", 4), die("gpu4"), 1.6);
        slots().set_fault(mailbox_slot, card_fault::none);
        m.server.run_for(120.0);
        EXPECT_NEAR(slot("temperature", mailbox_slot), die("gpu2"), 1.6) << static_cast<int>(fault);
        EXPECT_NEAR(slot("margin", mailbox_slot), 95.0 - die("gpu2"), 1.6) << static_cast<int>(fault);
    }
    slots().set_card(mailbox_slot, false);
    slots().set_fault(5, card_fault::silent);
    m.server.run_for(60.0);
    EXPECT_EQ(m.stored("pci_slot_presence.presence", mailbox_slot), 0.0f);
    EXPECT_EQ(slot("vid", mailbox_slot), 4318.0f) << "the inventory hears of it at the next boot";
    EXPECT_EQ(m.stored("pci_request_pldm_info.margin", 5), 255.0f) << "its time stamp stands still";
    EXPECT_LT(slot("margin", 5), 255.0f) << "the slot was told nothing since";
}

TEST_F(cards, pending_answers_only_slow_a_card_down) {
    slots().mailbox(mailbox_slot)->pending_answers = 7;
    m.server.run_until(240.0);
    EXPECT_NEAR(slot("temperature", mailbox_slot), die("gpu2"), 1.6);
    EXPECT_NEAR(slot("margin", mailbox_slot), 95.0 - die("gpu2"), 1.6);
}

TEST_F(cards, driver_that_unloads_takes_power_and_limit_with_it) {
    m.server.run_until(150.0);
    EXPECT_GT(m.stored("pci_request_nvidia_edp_info.edpc_max", mailbox_slot), 0.0f);
    slots().mailbox(mailbox_slot)->set_driver(false);
    m.server.run_for(30.0);
    EXPECT_EQ(m.stored("pci_request_nvidia_capability.driver_load", mailbox_slot), 0.0f);
    EXPECT_EQ(m.stored("pci_request_nvidia_edp_info.edpc_max", mailbox_slot), 0.0f);
    EXPECT_EQ(slot("power", mailbox_slot), 0.0f);
    slots().mailbox(mailbox_slot)->set_driver(true);
    m.server.run_for(60.0);
    EXPECT_GT(m.stored("pci_request_nvidia_edp_info.edpc_max", mailbox_slot), 0.0f);
}

TEST(baseboard, shows_all_modules_and_holds_full_load) {
    machine m(load_profile(), 0, bundled_rules, baseboard_server());
    m.server.run_until(150.0);
    for (int module = 1; module <= 8; ++module) {
        const std::size_t part = m.part(("gpu" + std::to_string(module)).c_str());
        EXPECT_NEAR(m.stored("pci_slot.temperature", module), m.server.physics().temperature(part), 0.5);
        EXPECT_NEAR(m.stored("pci_slot.power", module), m.server.physics().power(part) * 1000.0, 10.0);
    }
    m.server.physics().set_load(100.0);
    EXPECT_TRUE(m.judged(600.0).limits_held());
}

TEST(accelerator_load, stays_within_limits_on_both_boards_under_both_policies) {
    const auto file = [](const char* name) { return content_of(THERMAL_SOURCE_DIR "/examples/" + std::string(name)); };
    const std::string steps = file("profiles/accelerators.csv");
    for (const machine_plan* plan : {&socket_server(), &baseboard_server()}) {
        for (const std::string& rules : {std::string(bundled_rules), file("rules/full_policy.ini")}) {
            machine m(load_profile::from(csv_table::parse(steps, "accelerators"), *plan), 0, rules, *plan);
            EXPECT_TRUE(m.judged(2400.0).passed()) << plan->name();
        }
    }
}

// Every bus answers with anything at all: 100 cycles are some 100,000 polls of request devices.
TEST(random_bytes, of_every_card_leave_a_machine_that_works) {
    machine m;
    std::mt19937 random(7);
    for (const slot_plan& slot : m.server.plan().slots()) {
        auto& line = m.server.host().ports.add_block(slot_bus_blocks + slot.number, {});
        line.set_script([&random](const std::uint8_t* out, std::uint32_t size, std::uint8_t* in, std::uint32_t max,
                                  int& status) -> std::uint32_t {
            status = random() % 8 == 0 ? 5 : status;
            const auto count = static_cast<std::uint32_t>(random() % (max + 1));
            for (std::uint32_t i = 0; i < count; ++i) {
                // Half of the time something that a card may say.
                const std::uint8_t likely[] = {0x04, size > 2 ? out[2] : std::uint8_t{0}, 0x9F, 0x9C, 6, 10};
                in[i] = random() % 2 == 0 ? likely[random() % 6] : static_cast<std::uint8_t>(random());
            }
            return count;
        });
    }
    m.server.run_until(160.0);
    const unsigned cycles = m.server.cycles();
    m.server.run_for(100 * cycle_s);
    EXPECT_EQ(m.server.cycles(), cycles + 100);
    for (const auto& [key, value] : m.server.store().values()) {
        EXPECT_TRUE(std::isfinite(value)) << key;
    }
}

}  // namespace
