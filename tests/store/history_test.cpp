#include "tests/support/diagnostics.hpp"
#include "tests/support/host_fixture.hpp"

namespace {

class history_test : public host_fixture {
protected:
    // The results 1, 2, ... of rule pid.1 at these times.
    template <class Update>
    static void enter(unsigned from, unsigned to, const Update& update) {
        for (unsigned i = from; i <= to; ++i) update(1000ul + i, i);
    }
    static std::size_t lines(const std::string& name) {
        const std::string text = diagnostic_text(name);
        return static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
    }

    diagnostics_to_itself alone;
};

TEST_F(history_test, keeps_changes_of_winner_or_value_and_goes_on_from_what_is_in_force) {
    dao.update_debug_fan_alg(90, 1, "pid", 1, 10);  // nobody knows yet how many fans there are
    dao.reserve_fan_alg(4);
    const std::tuple<unsigned long, const char*, unsigned, float> results[] = {
        {100, "pid", 3, 40.25f},  {101, "pid", 3, 40.75f},  {102, "pid", 4, 40.75f},
        {103, "tier", 4, 40.75f}, {104, "tier", 4, 300.0f}, {105, "tier", 4, 44.0f},  // a duty has eight bits
    };
    for (const auto& [now, name, instance, value] : results) dao.update_debug_fan_alg(now, 4, name, instance, value);
    dao.write_debug_fan_alg(200);
    EXPECT_EQ(diagnostic_text("fan4.log.0"),
              "100-pid.3-40.250000\n102-pid.4-40.750000\n103-tier.4-40.750000\n104-tier.4-300.000000\n"
              "\nmetadata=[timestamp:200, rcords:4]\n");
    EXPECT_EQ(diagnostic_text("fan1.log.0"), "\nmetadata=[timestamp:200, rcords:0]\n");

    dao.update_debug_fan_alg(201, 8, "tier", 4, 44);  // shares the row of fan 4
    dao.write_debug_fan_inst_alg_by_fan_index(210, 0);
    dao.write_debug_fan_inst_alg_by_fan_index(210, 4);  // no such row
    EXPECT_EQ(diagnostic_text("fan4.log.1"), "200-tier.4-300.000000\n\nmetadata=[timestamp:210, rcords:1]\n");
    for (unsigned long now = 220; now < 225; ++now) dao.write_debug_fan_inst_alg_by_fan_index(now, 0);
    EXPECT_EQ(diagnostic_text("fan4.log.1"), "223-tier.4-300.000000\n\nmetadata=[timestamp:224, rcords:1]\n")
        << "behind number 5 comes 1";
    EXPECT_EQ(diagnostic_text("fan4.log.5").substr(0, 4), "222-");
    EXPECT_EQ(diagnostic_text("fan4.log.0").substr(0, 4), "100-");
}

TEST_F(history_test, a_full_one_goes_to_its_file_at_the_record_that_fills_it) {
    dao.reserve_fan_alg(63);
    const auto fan = [this](unsigned long now, unsigned i) { dao.update_debug_fan_alg(now, 63, "pid", i, 50); };
    enter(1, 64, fan);
    EXPECT_EQ(lines("fan63.log.0"), 0u);
    enter(65, 65, fan);
    EXPECT_EQ(lines("fan63.log.0"), 65u + 2);
    enter(66, 128, fan);
    EXPECT_EQ(lines("fan63.log.1"), 0u) << "64 records, the one in force among them";
    enter(129, 129, fan);
    EXPECT_EQ(diagnostic_text("fan63.log.1").substr(0, 40), "1065-pid.65-50.000000\n1066-pid.66-50.000");

    const auto cap = [this](unsigned long now, unsigned i) { dao.update_debug_cap_alg(now, 6, "NA", 0, i); };
    dao.update_debug_cap_alg(1, 7, "pid", 1, 1);
    enter(1, 585, cap);
    EXPECT_EQ(lines("cap6.log.0"), 585u + 2);
    EXPECT_EQ(diagnostic_text("cap6.log.0").substr(0, 22), "1001-NA.0-1\n1002-NA.0-");
}

TEST_F(history_test, one_that_finds_no_file_loses_its_oldest_record_and_nothing_else) {
    for (const char* name : {"cap6.log.0", "cap6.log.1", "cap6.log.2"}) block_diagnostics(name);
    const auto cap = [this](unsigned long now, unsigned i) { dao.update_debug_cap_alg(now, 6, "NA", 0, i); };
    enter(1, 587, cap);  // tries at 585 and ahead of each further one
    enter(588, 588, cap);
    EXPECT_EQ(diagnostic_text("cap6.log.3").substr(0, 12), "1003-NA.0-3\n");
    EXPECT_EQ(lines("cap6.log.3"), 585u + 2);

    dao.reserve_fan_alg(1);
    for (const int number : {0, 1, 2, 3, 4, 5}) block_diagnostics("fan1.log." + std::to_string(number));
    enter(1, 5000, [this](unsigned long now, unsigned i) { dao.update_debug_fan_alg(now, 1, "pid", i, 1); });
    remove_diagnostics();
    dao.write_debug_fan_alg(9000);
    const auto names = diagnostic_names();
    ASSERT_EQ(names.size(), 1u);
    EXPECT_EQ(lines(*names.begin()), 4096u + 2);
}

TEST_F(history_test, slots_share_one_list_and_only_the_one_that_overfills_it_is_written) {
    constexpr unsigned long slot = 0x10003, other = 0x2000A;
    dao.update_debug_pwrlmt_alg(5, other, "", 0, 0);
    dao.update_debug_pwrlmt_alg(6, other, "NA", 0, 100);
    const auto limit = [this](unsigned long now, unsigned i) {
        dao.update_debug_pwrlmt_alg(now, slot, "tier", 2, static_cast<std::uint16_t>(i));
        dao.update_debug_pwrlmt_alg(now, other, "NA", 0, 100);
    };
    enter(1, 4093, limit);
    EXPECT_TRUE(diagnostic_names().empty());
    enter(4094, 4094, limit);
    EXPECT_EQ(lines("pwrlmt_1-3.log.0"), 4094u + 2);
    for (const unsigned long now : {70ul, 80ul}) dao.write_debug_pwrlmt_alg(now, other);
    EXPECT_EQ(diagnostic_text("pwrlmt_2-10.log.0"), "5-.0-0\n6-NA.0-100\n\nmetadata=[timestamp:70, rcords:2]\n");
    EXPECT_EQ(diagnostic_text("pwrlmt_2-10.log.1"), "70-NA.0-100\n\nmetadata=[timestamp:80, rcords:1]\n");

    for (unsigned long now = 81; now < 85; ++now) dao.write_debug_pwrlmt_alg(now, other);
    EXPECT_EQ(diagnostic_text("pwrlmt_2-10.log.0").substr(0, 4), "83-N") << "behind number 4 comes 0";

    // Without files the list keeps its size, and a slot what is in force.
    remove_diagnostics();
    for (const int number : {0, 1, 2, 3, 4}) block_diagnostics("pwrlmt_1-3.log." + std::to_string(number));
    enter(5000, 9999, limit);
    remove_diagnostics();
    dao.write_debug_pwrlmt_alg(20000, slot);
    ASSERT_EQ(diagnostic_names().size(), 1u);
    const std::string name = *diagnostic_names().begin();
    EXPECT_EQ(lines(name), 4094u + 2);
    EXPECT_EQ(diagnostic_text(name).substr(0, 18), "6906-tier.2-5906\n6");
}

TEST_F(history_test, snapshot_files_take_five_numbers_in_turn_and_stand_in_key_order) {
    dao.write_dao_list(7);
    EXPECT_EQ(diagnostic_text("dao.log.0"), "\nmetadata=[timestamp:7, rcords:0]\n");
    dao.update_dev(std::string(600, 'k'), 1, 1.5f, false);
    dao.update_dev("a", -1, 2.0f, false);
    dao.update_ipmi_sdr_key_dao("b", "second", 2);
    dao.update_ipmi_sdr_key_dao("a", "first", 1);
    dao.update_debug_tdev("fan", 10, "ten");
    dao.update_debug_tdev("fan", 9, "old");
    dao.update_debug_tdev("fan", 9, "nine\n");
    dao.update_debug_scheduler(16, 2, 7, "pid", 3);
    dao.update_debug_scheduler(3, 12, 40, "fan", -1);
    block_diagnostics("dao.log.1");
    for (unsigned long now = 8; now < 12; ++now) dao.write_dao_list(now);
    dao.write_debug_tdev_list(13);
    dao.write_debug_scheduler_list(14);
    dao.write_debug_talg_list(15);
    dao.write_debug_mapping_list(16);
    EXPECT_EQ(diagnostic_text("dao.log.2"),
              "a.-1=2.000000\n" + std::string(600, 'k') + ".1=1.500000\n\nmetadata=[timestamp:9, rcords:2]\n");
    EXPECT_EQ(diagnostic_text("ipmi_sdr_map.log.4"), "first - 1\nsecond - 2\n\nmetadata=[timestamp:11, rcords:2]\n");
    EXPECT_EQ(diagnostic_text("device.log.0"), "tennine\n\nmetadata=[timestamp:13, rcords:2]\n");
    EXPECT_EQ(diagnostic_text("device_scheduler.log.0"),
              "\n003.00012=40=fan.-1\n016.00002=7=pid.3\nmetadata=[timestamp:14, rcords:2]\n");
    EXPECT_EQ(diagnostic_text("algorithm.log.0"), "\nmetadata=[timestamp:15, rcords:0]\n");
    dao.write_dao_list(17);
    EXPECT_EQ(diagnostic_text("dao.log.0").substr(0, 5), "a.-1=") << "the sixth is the first again";
}

}  // namespace
