#include "tests/support/diagnostics.hpp"
#include "algorithm/control/log.hpp"
#include "device/pci/slot.hpp"
#include "platform/clock.hpp"
#include "tests/orchestration/orchestration_fixture.hpp"

namespace {

using file_names = std::set<std::string>;

class diagnostics_test : public manager_test {
protected:
    // What the cycles that end now leave behind, by the part of its name that tells the family.
    file_names new_files_of_a_cycle() {
        finish_cycle();
        file_names found;
        for (const std::string& name : diagnostic_names()) found.insert(name.substr(0, name.find(".log.")));
        remove_diagnostics();
        return found;
    }

    diagnostics_to_itself alone;
};

TEST_F(diagnostics_test, one_request_is_served_a_cycle_in_a_fixed_order_and_a_reload_comes_last) {
    common_thermal_device_pci_slot slot(3);
    slot.set_num(2, 3);
    start({&slot});
    manager.set_algorithm_parse_file("/nowhere");
    manager.ipmicmd_load_algorithm();
    manager.ipmicmd_debug_on_scheduler();
    manager.ipmicmd_debug_on_fan_alg();
    manager.ipmicmd_debug_on_fan_alg();
    manager.ipmicmd_debug_on_log_alg();
    manager.ipmicmd_debug_on();
    take_lines(~0u);
    EXPECT_EQ(new_files_of_a_cycle(), (file_names{"algorithm", "dao", "device", "ipmi_sdr_map"}));
    const std::string prefix = "common_thermal_manager::create_debug_";
    EXPECT_EQ(take_lines(128),
              (text_lines{prefix + "tdev_information BEGIN Debug tdev\n", prefix + "tdev_information END Debug tdev\n",
                          prefix + "talg_information BEGIN Debug talg\n", prefix + "talg_information END Debug talg\n",
                          prefix + "dao_information BEGIN Debug dao\n", prefix + "dao_information END Debug dao\n",
                          prefix + "mapping_information BEGIN Debug mapping\n",
                          prefix + "mapping_information END Debug mapping\n"}));
    EXPECT_EQ(new_files_of_a_cycle(), file_names{}) << "no rule logs anything";
    EXPECT_EQ(take_lines(128), (text_lines{"common_thermal_manager::create_log_alg_information BEGIN Debug log alg\n",
                                           "common_thermal_manager::create_log_alg_information END Debug log alg\n"}));
    EXPECT_EQ(new_files_of_a_cycle(),
              (file_names{"cap0", "cap1", "cap2", "cap3", "cap4", "cap5", "cap6", "pwrlmt_2-3"}));
    EXPECT_EQ(take_lines(128).size(), 6u);
    EXPECT_EQ(new_files_of_a_cycle(), file_names{"device_scheduler"});
    EXPECT_EQ(take_lines(128), (text_lines{prefix + "scheduler_information BEGIN Debug scheduler\n",
                                           prefix + "scheduler_information END Debug scheduler\n"}));
    EXPECT_EQ(new_files_of_a_cycle(), file_names{});
    EXPECT_EQ(lines_with("BEGIN Load algorithm"), 1) << "a reload waits for all of them";
    EXPECT_EQ(new_files_of_a_cycle(), file_names{}) << "and every request is served once";
}

TEST_F(diagnostics_test, snapshot_holds_the_texts_of_what_is_there_now_and_writes_the_log_rules_out) {
    scripted_rule old_rule(dao, "pid", 1, 0), new_rule(dao, "pid", 2, 0);
    counting_device device(8196);
    start({&device}, {&old_rule, nullptr});
    common_thermal_manager::create_debug_talg_information(50);
    set_rules({&new_rule});
    common_thermal_manager::create_debug_talg_information(51);
    device.polls = 6;
    common_thermal_manager::create_debug_tdev_information(52);
    EXPECT_EQ(diagnostic_text("algorithm.log.0"), old_rule.debugging() + "\nmetadata=[timestamp:50, rcords:1]\n");
    EXPECT_EQ(diagnostic_text("algorithm.log.1"), new_rule.debugging() + "\nmetadata=[timestamp:51, rcords:1]\n");
    EXPECT_EQ(diagnostic_text("device.log.0"), "\npolls=6\nmetadata=[timestamp:52, rcords:1]\n");
}

TEST_F(diagnostics_test, log_rules_are_written_out_by_their_own_request_and_by_a_snapshot) {
    const std::string key = "diagnostics_test." + std::to_string(::getpid());
    common_thermal_algorithm_log log(7100);
    log.set_parameter_size(1);
    log.set_parameter_x(1, key, 4);
    dao.update_dev(key, 4, 1.5f, false);
    log.poll(&dao, 40);
    start({}, {&log});
    const auto file = [&key](int number) {
        return "/tmp/thermal/log.7100.1." + std::to_string(number) + "." + key + ".4";
    };
    const std::string before = log.debugging();
    common_thermal_manager::create_debug_talg_information(50);
    EXPECT_TRUE(std::filesystem::remove(file(0)));
    EXPECT_EQ(diagnostic_text("algorithm.log.0"), before + "\nmetadata=[timestamp:50, rcords:1]\n")
        << "as it was ahead of its file";
    common_thermal_manager::create_log_alg_information(60);
    EXPECT_TRUE(std::filesystem::remove(file(1)));
}

TEST_F(diagnostics_test, schedule_shows_the_present_plan) {
    counting_device device(8196), other(8194);
    scripted_rule rules[] = {{dao, "pid", 1, 0}, {dao, "tier", 2, 0}};
    start({&device, &other}, {&rules[0], nullptr, &rules[1]});
    tick();
    common_thermal_manager::create_debug_scheduler_information(9);
    EXPECT_EQ(diagnostic_text("device_scheduler.log.0"),
              "\n000.00000=0=counting_device.1\n001.00000=1=counting_device.1\n016.00000=0=pid.1\n018.00000=2=tier.2"
              "\nmetadata=[timestamp:9, rcords:4]\n");
    set_rules({&rules[1]});
    tick();
    common_thermal_manager::create_debug_scheduler_information(10);
    EXPECT_EQ(diagnostic_text("device_scheduler.log.1"),
              "\n000.00000=0=counting_device.1\n001.00000=1=counting_device.1\n016.00000=0=tier.2"
              "\nmetadata=[timestamp:10, rcords:3]\n");
}

TEST_F(diagnostics_test, histories_tell_who_won_a_fan_a_cap_and_a_slot) {
    common_thermal_device_fan fan(1), silent(2);
    common_thermal_device_pci_slot slot(3);
    slot.set_num(1, 3);
    scripted_rule pid(dao, "pid", 1, alg::action_fan_map, {1});
    scripted_rule tier(dao, "tier", 2, alg::action_fan_map, {1});
    scripted_rule cap(dao, "cap", 3, alg::action_capping_cpu, {}, utils::talg_sensor_capping_cpu);
    scripted_rule limit(dao, "limit", 4, alg::action_powerlimit_pci);
    limit.set_action_powerlimit_pci(1, 3, 60);
    pid.ask(40);
    tier.ask(30);
    limit.ask(60);
    start({&fan, &silent, &slot}, {&pid, &tier, &cap, &limit});
    tick();
    for (const wish request : {wish(), wish(90), wish(90)}) {
        cap.ask(request);
        finish_cycle();
    }
    tier.ask(70);
    finish_cycle();
    const std::string now = std::to_string(platform_clock::wall_nanoseconds() / 1'000'000'000);
    dao.write_debug_fan_alg(1);
    dao.write_debug_cap_alg(1);
    dao.write_debug_pwrlmt_alg(1, 0x10003);
    for (const char* name : {"fan1.log.0", "cap0.log.0", "pwrlmt_1-3.log.0"}) {
        EXPECT_EQ(diagnostic_text(name).substr(0, now.size()), now) << "virtual time moves with the event loop only";
    }
    const auto without_times = [](const std::string& name) {
        std::string shown, line;
        std::istringstream text(diagnostic_text(name));
        while (std::getline(text, line) && !line.empty()) shown += line.substr(line.find('-') + 1) + "|";
        return shown;
    };
    EXPECT_EQ(without_times("fan1.log.0"), "pid.1-40.000000|tier.2-70.000000|");
    EXPECT_EQ(without_times("fan2.log.0"), "") << "nobody asked for this one";
    EXPECT_EQ(without_times("cap0.log.0"), "NA.0-65535|cap.3-90|");
    EXPECT_EQ(without_times("cap1.log.0"), "NA.0-65535|");
    EXPECT_EQ(without_times("pwrlmt_1-3.log.0"), ".0-0|limit.4-60|") << "no slot is free in the first cycle";
}

}  // namespace
