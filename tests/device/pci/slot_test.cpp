#include "device/pci/slot.hpp"

#include <cmath>

#include "device/pci/pciegen_pwrbrk.hpp"
#include "device/pci/slot_pins.hpp"
#include "device/pci/supported_list.hpp"
#include "device/uefi.hpp"
#include "tests/device/device_fixture.hpp"
#include "tests/device/storage/debug_text.hpp"

namespace {

using utils = common_thermal_utils;
using pci_info = utils::pci_info_t;

TEST(power_limit_of_a_card, is_the_lowest_that_counts) {
    const struct {
        card_power_limits limits;  // max, vpd, user, thermal, platform
        float watts = 0.0f;
        const char* why = "";
    } rows[] = {
        {{300, 0, 0, 300, 0}, 300, "nobody limits it"},
        {{300, 250, 0, 300, 0}, 250, ""},
        {{300, 350, 0, 300, 0}, 300, "the machine's data is cut at the card's most"},
        {{300, 250, 280, 300, 0}, 280, "a user may raise it again"},
        {{300, 250, 300, 300, 0}, 300, ""},
        {{300, 250, 301, 300, 0}, 250, "a user's value above the card's most is not cut, it does not count"},
        {{300, 250, 280, 150, 0}, 150, ""},
        {{300, 250, 280, 280.5f, 0}, 280, ""},
        {{300, 250, 280, 0, 0}, 280, "0 percent is no limit"},
        {{300, 250, 280, 150, 100}, 100, ""},
        {{300, 250, 280, 150, 200}, 150, "the platform only lowers"},
        {{0, 250, 250, 0, 250}, 0, "an unknown card"},
        {{300, NAN, NAN, NAN, NAN}, 300, "no number is no limit"},
    };
    for (const auto& r : rows) {
        EXPECT_EQ(total_graphics_power(r.limits), r.watts) << r.why;
    }
}

class pci_slot_test : public device_test {
protected:
    pci_slot_test() {
        slot.set_num(7, 3);
        presence.set_port_input(1u);
        link(uefi, {&status});
        link(list, {&status});
        link(slot, {&uefi, &list, &presence});
    }

    static thermal_host::adapter_function function(std::uint32_t key, std::uint16_t vendor, std::uint16_t device,
                                                   std::uint32_t class_code, std::uint16_t slot_no = 3) {
        return {key, {vendor, device, class_code, 0x1111, 0x2222, slot_no, 7}};
    }

    void set_stages(bool post_completed, bool dp_ready) {
        status.set_stage(utils::post_completed, post_completed);
        status.set_stage(utils::dp_ready, dp_ready);
    }

    // One cycle: pins and list run ahead of the slot, as the schedule places them.
    void cycle(int times = 1) {
        for (int i = 0; i < times; ++i) {
            for (common_thermal_device* device :
                 std::initializer_list<common_thermal_device*>{&status, &presence, &stop, &uefi, &list, &slot}) {
                poll(*device);
            }
        }
    }

    static std::string words_of(const std::string& debug) {
        std::string words;
        for (std::size_t at = debug.find('.'); at != std::string::npos; at = debug.find('.', debug.find('\n', at))) {
            words += debug.substr(at + 1, debug.find('.', at + 1) - at - 1) + " ";
        }
        return words;
    }

    float value(const std::string& word) { return stored("pci_slot." + word, 9); }
    float flag(const std::string& word) { return stored("pci_supported_list." + word, 9); }
    void set(const std::string& name, float watts) { dao.update_dev(name, 9, watts, false); }

    thermal_host::number_line& pin = host.ports.add_number(1u, 0);
    common_thermal_device_event_status status{1};
    common_thermal_device_uefi uefi{1};
    common_thermal_device_pci_supported_list list{9};
    common_thermal_device_pci_slot_presence presence{9};
    common_thermal_device_pci_slot_stop_polling stop{9};
    common_thermal_device_pci_slot slot{9};
};

TEST_F(pci_slot_test, a_card_is_found_once_the_data_path_is_up_and_gone_after_the_next_boot) {
    host.inventory.adapters = {{10,
                                {function(1, 0x8086, 0x0A54, 0x120000), function(2, 0x10EE, 1, 0x040300),
                                 function(3, 0x1002, 1, 0x030000, 4)}}};
    set_stages(true, false);
    cycle();
    EXPECT_EQ(value("presence") + value("multi_funcs") + value("vid") + flag("actived"), 0.0f);
    set_stages(true, true);
    cycle(2);
    EXPECT_EQ(words_of(slot.debug()),
              "location slot_no presence multi_funcs vid did svid sdid classcode temperature secondary_temperature "
              "tertiary_temperature margin power max_power power_ratio pciegen_pwrbrk tgp tgp_platform tgp_thermal "
              "tgp_user tgp_vpd ");
    EXPECT_TRUE(value("location") == 7 && value("slot_no") == 3 && value("presence") == 1 && value("multi_funcs") == 2);
    EXPECT_TRUE(value("vid") == 0x8086 && value("did") == 0x0A54 && value("svid") == 0x1111 && value("sdid") == 0x2222);
    EXPECT_TRUE(value("classcode") == 0x120000 && value("margin") == 255);
    EXPECT_TRUE(list.is_actived(pci_group::intel_fpga) && list.is_actived(pci_group::nvmemi) &&
                list.is_actived(pci_group::xilinx_fpga))
        << "the flags of all functions, and two rules for the first one";
    EXPECT_EQ(flag("actived"), 1.0f);

    set_stages(false, false);
    cycle();
    EXPECT_EQ(flag("actived") + flag("supported_nvmemi"), 0.0f) << "the path is down";
    EXPECT_EQ(value("presence") + value("multi_funcs"), 0.0f);
    EXPECT_EQ(value("did"), 0x0A54) << "the identity stays";
    host.inventory.adapters.clear();
    set_stages(true, false);
    cycle();
    set_stages(true, true);
    cycle(2);
    EXPECT_EQ(value("presence") + flag("actived"), 0.0f);
    pin.set_value(1);
    cycle();
    EXPECT_EQ(value("presence"), 1.0f) << "a card that only its pin tells of";
    EXPECT_EQ(value("multi_funcs"), 0.0f);
}

TEST_F(pci_slot_test, the_last_inventory_that_is_up_counts_the_functions) {
    common_thermal_device_event_status down(2);
    common_thermal_device_uefi idle(2), other(3);
    link(idle, {&down});
    link(other, {&status});
    link(slot, {&other, &idle});
    host.inventory.adapters = {{10, {function(1, 0x10DE, 1, 1), function(2, 0x10DE, 2, 2)}}};
    set_stages(true, true);
    set("4PMW.common_thermal_device_pci_slot.max_power", 300);
    poll(uefi);
    host.inventory.adapters[0].functions.pop_back();
    poll(other);
    slot.set_power_consumption(150000);
    poll(slot);
    EXPECT_EQ(value("multi_funcs"), 1.0f);
    EXPECT_EQ(value("power_ratio"), 0.0f) << "the last one is not up";
    EXPECT_TRUE(list.is_actived(pci_group::nvidia_gpu));
}

TEST_F(pci_slot_test, most_power_is_taken_once_and_falls_with_the_card) {
    const std::string setting = "4PMW.common_thermal_device_pci_slot.max_power";
    pin.set_value(1);
    cycle();
    EXPECT_EQ(lines_with("common_thermal_device_pci_slot::poll - " + setting + ".9 [NA]\n"), 1);
    set(setting, 300);
    slot.set_power_consumption(75000);
    cycle();
    EXPECT_EQ(lines_with("pci_slot::poll - common_thermal_device_pci_slot.max_power.9 [300.000000][1]\n"), 1);
    EXPECT_EQ(lines_with("pci_slot::poll - common_thermal_device_pci_slot.tgp.9 [300.000000][1]\n"), 1);
    EXPECT_EQ(value("power_ratio"), 0.0f) << "no inventory yet";
    set(setting, 200);
    set_stages(true, true);
    cycle();
    EXPECT_EQ(slot.get_max_power(), 300.0f);
    EXPECT_EQ(value("power_ratio"), 0.25f);
    pin.set_value(0);
    cycle();
    EXPECT_EQ(value("max_power") + value("tgp") + value("power_ratio"), 0.0f);
    EXPECT_EQ(value("power"), 75000.0f) << "readings stay";
    pin.set_value(1);
    cycle();
    EXPECT_EQ(value("max_power"), 200.0f);
}

TEST_F(pci_slot_test, a_jump_in_power_is_held_back_from_the_ratio_too) {
    pin.set_value(1);
    set_stages(true, true);
    set("4PMW.common_thermal_device_pci_slot.max_power", 300);
    set("1SMC.common_thermal_device_pci_slot.power", 2);
    set("1SC.common_thermal_device_pci_slot.power", 100000);
    for (const auto& [reported, published] : {std::pair{30000.0f, 30000.0f}, {150000, 30000}, {150000, 150000}}) {
        slot.set_power_consumption(reported);
        cycle();
        EXPECT_EQ(value("power"), published);
        EXPECT_EQ(value("power_ratio"), published / 300000);
    }
}

TEST_F(pci_slot_test, limits_come_from_the_store_and_from_the_arbitration) {
    pin.set_value(1);
    set("4PMW.common_thermal_device_pci_slot.max_power", 300);
    set("common_thermal_device_pci_slot.tgp_vpd", 250);
    set("common_thermal_device_pci_slot.tgp_user", 280);
    cycle();
    EXPECT_EQ(value("tgp_thermal"), 300.0f) << "100 percent from the start";
    EXPECT_EQ(slot.get_powerlimit_watt(), 280.0f);
    slot.set_powerlimit_percentage(50);
    slot.set_powerlimit_watt(1);
    EXPECT_EQ(slot.get_powerlimit_watt(), 1.0f);
    cycle();
    EXPECT_EQ(value("tgp_thermal"), 150.0f);
    EXPECT_EQ(value("tgp"), 150.0f);
    set("common_thermal_device_pci_slot.tgp_platform", 120);
    cycle(3);
    EXPECT_EQ(value("tgp"), 120.0f);
    EXPECT_EQ(value("tgp_vpd") + value("tgp_user") + value("tgp_platform"), 650.0f) << "kept alive";
    slot.set_powerlimit_percentage(0);
    set("common_thermal_device_pci_slot.tgp_platform", 0);
    cycle();
    EXPECT_EQ(value("tgp"), 280.0f);
    slot.polling(nullptr, 0);
    EXPECT_EQ(slot.get_powerlimit_watt(), 300.0f) << "without a store there is no limit to find";
}

TEST_F(pci_slot_test, what_request_devices_and_arbitration_tell_is_published) {
    common_thermal_device_pci_request_pciegen_pwrbrk brake(9), unbound(9);
    auto& brake_pin = host.ports.add_number(5u, 1);
    brake.set_port_input(5u);
    link(slot, {&brake, &unbound});
    slot.set_num(0x107, 0x10003);
    EXPECT_TRUE(slot.get_location() == 7 && slot.get_slot_no() == 3) << "as wide as the inventory has them";
    slot.set_primary_temperature(61);
    slot.set_secondary_temperature(62);
    slot.set_tertiary_temperature(63);
    slot.set_margin(-4);
    slot.set_edpp_percentage(80);
    EXPECT_EQ(slot.get_edpp_percentage(), 80);
    const struct {
        bool braked;
        std::uint32_t level;
        unsigned writes;
    } requests[] = {{false, 0, 1}, {false, 0, 1}, {true, 1, 2}, {true, 1, 2}, {false, 0, 3}};
    for (const auto& r : requests) {
        slot.set_pciegen_pwrbrk(r.braked);
        cycle();
        EXPECT_EQ(value("pciegen_pwrbrk"), r.braked ? 1.0f : 0.0f);
        EXPECT_TRUE(brake_pin.value() == r.level && brake_pin.writes() == r.writes) << brake_pin.writes();
    }
    EXPECT_TRUE(value("temperature") == 61 && value("secondary_temperature") == 62 &&
                value("tertiary_temperature") == 63 && value("margin") == -4);
    EXPECT_EQ(brake.debug(), "");
}

TEST_F(pci_slot_test, a_stopped_slot_clears_its_list_until_the_pin_starts_it) {
    host.inventory.adapters = {{10, {function(1, 0x10DE, 1, 1)}}};
    set_stages(true, true);
    cycle(2);
    EXPECT_EQ(flag("actived"), 1.0f) << "no stop pin";
    link(slot, {&stop});
    cycle(2);
    EXPECT_EQ(flag("actived") + flag("supported_nvidia_gpu"), 0.0f) << "an unbound pin stops";
    auto& start = host.ports.add_number("start", 1);
    stop.set_port_input("start");
    for (int i = 0; i < 2; ++i) {
        cycle(2);
        EXPECT_EQ(flag("actived"), 1.0f);
        start.fail_reads(1);
        cycle();
        EXPECT_FALSE(list.is_actived(pci_group::nvidia_gpu));
        EXPECT_EQ(stop.debug(), debug_text("pci_slot_stop_polling", 9, {{"stop_polling", 1}, {"start_polling", 0}}));
    }
    EXPECT_EQ(lines_with("pci_slot_stop_polling::poll - isbound(1), read(0), val(0)\n"), 2);
}

TEST_F(pci_slot_test, the_presence_pin_keeps_its_value_without_a_reading) {
    common_thermal_device_pci_slot_presence unbound(2), keyed(3);
    auto& line = host.ports.add_number("card", 1);
    keyed.set_port_input("card");
    pin.set_value(1);
    EXPECT_EQ(reading(unbound), 0.0f);
    EXPECT_EQ(reading(keyed), 1.0f);
    line.fail_reads(1);
    EXPECT_EQ(reading(keyed), 1.0f);
    line.set_value(0);
    EXPECT_EQ(reading(keyed), 1.0f) << "by key, low looks like a failure";
    EXPECT_EQ(reading(presence), 1.0f);
    pin.set_value(0);
    EXPECT_EQ(reading(presence), 0.0f);
}

class supported_list_test : public pci_slot_test {
protected:
    // The families that one function sets, by group.
    std::vector<unsigned> groups_of(std::uint16_t vendor, std::uint16_t device, std::uint16_t sub_device = 0,
                                    std::uint32_t class_code = 0) {
        list.deactive_command();
        EXPECT_EQ(list.get_force_cap(), 0u);
        pci_info function;
        function.vendor_id = vendor;
        function.device_id = device;
        function.sub_device_id = sub_device;
        function.class_code = class_code;
        list.active_command(&function);
        std::vector<unsigned> set;
        const std::pair<unsigned, const char*> families[] = {
            {0x1010, "nvidia_gpu"}, {0x1020, "nvmemi"},     {0x1030, "xilinx_fpga"},   {0x1042, "pldm"},
            {0x1050, "amd_gpu"},    {0x1070, "intel_fpga"}, {0x1080, "pensando_cpld"}, {0x1090, "intel_nic"},
            {65, "nvidia_rf_gpu"},  {67, "amd_rf_gpu"},     {70, "intel_gaudi3_gpu"}};
        const std::string shown = list.debug();
        for (const auto& [group, word] : families) {
            const bool actived = list.is_actived(utils::tdev_type_t{group});
            EXPECT_EQ(shown.find(std::string(".supported_") + word + ".9=1.0") != std::string::npos, actived) << word;
            if (actived) {
                set.push_back(group);
            }
        }
        return set;
    }
};

TEST_F(supported_list_test, every_identity_has_its_family) {
    using groups = std::vector<unsigned>;
    const struct {
        groups set;
        std::uint32_t force_cap;
        std::uint16_t vendor;
        std::vector<std::uint16_t> devices;
        std::vector<std::uint16_t> sub_devices{0};
    } rows[] = {
        {{67}, 0, 0x1002, {0x74A1}},
        {{0x1050}, 0, 0x1002, {0x1234, 0x6862}},
        {{0x1050}, 1, 0x1002, {0x6981, 0x7312, 0x7341, 0x66A1, 0x6860, 0x6864}},
        {{70}, 0, 0x1DA3, {0x1060}},
        {{0x1020}, 0, 0x8086, {0x0A54, 0x2701}},
        {{0x1042}, 0, 0x8086, {0x56C1, 0x56C0}, {0x4905}},
        {{0x1042}, 0, 0x8086, {0x159B, 0x1593, 0x15FF}},
        {{0x1090}, 0, 0x8086, {0x1521}},
        {{0x1080}, 0, 0x1DD8, {0x1002}},
        {{0x1010}, 2, 0x10DE, {0x25B6}, {0x14A9}},
        {{0x1010}, 0, 0x10DE, {0x25B6, 0x2920, 0x2330}, {0x14A8, 0x1999, 0x18BE}},
        {{0x1030}, 0, 0x10EE, {0, 0xFFFF}},
        {{0x1020}, 0, 0x1179, {0x0110}},
        {{0x1020}, 0, 0x17CB, {0xA100}},
        {{0x1042}, 0, 0x15B3, {0xA2D6, 0xA2DC, 0x101B, 0x101D, 0x101F, 0x1021}},
        {{0x1042}, 0, 0x14E4, {0x16D6}, {0xA140, 0xA340}},
        {{}, 0, 0x8086, {0x56C0}, {4905}},
        {{}, 0, 0x14E4, {0x16D6}, {0xA141}},
        {{}, 0, 0x15B3, {0x101C}},
        {{}, 0, 0x1DA3, {0x1061}},
        {{}, 0, 0xFFFF, {0xFFFF}, {0xFFFF}},
    };
    host.ports.add_number("GPU_UBB_PRESENT", 1);
    for (const auto& r : rows) {
        for (const std::uint16_t device : r.devices) {
            for (const std::uint16_t sub_device : r.sub_devices) {
                EXPECT_EQ(groups_of(r.vendor, device, sub_device), r.set) << std::hex << r.vendor << " " << device;
                EXPECT_EQ(list.get_force_cap(), r.force_cap) << std::hex << device;
            }
        }
    }
    EXPECT_EQ(groups_of(0x8086, 0x159B, 0, 0x120000), (groups{0x1042, 0x1070}));
    EXPECT_EQ(groups_of(0x8086, 0, 0, 0x120001), groups{}) << "the class code is exact";
    EXPECT_EQ(groups_of(0x10EE, 0, 0, 0x120000), groups{0x1030});
    EXPECT_EQ(words_of(list.debug()),
              "supported_amd_gpu supported_amd_rf_gpu supported_intel_gaudi3_gpu supported_intel_fpga "
              "supported_pensando_cpld supported_nvidia_gpu supported_nvidia_rf_gpu supported_xilinx_fpga "
              "supported_nvmemi supported_pldm supported_intel_nic actived ");
    groups_of(0x1002, 0x6981);
    pci_info audio;
    audio.vendor_id = 0x1002;
    list.active_command(&audio);
    list.active_command(nullptr);
    EXPECT_EQ(list.get_force_cap(), 1u) << "a second function takes nothing away";
}

TEST_F(supported_list_test, a_card_on_the_baseboard_counts_as_such_only_while_the_baseboard_is_there) {
    const std::pair<std::uint16_t, std::uint16_t> cards[] = {{0x2330, 0x16C0}, {0x2330, 0x16C1}, {0x2335, 0x18BE},
                                                             {0x2335, 0x18BF}, {0x2901, 0x1999}, {0x2901, 0x199B},
                                                             {0x2920, 0x197F}};
    const std::vector<unsigned> plain{0x1010}, on_baseboard{65};
    EXPECT_EQ(groups_of(0x10DE, 0x2330, 0x16C1), plain) << "nobody serves the pin";
    auto& baseboard = host.ports.add_number("GPU_UBB_PRESENT", 0);
    for (const auto& [device, sub_device] : cards) {
        baseboard.set_value(0);
        EXPECT_EQ(groups_of(0x10DE, device, sub_device), plain) << std::hex << device;
        baseboard.set_value(1);
        EXPECT_EQ(groups_of(0x10DE, device, sub_device), on_baseboard) << std::hex << sub_device;
        baseboard.fail_reads(1);
        EXPECT_EQ(groups_of(0x10DE, device, sub_device), plain) << std::hex << sub_device;
    }
}

TEST_F(supported_list_test, status_levels_need_the_data_path_and_no_family) {
    const auto served = [this] { return list.is_actived(pci_group::pldm_status); };
    groups_of(0x15B3, 0x101B);
    EXPECT_FALSE(served());
    set_stages(true, true);
    groups_of(0, 0);
    EXPECT_TRUE(served());
    EXPECT_FALSE(list.is_actived(utils::tdev_pci_slot) || list.is_actived(utils::tdev_type_t{0}));

    common_thermal_device_pci_supported_list alone(2);
    pci_info function;
    function.vendor_id = 0x10EE;
    alone.active_command(&function);
    EXPECT_EQ(reading(alone), 0.0f);
    EXPECT_EQ(stored("pci_supported_list.supported_xilinx_fpga", 2), 1.0f) << "no stage clears it";
    EXPECT_EQ(stored("pci_supported_list.actived", 2), 0.0f);
    common_thermal_device_event_status down(2);
    link(alone, {&status, &down});
    poll(alone);
    EXPECT_EQ(stored("pci_supported_list.actived", 2), 1.0f) << "the first one saw the flags before the second";
    EXPECT_FALSE(alone.is_actived(pci_group::xilinx_fpga));
}

}  // namespace
