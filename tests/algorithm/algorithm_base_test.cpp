#include <cstring>
#include <stdexcept>

#include "algorithm/common_thermal_algorithm.hpp"
#include "tests/support/host_fixture.hpp"
#include "tests/support/rules_text.hpp"

namespace {

using utils = common_thermal_utils;

// Its result is what the test says.
class scripted_rule : public common_thermal_algorithm {
public:
    explicit scripted_rule(std::uint32_t support = ~0u)
        : common_thermal_algorithm("scripted", 4, utils::talg_dummy, support) {}
    void parse_parameters(ini_file::std_handler*, const std::string&) override {}
    void parse_action(ini_file::std_handler*, const std::string&) override {}
    void poll(common_thermal_dao*, unsigned long) override { set_result(next); }
    std::string debug() override { return {}; }

    void parse(const std::string& keys) {
        rules_text rules("[1.ALGORITHM]\n" + keys);
        parse_result_name(&rules, "1.ALGORITHM");
        parse_conditions(&rules, "1.ALGORITHM");
        parse_action_fan_map(&rules, "1.ALGORITHM");
        parse_action_pciegen_pwrbrk(&rules, "1.ALGORITHM");
        parse_action_powerlimit_pci(&rules, "1.ALGORITHM");
    }

    float next = 0.0f;
};

class algorithm_test : public host_fixture {};

TEST_F(algorithm_test, each_operator_compares_the_live_value_with_the_rule) {
    const std::tuple<const char*, utils::operator_t, const char*> rows[] = {
        {"OP_EQ", utils::OP_EQ, "="},    {"OP_LE", utils::OP_LE, "<="}, {"OP_GE \t", utils::OP_GE, ">="},
        {"OP_NE", utils::OP_NE, "<>"},   {"OP_LT", utils::OP_LT, "<"},  {"OP_GT", utils::OP_GT, ">"},
        {"OP_MASK", utils::OP_MASK, ""}, {"", utils::OP_LAST, ""},      {"OP_NON", utils::OP_NON, ""},
        {"op_ge", utils::OP_NON, ""},
    };
    for (const auto& [text, op, holds_where] : rows) {
        scripted_rule read, made;
        read.parse("CONDITION_COUNT=1\n1.CONDITION_KEY_PREFIX=x\n1.CONDITION_VAL=0.1\n1.CONDITION_OPS=" +
                   std::string(text));
        made.add_condition(1, "x", 0, op, 0.1f);
        for (const auto& [live, side] : {std::pair{std::nextafter(0.1f, 0.0f), '<'}, {0.1f, '='}, {0.10000001f, '>'}}) {
            dao.update_dev("x", 0, live, false);
            EXPECT_EQ(read.are_conditions_asserted(&dao), std::strchr(holds_where, side) != nullptr) << text << side;
            EXPECT_EQ(made.are_conditions_asserted(&dao), std::strchr(holds_where, side) != nullptr) << op << side;
        }
    }
}

TEST_F(algorithm_test, all_conditions_hold_or_none_does_from_pass_to_pass) {
    scripted_rule rule;
    EXPECT_TRUE(rule.are_conditions_asserted(&dao)) << "no condition";
    rule.add_condition(10, "b", -1, utils::OP_GT, 5.0f);
    rule.add_condition(2, "a", 1, utils::OP_EQ, 0.0f);
    EXPECT_FALSE(rule.are_conditions_asserted(&dao)) << "a missing value is not 0";
    dao.update_dev("a", 1, 0.0f, false);
    for (const auto& [live, holds] : {std::pair{6.0f, true}, {5.0f, false}, {7.0f, true}}) {
        dao.update_dev("b", -1, live, false);
        EXPECT_EQ(rule.are_conditions_asserted(&dao), holds) << live;
    }
    rule.add_condition(2, "a", 1, utils::OP_MASK, 0.0f);
    EXPECT_FALSE(rule.are_conditions_asserted(&dao)) << "the later condition took the number";
    const char* list = "[condition list]\na.1 - OP_MASK - val:0.000000\nb.-1 - OP_GT - val:5.000000\n[";
    EXPECT_NE(rule.get_debug_txt().find(list), std::string::npos) << rule.get_debug_txt();
}

TEST_F(algorithm_test, result_becomes_what_each_target_takes) {
    const std::tuple<float, int, int, int, bool> rows[] = {
        {2.9f, 2, 2, 1, true},      {-1.0f, 0, 0, 0, true},    {0.5f, 0, 0, 0, true},     {0.0f, 0, 0, 0, false},
        {300.0f, 44, 300, 1, true}, {65536.0f, 0, 0, 0, true}, {1e9f, 0, 51712, 1, true}, {1e20f, 255, 65535, 1, true},
    };
    std::uint16_t (common_thermal_algorithm::*const words[])() const = {
        &scripted_rule::get_action_sensor_capping_cpu_value, &scripted_rule::get_action_sensor_capping_dimm_value,
        &scripted_rule::get_action_sensor_capping_system_value, &scripted_rule::get_action_sensor_capping_nvme_value,
        &scripted_rule::get_action_sensor_capping_fan_value};
    scripted_rule rule, idle(0);
    for (scripted_rule* each : {&rule, &idle}) {
        each->parse("NAME=Z\nFAN_MAP_COUNT=1\n1.FAN_MAP=1\nPCI_MAP_COUNT=1\n1.PCI_LOCATION=2\n1.PCI_SLOT_NO=3\n");
    }
    for (const auto& [result, byte, word, permission, brake] : rows) {
        rule.next = idle.next = result;
        idle.polling(&dao, 0);
        take_lines(0);
        rule.polling(&dao, 0);
        EXPECT_TRUE(value_of("scripted.result", 4) == result && value_of("custom.Z.result") == result) << result;
        EXPECT_EQ(rule.get_action_fan_duty_by_instance(1), byte) << result;
        EXPECT_EQ(rule.get_action_powerlimit_pci_by_location_slot_no(2, 3), byte) << result;
        EXPECT_EQ(rule.get_action_pciegen_pwrbrk_by_location_slot_no(2, 3), brake) << result;
        for (const auto get : words) EXPECT_EQ((rule.*get)(), word) << result;
        EXPECT_EQ(rule.get_action_sensor_capping_power_permission_value(), permission) << result;
    }
    EXPECT_EQ(take_lines(0x8000 | 0x1000),
              (text_lines{"set_action_pciegen_pwrbrk[20003][01]\n", "set_action_powerlimit_pci[20003][255]\n",
                          "common_thermal_algorithm - scripted.4\n",
                          "common_thermal_algorithm - custom.Z.result = 100000002004087734272.000000\n"}));
    EXPECT_TRUE(idle.get_action_fan_duty_by_instance(1) == 0 && (idle.*words[0])() == 65535);
    EXPECT_EQ(idle.get_action_powerlimit_pci_by_location_slot_no(2, 3), 100);
}

TEST_F(algorithm_test, lists_take_low_bits_defaults_and_any_count) {
    const std::tuple<const char*, const char*, bool> rows[] = {
        {"FAN_MAP_COUNT=4\n1.FAN_MAP=257\n2.FAN_MAP=-1\n4.FAN_MAP=12abc\n", "\nfan0=0\nfan1=0\nfan12=0\nfan255=0",
         true},
        {"FAN_MAP_COUNT=2147483647\n2.FAN_MAP=5\nCONDITION_COUNT=2147483647\n", "\nfan0=0\nfan5=0", false},
        {"FAN_MAP_COUNT=-2147483648\nCONDITION_COUNT=1\n1.CONDITION_KEY_PREFIX=x\n1.CONDITION_OPS=OP_EQ\n", "", true},
        {"CONDITION_COUNT=2\n2.CONDITION_KEY_PREFIX=x\n2.CONDITION_OPS=OP_EQ\n", "", false},
        {"PCI_MAP_COUNT=2\n1.PCI_LOCATION=65538\n1.PCI_SLOT_NO=-1\n",
         "\n[pciegen_pwrbrk list]\npci_0=0\npci_196607=0\n[powerlimit pci list]\npci_0=100\npci_196607=100", true},
    };
    dao.update_dev("x", 0, 0.0f, false);
    for (const auto& [keys, lists, asserted] : rows) {
        scripted_rule rule;
        rule.parse(keys);
        EXPECT_NE(rule.get_debug_txt().find(lists + std::string("\n[p")), std::string::npos) << rule.get_debug_txt();
        EXPECT_EQ(rule.are_conditions_asserted(&dao), asserted) << keys;
    }
    EXPECT_THROW(scripted_rule().parse("PCI_MAP_COUNT=1\n1.PCI_LOCATION=.5\n"), std::invalid_argument);
    EXPECT_THROW(scripted_rule().parse("PCI_MAP_COUNT=1\n1.PCI_SLOT_NO=99999999999999999999\n"), std::out_of_range);
}

}  // namespace
