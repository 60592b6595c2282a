#include "device/platform_info.hpp"
#include "device/uefi.hpp"
#include "tests/device/device_fixture.hpp"

namespace {

class platform_state_test : public device_test {
protected:
    platform_state_test() { link(uefi, {&status}); }

    float brake_mode_with(bool post_completed, bool dp_ready, int polls = 1) {
        status.set_stage(common_thermal_utils::post_completed, post_completed);
        status.set_stage(common_thermal_utils::dp_ready, dp_ready);
        poll(uefi, polls);
        return stored("uefi.pciegen_pwrbrk_mode");
    }
    static thermal_host::adapter_function function(std::uint32_t key, std::uint32_t class_code, std::uint16_t slot) {
        return {key, {0x1234, 0x5678, class_code, 0x1111, 0x2222, slot, 7}};
    }

    common_thermal_device_event_status status{1};
    common_thermal_device_uefi uefi{1};
};

TEST_F(platform_state_test, platform_info_publishes_the_ports_that_the_board_names) {
    common_thermal_device_platform_info info(2);
    auto& watts = host.ports.add_number(1u, 4294967295u);
    host.ports.add_number("serial", 7);
    info.add_mapping_port_integer_input("watts", 1u);
    info.add_mapping_port_integer_input("board", "serial");
    info.add_mapping_port_integer_input("absent", "");
    poll(info);
    EXPECT_EQ(named_values(info), "absent=0 board=7 watts=4.29497e+09");
    watts.fail_reads(1);
    info.add_mapping_port_integer_input("board", 1u);
    poll(info);
    EXPECT_EQ(stored("platform_info.board", 2), 0.0f) << "the name has the other port now, which fails";
}

TEST_F(platform_state_test, brake_setting_is_asked_for_until_the_host_answers) {
    host.settings.attributes["Power.Q1003"] = "7";
    EXPECT_EQ(brake_mode_with(true, false), 0.0f);
    EXPECT_EQ(host.settings.queries, 0u) << "the data path is not up";
    host.settings.initialize_result = 3;
    EXPECT_EQ(brake_mode_with(true, true, 2), 0.0f);
    EXPECT_EQ(lines_with("get_uefi_pciegen_pwrbrk_mode_setting - hvt_api_initialize failed: 3\n"), 2);
    host.settings.initialize_result = 0;
    host.settings.status = 17;
    EXPECT_EQ(brake_mode_with(true, true, 60), 0.0f) << "only a host that is not ready is counted";
    host.settings.status = 0;
    EXPECT_EQ(brake_mode_with(true, true), 2.0f) << "a number above 3";
    host.settings.attributes["Power.Q1003"] = "1";
    EXPECT_EQ(brake_mode_with(true, true, 3), 2.0f) << "once a boot";
    EXPECT_EQ(brake_mode_with(true, false), 2.0f) << "the last mode stands until the next answer";
    EXPECT_EQ(brake_mode_with(true, true), 1.0f);

    brake_mode_with(true, false);
    host.settings.status = 16;
    EXPECT_EQ(brake_mode_with(true, true, 51), 1.0f);
    EXPECT_EQ(brake_mode_with(true, true), 0.0f) << "a host that never reports";
    EXPECT_EQ(brake_mode_with(true, true, 5), 0.0f);
    EXPECT_EQ(lines_with("setting status=16[0]\n"), 1);
    EXPECT_EQ(lines_with("setting status=16[51]\n"), 1) << "mode 0 is an answer";
    EXPECT_EQ(host.settings.sessions, 0);
}

TEST_F(platform_state_test, inventory_holds_one_entry_for_slot_and_class_until_the_next_boot) {
    host.inventory.adapters = {{10, {function(1, 0x120000, 3), function(2, 0x120000, 3), function(3, 0x040300, 3)}},
                               {11, {}},
                               {12, {function(4, 0x020000, 4)}}};
    brake_mode_with(true, true);
    EXPECT_TRUE(uefi.is_actived());
    EXPECT_EQ(uefi.get_pci_info_index_list_by_slot_no_and_location(3, 7), (std::vector<unsigned>{0, 1}));
    ASSERT_NE(uefi.get_pci_info_by_index(2), nullptr);
    EXPECT_EQ(uefi.get_pci_info_by_index(2)->class_code, 0x020000u);
    EXPECT_EQ(uefi.get_pci_info_by_index(3), nullptr);
    host.inventory.adapters.pop_back();
    brake_mode_with(true, true);
    brake_mode_with(false, false);
    EXPECT_FALSE(uefi.is_actived());
    EXPECT_NE(uefi.get_pci_info_by_index(2), nullptr) << "kept until the self-test has completed";
    brake_mode_with(true, false);
    EXPECT_EQ(uefi.get_pci_info_by_index(0), nullptr);
    host.inventory.adapter_list_result = 5;
    brake_mode_with(true, true);
    host.inventory.adapter_list_result = 0;
    brake_mode_with(true, true);
    EXPECT_EQ(uefi.get_pci_info_by_index(0), nullptr) << "a failure is not repaired before the next boot";
}

}  // namespace
