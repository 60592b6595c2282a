#include <tuple>

#include "device/pci/pciegen_pwrbrk.hpp"
#include "device/pci/slot.hpp"
#include "device/pci/slot_pins.hpp"
#include "tests/orchestration/orchestration_fixture.hpp"

namespace {

constexpr std::uint32_t slot_key(unsigned location, unsigned number) { return location << 16 | number; }

// A slot with a card that only its pin tells of, and its brake.
struct equipped_slot {
    equipped_slot(thermal_host::platform& host, common_thermal_dao& store, int instance, unsigned location)
        : device(instance),
          presence(instance),
          brake(instance),
          card(host.ports.add_number(100 + instance, 1)),
          brake_line(host.ports.add_number(200 + instance, 1)),
          dao(store) {
        presence.set_port_input(static_cast<unsigned>(100 + instance));
        brake.set_port_input(static_cast<unsigned>(200 + instance));
        device.set_num(location, static_cast<unsigned>(instance));
        device.add_depend(&presence);
        device.add_depend(&brake);
    }
    // Another card.
    void plug(float watts) {
        for (const std::uint32_t present : {0u, 1u}) {
            card.set_value(present);
            dao.update_dev("4PMW.common_thermal_device_pci_slot.max_power", device.get_instance(), watts, false);
            presence.polling(&dao, 0);
            device.polling(&dao, 0);
        }
    }
    common_thermal_device_pci_slot device;
    common_thermal_device_pci_slot_presence presence;
    common_thermal_device_pci_request_pciegen_pwrbrk brake;
    thermal_host::number_line &card, &brake_line;
    common_thermal_dao& dao;
};

class slots_test : public manager_test {
protected:
    slots_test() {
        for (scripted_rule* rule : {&brake, &other_brake}) {
            rule->set_action_pciegen_pwrbrk(1, 3, false);
        }
        other_brake.set_action_pciegen_pwrbrk(2, 4, false);
        for (scripted_rule* rule : {&zero, &limit, &other_limit}) {
            rule->set_action_powerlimit_pci(9, 9, 100);  // no such slot
            rule->set_action_powerlimit_pci(1, 3, 100);
        }
        first.plug(300);
        second.plug(100);
    }
    void start_with(std::initializer_list<alg*> rules) {
        start({&first.presence, &first.device, &second.presence, &second.device}, rules);
    }
    void set_mode(float mode) { dao.update_dev("common_thermal_device_uefi.pciegen_pwrbrk_mode", 1, mode, false); }
    static std::string text_of(const slot_claim& claim) {
        return claim.name.text() + "." + std::to_string(claim.instance) + "=" + std::to_string(claim.value);
    }
    // The notices since the last call.
    std::string notices() {
        std::string states;
        for (const auto& notice : host.ipmi.brake_notices().entries()) {
            EXPECT_EQ(notice.what, "PCIe slots");
            states += notice.state + " ";
        }
        host.ipmi.brake_notices().clear();
        return states;
    }

    equipped_slot first{host, dao, 3, 1}, second{host, dao, 4, 2};
    scripted_rule brake{dao, "brake", 1, alg::action_pciegen_pwrbrk};
    scripted_rule other_brake{dao, "other_brake", 2, alg::action_pciegen_pwrbrk};
    scripted_rule limit{dao, "limit", 1, alg::action_powerlimit_pci};
    scripted_rule other_limit{dao, "other_limit", 2, alg::action_powerlimit_pci};
    scripted_rule zero{dao, "zero", 0, alg::action_powerlimit_pci};
};

TEST_F(slots_test, no_limit_is_taken_in_the_first_cycle_and_the_lowest_one_from_then_on) {
    start_with({&zero, &limit, &other_limit});
    // What goes out at the end of a cycle limits the card in the next one.
    const struct {
        wish zero, a, b;
        const char* applied = "";
        float watts = 0.0f;
        const char* why = "";
    } cycles[] = {
        {{}, 60, 40, ".0=0", 300, "the slot is not free yet, and 0 is no limit"},
        {{}, 60, 40, "other_limit.2=40", 120},
        {{}, 60, {}, "limit.1=60", 180, "a rule that lets go asks for nothing"},
        {{}, 50, 50, "limit.1=50", 150, "the first of equals"},
        {{}, 50, 0, "other_limit.2=0", 300, "0 lifts the limit of another rule"},
        {{}, 0, 50, "other_limit.2=50", 150, "but takes no free slot"},
        {{}, 100, {}, "NA.0=100", 300},
        {{}, 99, 200, "limit.1=99", 297},
        {{}, 300, {}, "limit.1=44", 132, "the low 8 bits"},
        {90, 10, 0, "zero.0=90", 270, "nobody replaces a rule of instance 0"},
        {{}, {}, {}, "NA.0=100", 300},
    };
    for (const auto& r : cycles) {
        zero.ask(r.zero), limit.ask(r.a), other_limit.ask(r.b);
        finish_cycle();
        EXPECT_EQ(text_of(manager.limit_winner(slot_key(1, 3))->applied), r.applied) << r.why;
        poll(first.device);
        EXPECT_EQ(stored("pci_slot.tgp", 3), r.watts) << r.applied;
        EXPECT_EQ(text_of(manager.limit_winner(slot_key(2, 4))->applied), &r == &cycles[0] ? ".0=0" : "NA.0=100");
    }
    EXPECT_EQ(manager.limit_winner(slot_key(9, 9)), nullptr);
    EXPECT_EQ(limit.get_action_powerlimit_pci_by_location_slot_no(1, 3), 100) << "taken back";
    EXPECT_EQ(limit.get_action_powerlimit_pci_by_location_slot_no(9, 9), 10) << "nobody walks by";
}

TEST_F(slots_test, the_brake_follows_the_rules_in_mode_1_and_lets_go_once_when_the_mode_falls) {
    start_with({&brake, &other_brake});
    const struct {
        float mode = 0.0f;
        wish a, b;
        const char* winner = "";
        std::uint32_t level = 0, other_level = 0;
        unsigned writes = 0;
        const char* notices = "";
        const char* why = "";
    } cycles[] = {
        {0, 1, 1, ".0=0", 1, 1, 0, "", "the pins stay as the board left them"},
        {1, {}, {}, ".0=0", 0, 0, 1, "", "the first notice is of a brake"},
        {1, 1, {}, "brake.1=1", 1, 0, 2, "enabled "},
        {1, 1, 1, "brake.1=1", 1, 1, 2, "", "the first brake stays"},
        {1, {}, 1, "other_brake.2=1", 1, 1, 2, ""},
        {1, 0, {}, ".0=0", 0, 0, 3, "disabled ", "a wish for off takes no slot"},
        {1, 0, 1, "other_brake.2=1", 1, 1, 4, "enabled "},
        {0, 1, 1, ".0=0", 0, 0, 5, "disabled "},
        {0, 1, 1, ".0=0", 0, 0, 5, ""},
        {2.5f, 1, {}, "brake.1=1", 1, 0, 6, "enabled ", "without the power of the supplies nothing is forced"},
        {-1, 1, {}, ".0=0", 0, 0, 7, "disabled "},
    };
    for (const auto& r : cycles) {
        set_mode(r.mode);
        brake.ask(r.a), other_brake.ask(r.b);
        finish_cycle();
        EXPECT_EQ(text_of(manager.brake_winner(slot_key(1, 3))->applied), r.winner) << r.why;
        EXPECT_EQ(first.brake_line.value(), r.level) << r.why;
        EXPECT_EQ(second.brake_line.value(), r.other_level) << r.why;
        EXPECT_EQ(first.brake_line.writes(), r.writes) << r.why;
        EXPECT_EQ(notices(), r.notices) << r.why;
        EXPECT_EQ(host.properties.find("/ac/nrv/therm_config/pciegen_pwrbrk_mode")->get_byte(),
                  r.mode > 0 ? static_cast<int>(r.mode) : 0);
    }
    EXPECT_EQ(lines_with("common_thermal_manager::send_pciegen_pwrbrk_notification[2]\n"), 1);
}

TEST_F(slots_test, all_slots_brake_in_mode_2_once_the_large_cards_reach_a_third_of_the_supplies) {
    start_with({});
    auto& supplies = host.ports.add_number("TOTAL_SYS_PSU_WATTS", 1000);
    auto& total = host.ports.add_number("TOTAL_HIGH_POW_PCIE_WATTS", 7);
    const struct {
        float mode, watts, other_watts;
        std::uint32_t supplies;
        bool is_readable, is_writable;
        bool is_forced;
        std::uint32_t shown_total;
        const char* notices;
    } cycles[] = {
        {1, 900, 900, 1000, true, true, false, 7, ""},
        {2, 200, 100, 1000, true, true, false, 300, ""},
        {2, 200, 150.5f, 1000, true, true, true, 350, "enabled "},
        {3, 270, 60, 1000, true, true, true, 330, ""},
        {2, 271, 59.9f, 1000, true, true, false, 271, "disabled "},
        {2, 200, 200, 0, true, true, false, 400, ""},
        {2, 200, 250, 1000, false, true, false, 450, ""},
        {2, 200, 260, 1000, true, false, true, 450, "enabled "},
        {2, 0, 59, 1, true, true, false, 0, "disabled "},
    };
    for (const auto& r : cycles) {
        set_mode(r.mode);
        first.plug(r.watts), second.plug(r.other_watts);
        supplies.set_value(r.supplies);
        r.is_readable ? supplies.recover() : supplies.fail_reads();
        r.is_writable ? total.recover() : total.fail_writes();
        finish_cycle();
        for (const auto* slot : {&first, &second}) {
            EXPECT_EQ(slot->brake_line.value(), r.is_forced ? 1u : 0u) << r.watts << " + " << r.other_watts;
        }
        EXPECT_EQ(text_of(manager.brake_winner(slot_key(2, 4))->applied), r.is_forced ? ".0=1" : ".0=0");
        EXPECT_EQ(total.value(), r.shown_total);
        EXPECT_EQ(notices(), r.notices);
    }
    EXPECT_EQ(lines_with("common_thermal_manager:: system_total_power RD failed.\n"), 1);
    EXPECT_EQ(lines_with("common_thermal_manager:: total_max_power_watt WR failed.\n"), 1);
    EXPECT_EQ(lines_with("chk_pciegen_pwrbrk_uefi_setting [350.500000] >= [330.0000].\n"), 1);
}

TEST_F(slots_test, slots_of_one_key_share_a_row) {
    equipped_slot twin(host, dao, 3, 1);
    twin.plug(300);
    start({&first.device, &twin.device}, {&limit, &brake});
    set_mode(1);
    limit.ask(30), brake.ask(1);
    finish_cycle();
    finish_cycle();
    poll(twin.device);
    EXPECT_EQ(stored("pci_slot.tgp", 3), 90.0f);
    EXPECT_EQ(stored("pci_slot.pciegen_pwrbrk", 3), 1.0f);
    EXPECT_EQ(lines_with("replaced_algorithm_powerlimit_pci[10003][01][1E]\n"), 1);
    EXPECT_EQ(lines_with("replaced_algorithm_powerlimit_pci[10003][00][1E]\n"), 3) << "first cycle, and the twin";
}

}  // namespace
