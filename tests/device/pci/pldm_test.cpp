#include "device/pci/pldm.hpp"

#include <array>
#include <chrono>
#include <cmath>

#include "device/pci/slot_pins.hpp"
#include "device/pci/supported_list.hpp"
#include "tests/device/device_fixture.hpp"
#include "tests/device/storage/debug_text.hpp"

namespace {

using utils = common_thermal_utils;
using status_agent = common_thermal_device_pci_agent_pldm;
using manager_agent = common_thermal_device_pci_agent_pldm_api;

class pldm_test : public device_test {
protected:
    pldm_test() {
        link(list, {&path});
        link(status, {&list});
        link(info, {&list, &slot});
        path.set_stage(utils::dp_ready, true);
        host.log.captured().set_capacity(1024);
    }
    void show_card() {
        utils::pci_info_t card;
        card.vendor_id = 0x15B3;
        card.device_id = 0x101B;
        list.active_command(&card);
    }
    void pass_seconds(int seconds) { host.clock.advance_to(host.clock.now() + std::chrono::seconds(seconds)); }

    common_thermal_device_event_status path{1};
    common_thermal_device_pci_supported_list list{1};
    common_thermal_device_pci_slot slot{1};
    common_thermal_device_pci_request_pldm_status status{7};
    common_thermal_device_pci_request_pldm_info info{7};
};

TEST_F(pldm_test, an_agent_takes_levels_1_to_5_and_stays_ready) {
    status_agent agent(1);
    const std::tuple<unsigned, unsigned, bool> rows[] = {{6, 0, false}, {5, 5, false}, {0, 0, false}, {1, 1, true},
                                                         {3, 3, true},  {6, 0, true},  {~0u, 0, true}};
    for (const auto& [given, level, ready] : rows) {
        agent.set_num(given);
        EXPECT_TRUE(agent.get_num() == level && agent.is_ready() == ready) << given;
    }
    unsigned value = 9;
    EXPECT_EQ(agent.read_data(&value), 1u);
    auto& line = host.ports.add_number("level", 4);
    agent.set_port_input("level");
    EXPECT_TRUE(agent.read_data(&value) == 0 && value == 4);
    line.fail_reads();
    EXPECT_EQ(agent.read_data(&value), 2u);
    EXPECT_EQ(agent.debug(), "");
}

TEST_F(pldm_test, the_last_active_level_is_reported_while_the_ready_level_is) {
    EXPECT_EQ(reading(status), 0.0f) << "no agents";
    // In the order of the list.
    const unsigned levels[] = {1, 3, 5, 0};
    std::array<status_agent, 4> agents{status_agent{1}, status_agent{2}, status_agent{3}, status_agent{4}};
    status_agent unbound(5);
    std::array<thermal_host::number_line*, 4> lines{};
    for (unsigned i = 0; i < 4; ++i) {
        agents[i].set_num(levels[i]);
        agents[i].set_port_input(i);
        lines[i] = &host.ports.add_number(i, 0);
        link(status, {&agents[i]});
    }
    link(status, {&unbound});
    const std::tuple<std::array<std::uint32_t, 4>, float> rows[] = {
        {{1, 1, 0, 0}, 2},   {{0, 1, 0, 0}, 0}, {{1, 0, 0, 0}, 0}, {{1, 1, 1, 0}, 8},
        {{9, 0, ~0u, 0}, 8}, {{1, 1, 0, 1}, 0}, {{0, 1, 1, 0}, 0}};
    for (const auto& [active, expected] : rows) {
        for (unsigned i = 0; i < 4; ++i) lines[i]->set_value(active[i]);
        EXPECT_EQ(reading(status), expected) << active[0] << active[1] << active[2] << active[3];
    }
    for (unsigned i = 0; i < 4; ++i) lines[i]->set_value(i < 3 ? 1 : 0);
    lines[2]->fail_reads(1);
    EXPECT_EQ(reading(status), 2.0f) << "a port that fails is not active";
    EXPECT_EQ(lines_with("pci_request_pldm_status::poll() read data level(5), ready(0), status(2), rc(2), stat(0)\n"),
              1);
    lines[0]->fail_reads(1);
    EXPECT_EQ(reading(status), 0.0f);

    status_agent late(6);
    late.set_num(1);
    late.set_port_input(0u);
    link(status, {&late});
    EXPECT_EQ(reading(status), 0.0f) << "a ready agent behind the levels hides them";
    lines[0]->set_value(0);
    path.set_stage(utils::dp_ready, false);
    dao.update_dev("common_thermal_device_pci_request_pldm_status.status", 7, 5.0f, false);
    poll(status);
    EXPECT_EQ(stored("pci_request_pldm_status.status", 7), 0.0f);
    EXPECT_EQ(status.debug(), debug_text("pci_request_pldm_status", 7, {{"status", 0}}));
}

TEST_F(pldm_test, an_adapter_whose_time_stamp_stops_is_believed_for_three_more_passes) {
    manager_agent agent(1);
    agent.set_num(0x112, 0x73456);
    auto& card = host.pcie.plug(0x01123456);
    link(info, {&agent});
    show_card();
    const struct {
        device_temperature_margin latest;
        bool answers = false;
        float margin = 0.0f, temperature = 0.0f, timestamp = 0.0f;
        float slot_margin = 0.0f, slot_temperature = 0.0f;
        const char* line = "";  // what the log says of the miss
    } passes[] = {
        {{10, 50, 0}, true, 255, 0, 0, 255, 0, "heartbroken countdown:2\n"},
        {{20, 61, 5}, true, 20, 61, 5, 20, 61},
        {{-3, 90, 6}, true, -3, 90, 6, -3, 90},
        {{10, 99, 6}, true, -3, 90, 6, -3, 90, "heartbroken countdown:2\n"},
        {{255, 99, 8}, true, -3, 90, 8, -3, 90, "heartbroken countdown:1\n"},
        {{10, 99, 9}, false, -3, 90, 0, -3, 90, "heartbroken countdown:0\n"},
        {{10, 99, 6}, true, 255, 90, 6, -3, 90, "PLDM device is unavailable\n"},
        {{10, 99, 6}, true, 255, 90, 6, -3, 90, "PLDM device is unavailable\n"},
        {{18, 63, 4}, true, 18, 63, 4, 18, 63},
        {{18, 63, 4}, true, 18, 63, 4, 18, 63, "heartbroken countdown:2\n"},
        {{17, 64, 1ull << 40}, true, 17, 64, 1099511627776.0f, 17, 64},
    };
    for (const auto& r : passes) {
        const auto stamp = static_cast<unsigned long>(r.latest.time_stamp);
        card.latest = r.latest;
        r.answers ? card.recover() : card.fail_reads();
        host.log.captured().clear();
        poll(info, 3);
        poll(slot);
        EXPECT_EQ(info.debug(),
                  debug_text("pci_request_pldm_info", 7,
                             {{"margin", r.margin}, {"timestamp", r.timestamp}, {"temperature", r.temperature}}))
            << stamp;
        EXPECT_EQ(stored("pci_request_pldm_info.margin", 7), r.margin) << stamp;
        EXPECT_EQ(stored("pci_slot.margin"), r.slot_margin) << stamp;
        EXPECT_EQ(stored("pci_slot.temperature"), r.slot_temperature) << stamp;
        EXPECT_EQ(lines_with("PLDM data is invalid\n"), *r.line != '\0' ? 1 : 0) << stamp;
        EXPECT_EQ(lines_with(*r.line != '\0' ? r.line : "heartbroken"), *r.line != '\0' ? 1 : 0) << r.line;
        EXPECT_EQ(lines_with("Failed to get the polling info from PLDM LD\n"), r.answers ? 0 : 1);
        pass_seconds(3);
        poll(info);
        pass_seconds(1);
    }
    EXPECT_EQ(card.reads(), std::size(passes)) << "one query each fourth second";
    EXPECT_EQ(card.writes(), 1u) << "told once how often to ask";
}

TEST_F(pldm_test, nothing_is_asked_before_the_list_knows_the_card_and_a_refused_interval_is_offered_again) {
    manager_agent agent(1), absent(2);
    agent.set_num(0, 1);
    absent.set_num(0, 2);
    auto& card = host.pcie.plug(0x01000001);
    card.latest = {30, 40, 1};
    card.fail_writes(2);
    link(info, {&agent});
    poll(info);
    EXPECT_EQ(card.reads() + pcie_device_manager::polling_mode, 0u);
    EXPECT_TRUE(std::isnan(stored("pci_request_pldm_info.margin", 7))) << "nothing is published";
    show_card();
    for (const bool configured : {false, false, true, true}) {
        poll(info);
        EXPECT_EQ(agent.init_status(), configured);
        EXPECT_EQ(stored("pci_request_pldm_info.margin", 7), 30.0f) << "read all the same";
        pass_seconds(4);
    }
    EXPECT_EQ(card.writes(), 3u);
    EXPECT_EQ(card.polling_interval(), 3u);
    EXPECT_EQ(pcie_device_manager::polling_mode, 1u);
    EXPECT_EQ(lines_with("agent_pldm_api::set_pldm_config PLDM polling mode:1\n"), 3);
    EXPECT_EQ(lines_with("agent_pldm_api::set_pldm_config PLDM polling interval:3\n"), 1);
    EXPECT_EQ(lines_with("agent_pldm_api::read_data read PLDM data with device key:0x01000001\n"), 4);

    link(info, {&absent});
    card.latest.time_stamp = 2;
    poll(info);
    EXPECT_EQ(stored("pci_request_pldm_info.timestamp", 7), 0.0f) << "the last one did not answer";
    path.set_stage(utils::dp_ready, false);
    poll(list);
    pass_seconds(60);
    poll(info);
    EXPECT_EQ(card.reads(), 5u);
    host.pcie.pull(0x01000001);
    common_thermal_device_pci_request_pldm_info nobody(8);
    link(nobody, {&list});
    show_card();
    for (int pass = 0; pass < 5; ++pass, pass_seconds(4)) poll(nobody), poll(info);
    EXPECT_EQ(stored("pci_request_pldm_info.margin", 8), 255.0f);
    EXPECT_EQ(stored("pci_request_pldm_info.margin", 7), 255.0f);
}

}  // namespace
