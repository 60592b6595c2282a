#include <algorithm>
#include <sstream>

#include "algorithm/config/pci_limits.hpp"
#include "algorithm/config/spike_pci_list.hpp"
#include "algorithm/control/support_list_pci_pid.hpp"
#include "algorithm/control/support_list_pci_tier.hpp"
#include "tests/support/rule_fixture.hpp"

namespace {

using rule_pointer = std::unique_ptr<common_thermal_algorithm>;

template <class Algorithm>
rule_pointer make() {
    return std::make_unique<Algorithm>(1);
}

// A list class as this test drives it: a row's number comes out as `row_key` puts it in.
struct list_class {
    rule_pointer (*make)() = nullptr;
    const char* count_key = nullptr;
    const char* slot_keys = nullptr;  // of each record, "#" for its number
    const char* row_keys = nullptr;   // that the row needs beside its number
    const char* row_key = nullptr;    // takes the number
    const char* written = nullptr;    // where it comes out at the record's instance; null for the result
    bool needs_three = false;
};

constexpr const char* pid_slot = "#.PARAMETER_T_PREFIX=one\n#.PARAMETER_F_PREFIX=full\n";
constexpr const char* to_target = "#.PARAMETER_SPIKE_TARGET_PREFIX=t\n#.PARAMETER_SPIKE_TARGET_INST=#\n";
constexpr const char* pid_count = "PARAMETER_TFXYZPID_COUNT";
constexpr const char* spike_count = "PARAMETER_XYZSPIKE_COUNT";

const list_class list_classes[] = {
    {make<common_thermal_algorithm_support_list_pci_pid>, pid_count, pid_slot, "", "R_MAX", nullptr},
    {make<common_thermal_algorithm_support_list_pci_pid_v2>, pid_count, pid_slot, "", "R_MAX", nullptr},
    {make<common_thermal_algorithm_support_list_pci_pid_v3>, pid_count, pid_slot, "", "R_MAX", nullptr},
    {make<common_thermal_algorithm_support_list_pci_tier>, "PARAMETER_TXYZABCD_COUNT", "", "#.PARAMETER_R_MAX.@=99\n",
     "D", nullptr},
    {make<common_thermal_algorithm_config_pci_max_watt>, "PARAMETER_XYZW_COUNT",
     "#.PARAMETER_W_PREFIX=t\n#.PARAMETER_W_INST=#\n", "", "W", "4PMW.t"},
    {make<common_thermal_algorithm_config_pci_list_threshold>, "PARAMETER_TXYZ_COUNT",
     "#.PARAMETER_T_PREFIX=t\n#.PARAMETER_T_INST=#\n", "", "CRITICAL", "3SC.t"},
    {make<common_thermal_algorithm_config_spike_pci_list>, spike_count, to_target, "", "SPIKE_MAX", "1SMC.t", true},
    {make<common_thermal_algorithm_config_spike_delta_pci_list>, spike_count, to_target, "", "SPIKE_DELTA", "1SDT.t",
     true},
};

std::string numbered(std::string text, std::size_t record, std::size_t row = 0) {
    for (std::size_t at = 0; (at = text.find_first_of("#@", at)) != std::string::npos;) {
        text.replace(at, 1, std::to_string(text[at] == '#' ? record : row));
    }
    return text;
}

// Keys of the identity, each given as "x y z".
std::string identity_keys(std::size_t record, std::size_t row, const std::string& numbers) {
    std::istringstream words(numbers);
    std::string keys, number;
    for (const char* axis : {"X", "Y", "Z"}) {
        words >> number;
        keys += numbered("#.PARAMETER_" + std::string(axis) + ".@=", record, row) + number + "\n";
    }
    return keys;
}

constexpr const char* slot_identity =
    "#.PARAMETER_X_PREFIX=x\n#.PARAMETER_X_INST=#\n#.PARAMETER_Y_PREFIX=y\n#.PARAMETER_Y_INST=#\n"
    "#.PARAMETER_Z_PREFIX=z\n#.PARAMETER_Z_INST=#\n";

class pci_lists_test : public rule_test {
protected:
    // What the cards of slots 1, 2, ... tell, "x y z" each; "-" is never written.
    static void insert(common_thermal_dao& store, const std::vector<std::string>& cards) {
        for (std::size_t slot = 0; slot < cards.size(); ++slot) {
            std::istringstream words(cards[slot]);
            std::string number;
            for (const char* axis : {"x", "y", "z"}) {
                if (words >> number; number != "-") {
                    store.update_dev(axis, static_cast<int>(slot + 1), std::stof(number), false);
                }
            }
        }
    }
    // The row that each slot took in the first pass, 0 for none; for a result that is the largest alone.
    static std::vector<unsigned> rows_taken(const list_class& each, const std::vector<std::string>& rows,
                                            const std::vector<std::string>& cards, const std::string& count) {
        std::string text = "PARAMETER_COUNT=" + std::to_string(cards.size()) + "\n";
        for (std::size_t slot = 1; slot <= cards.size(); ++slot) {
            text += numbered(slot_identity + std::string(each.slot_keys) + "#.", slot) + each.count_key + "=" + count +
                    "\n";
            for (std::size_t row = 1; row <= rows.size(); ++row) {
                text += identity_keys(slot, row, rows[row - 1]) + numbered(each.row_keys, slot, row) +
                        numbered("#.PARAMETER_" + std::string(each.row_key) + ".@=@\n", slot, row);
            }
        }
        const rule_pointer rule = each.make();
        read(*rule, text);
        common_thermal_dao store;
        insert(store, cards);
        store.update_dev("one", 0, 1.0f, false);
        store.update_dev("full", 0, 1000.0f, false);
        rule->polling(&store, 0);
        std::vector<unsigned> taken;
        for (int slot = 1; slot <= static_cast<int>(cards.size()); ++slot) {
            taken.push_back(saturate_to_unsigned(each.written == nullptr ? value_in(store, rule->get_name() + ".result")
                                                                         : value_in(store, each.written, slot)));
        }
        return taken;
    }
};

TEST_F(pci_lists_test, first_row_whose_three_numbers_match_is_taken) {
    // Rows, the card, the row taken; last, by a list that needs three numbers.
    const std::tuple<std::vector<std::string>, const char*, unsigned, unsigned> cases[] = {
        {{"4318 65535 65535"}, "4318 1 9", 1, 1},
        {{"4318 8000 7", "4318 9000 7", "4318 9000 65535"}, "4318 9000 7", 2, 2},
        {{"65535 65535 65535", "4318 8000 7"}, "4318 8000 7", 1, 1},
        {{"4318 8000 7", "65535 65535 65535"}, "4318 8000 8", 2, 2},
        // Fractions are cut on both sides, and what is left keeps 16 bits.
        {{"4318 8000 7.9"}, "4318.9 8000 7", 1, 1},
        {{"69854 8000 7"}, "4318 73536 7", 1, 1},
        {{"65536 8000 7"}, "65536 8000 7", 1, 1},
        {{"131071 131071 inf"}, "4318 8000 7", 1, 1},
        {{"255 65535 65535", "65535 65535 65535"}, "65535 8000 7", 2, 2},
        {{"4318 8000 7", "1 1 65535"}, "inf 1 1", 0, 0},
        // Negative numbers and NaN count as 0; they never make a wildcard.
        {{"-1 nan 7"}, "65535 65535 7", 0, 0},
        {{"-1 nan -inf"}, "nan -4318 -0.5", 1, 1},
        // Without its first or second number a card is not there; many have no third.
        {{"65535 65535 65535"}, "0 8000 7", 0, 0},
        {{"65535 65535 65535"}, "4318 - 7", 0, 0},
        {{"4318 8000 0"}, "4318 8000 -", 1, 0},
        {{"4318 8000 7", "4318 8000 65535"}, "4318 8000 0", 2, 0},
        {{"4318 8000 7"}, "4318 8000 0", 0, 0},
    };
    for (const list_class& each : list_classes) {
        for (const auto& [rows, card, taken, taken_of_three] : cases) {
            EXPECT_EQ(rows_taken(each, rows, {card}, std::to_string(rows.size()))[0],
                      each.needs_three ? taken_of_three : taken)
                << each.make()->get_name() << ": " << card << " of " << rows[0];
        }
    }
}

TEST_F(pci_lists_test, slot_without_a_card_ends_the_pass_and_an_unknown_card_does_not) {
    const std::vector<std::string> rows{"1 1 65535", "2 2 65535", "3 3 65535"};
    const std::pair<std::vector<std::string>, std::vector<unsigned>> cases[] = {
        {{"2 2 1", "1 1 1", "3 3 1"}, {2, 1, 3}}, {{"2 2 1", "9 9 9", "1 1 1"}, {2, 0, 1}},
        {{"1 1 1", "0 1 1", "3 3 1"}, {1, 0, 0}}, {{"1 1 1", "1 0 1", "3 3 1"}, {1, 0, 0}},
        {{"- - -", "1 1 1", "3 3 1"}, {0, 0, 0}}, {{"3 3 1", "2 2 1", "1 1 -"}, {3, 2, 1}},
    };
    for (const list_class& each : list_classes) {
        for (auto [cards, taken] : cases) {
            if (each.written == nullptr) std::ranges::fill(taken, *std::ranges::max_element(taken));
            if (each.needs_three && cards[2] == "1 1 -") taken[2] = 0;
            EXPECT_EQ(rows_taken(each, rows, cards, "3"), taken) << each.make()->get_name() << ": " << cards[1];
        }
    }
}

TEST_F(pci_lists_test, count_decides_how_many_rows_are_looked_at) {
    const std::vector<std::string> rows{"9 9 9", "65535 65535 65535"};
    for (const list_class& each : list_classes) {
        for (const auto& [count, taken] : {std::pair{"1", 0u}, {"2", 2u}, {"0", 0u}, {"-1", 0u}, {"2147483647", 2u}}) {
            EXPECT_EQ(rows_taken(each, rows, {"1 1 1"}, count)[0], taken) << each.make()->get_name() << ": " << count;
        }
    }
}

class pci_pid_test : public pci_lists_test {
protected:
    using pid_pointer = std::unique_ptr<support_list_pci_pid>;

    static std::vector<pid_pointer> all_classes() {
        std::vector<pid_pointer> rules(3);
        rules[0] = std::make_unique<common_thermal_algorithm_support_list_pci_pid>(1);
        rules[1] = std::make_unique<common_thermal_algorithm_support_list_pci_pid_v2>(1);
        rules[2] = std::make_unique<common_thermal_algorithm_support_list_pci_pid_v3>(1);
        for (const pid_pointer& rule : rules) {
            rule->set_parameter_size(2);
            for (const unsigned slot : {1u, 2u}) {
                const int instance = static_cast<int>(slot);
                rule->set_parameter_dao_t(slot, "t", instance);
                rule->set_parameter_dao_f(slot, "f", instance);
                rule->set_parameter_dao_x(slot, "x", instance);
                rule->set_parameter_dao_y(slot, "y", instance);
                rule->set_parameter_dao_z(slot, "z", instance);
                rule->set_parameter_tfxyzpid_count(slot, 3);
                set_row(*rule, slot, 1, {1, 0.5f, 0.25f, 65, 60, 100});
                set_row(*rule, slot, 2, {2, 0, 0, 10, 20, 80});
                set_row(*rule, slot, 3, {0, 0, 0, 10, 20, 0});
            }
        }
        return rules;
    }
    // Row n is of card n.
    static void set_row(support_list_pci_pid& rule, unsigned slot, unsigned row, const pid_setting& setting) {
        const auto card = static_cast<float>(row);
        rule.set_parameter_x(slot, row, card);
        rule.set_parameter_y(slot, row, card);
        rule.set_parameter_z(slot, row, 65535);
        rule.set_parameter_kp(slot, row, setting.kp);
        rule.set_parameter_ki(slot, row, setting.ki);
        rule.set_parameter_kd(slot, row, setting.kd);
        rule.set_parameter_hi(slot, row, setting.target_high);
        rule.set_parameter_lo(slot, row, setting.target_low);
        rule.set_parameter_r_max(slot, row, setting.r_max);
    }
    void give(int slot, float card, float t, float f) {
        for (const auto& [name, value] : {std::pair{"x", card}, {"y", card}, {"t", t}, {"f", f}}) {
            dao.update_dev(name, slot, value, false);
        }
    }
};

TEST_F(pci_pid_test, history_and_hold_outlive_the_adapter) {
    // Card, t, f and the result of each class; card 1 has the band 60 to 65, card 2 the reversed one 10 to 20.
    const std::tuple<float, float, float, float, float, float> passes[] = {
        {1, 70, 50, 58.75f, 58.75f, 58.75f},  // +5 +2.5 +1.25
        {2, 5, 50, 50, 50, 50},               // the same error 5: no change, kp 2
        {9, 99, 50, 0, 0, 0},                 // no row: the history stands
        {2, 4, 50, 52, 52, 52},               // 6 after 5
        {2, 15, 90, 78, 80, 90},              // -12; cut to 80; held, not cut
        {1, 70, 40, 50.25f, 48.75f, 48.75f},  // the error before the last was 6, or 0
        {1, 62, 95, 87.5f, 95, 95},
        {2, 15, 30, 30, 30, 95},  // held over the change of the card
        {3, 15, 70, 0, 0, 95},    // a limit of 0 lets nothing but the hold through
        {3, 9, 70, 0, 0, 0},
        {2, 15, 20, 18, 20, 20},  // the error of the limited pass was 1
    };
    std::vector<pid_pointer> rules = all_classes();
    for (const auto& [card, t, f, run_on, clear, hold] : passes) {
        give(1, card, t, f);
        EXPECT_EQ(result_of(*rules[0]), run_on) << card << ": " << t << ", " << f;
        EXPECT_EQ(result_of(*rules[1]), clear) << card << ": " << t << ", " << f;
        EXPECT_EQ(result_of(*rules[2]), hold) << card << ": " << t << ", " << f;
    }
}

TEST_F(pci_pid_test, largest_output_counts_each_slot_has_its_history_and_all_share_the_hold) {
    // t and f of either slot with card 1, the result of the first and the third class.
    const std::tuple<float, float, float, float, float, float> passes[] = {
        {70, 50, 67, 60, 63.5f, 63.5f},                                 // 58.75 and 60 +2 +1 +0.5
        {70, 50, 67, 30, 51.25f, 51.25f}, {62, 40, 62, 70, 67.5f, 40},  // the first slot's f holds both
        {62, 20, 67, 10, 21.25f, 40},  // the second slot ends the hold, behind the first
        {62, 20, 62, 90, 87, 20},
    };
    std::vector<pid_pointer> rules = all_classes();
    for (const auto& [t1, f1, t2, f2, run_on, hold] : passes) {
        give(1, 1, t1, f1);
        give(2, 1, t2, f2);
        EXPECT_EQ(result_of(*rules[0]), run_on) << t1 << ", " << t2;
        EXPECT_EQ(result_of(*rules[2]), hold) << t1 << ", " << t2;
    }
}

TEST_F(pci_pid_test, lost_reading_counts_as_zero_and_the_pass_goes_on) {
    // Card, the reading that is there, the result.
    const std::tuple<float, const char*, float, float> cases[] = {
        {1, "f", 50, 0}, {2, "f", 50, 70}, {1, "t", 70, 8.75f}, {2, "t", 5, 10}};
    for (const auto& [card, name, value, result] : cases) {
        common_thermal_dao store;
        insert(store, {std::to_string(card) + " " + std::to_string(card) + " -"});
        store.update_dev(name, 1, value, false);
        EXPECT_EQ(result_of(*all_classes()[0], store), result) << card << " with " << name;
    }
}

TEST_F(pci_lists_test, tier_holds_the_temperature_in_the_range_of_the_row_and_cuts_the_output) {
    const std::string keys =
        "PARAMETER_COUNT=1\n#.PARAMETER_T_PREFIX=t\n#.PARAMETER_T_INST=1\n#.PARAMETER_TXYZABCD_COUNT=1\n"
        "#.PARAMETER_A.@=0.0001\n#.PARAMETER_B.@=-0.01\n#.PARAMETER_C.@=1.25\n#.PARAMETER_D.@=-3\n";
    // Limits of the temperature and of the output, the temperature, the result.
    const std::tuple<const char*, const char*, const char*, const char*, float> cases[] = {
        {"40", "80", "100", "30", 37.4f}, {"40", "80", "100", "40", 37.4f},  {"40", "80", "100", "90", 84.2f},
        {"40", "80", "50", "90", 50},     {"80", "40", "100", "30", 84.2f},  {"80", "40", "100", "90", 84.2f},
        {"40", "80", "100", "", 37.4f},   {"0", "0", "100", "60", 0},        {"40", "80", "0", "60", 0},
        {"40", "80", "100", "nan", 0},    {"40", "80", "100", "inf", 84.2f}, {"40", "80", "100", "60", 57.6f}};
    common_thermal_algorithm_support_list_pci_tier rule(1);
    for (const auto& [t_min, t_max, r_max, t, result] : cases) {
        const std::string limits = std::string("#.PARAMETER_TMIN.@=") + t_min + "\n#.PARAMETER_TMAX.@=" + t_max +
                                   "\n#.PARAMETER_R_MAX.@=" + r_max + "\n";
        read(rule, numbered(keys + limits + slot_identity, 1, 1) + identity_keys(1, 1, "4318 65535 0"));
        common_thermal_dao store;
        insert(store, {"4318 1 -"});
        if (*t != '\0') store.update_dev("t", 1, std::stof(t), false);
        take_lines(0);
        EXPECT_FLOAT_EQ(result_of(rule, store), result) << t_min << " to " << t_max << ": " << t;
    }
    const text_lines lines = take_lines(0xC000);
    EXPECT_EQ(lines.at(0), rule.get_name() + "::poll - [01]10DE-FFFF-0000\n");
    EXPECT_EQ(lines.at(1),
              rule.get_name() + "::custom..result - [57.60]=0.00, -0.01, 1.25, -3.00, 60.00, 40.00, 80.00, 100.00\n");
}

TEST_F(pci_lists_test, power_limit_is_whole_watts_and_the_last_matched_slot_gives_the_result) {
    common_thermal_algorithm_config_pci_max_watt rule(1);
    std::string text = "PARAMETER_COUNT=2\n";
    for (const std::size_t slot : {1u, 2u}) {
        text += numbered(slot_identity + std::string("#.PARAMETER_W_PREFIX=slot.max_power\n#.PARAMETER_W_INST=#\n"
                                                     "#.PARAMETER_XYZW_COUNT=2\n"),
                         slot) +
                identity_keys(slot, 1, "1 1 65535") + identity_keys(slot, 2, "2 2 0") +
                numbered("#.PARAMETER_W.1=75.9\n#.PARAMETER_W.2=300\n", slot);
    }
    read(rule, text);
    // Cards, the limits of both slots, the result. What was written stays.
    const std::tuple<std::vector<std::string>, float, float, float> passes[] = {
        {{"2 2 0", "1 1 5"}, 300, 75, 75}, {{"1 1 5", "2 2 5"}, 75, 75, 75},    {{"9 9 9", "2 2 0"}, 75, 300, 300},
        {{"0 1 1", "1 1 5"}, 75, 300, 0},  {{"2 2 0", "0 0 0"}, 300, 300, 300},
    };
    for (const auto& [cards, first, second, result] : passes) {
        insert(dao, cards);
        rule.polling(&dao, 0);
        EXPECT_EQ(value_of("4PMW.slot.max_power", 1), first) << cards[0] << ", " << cards[1];
        EXPECT_EQ(value_of("4PMW.slot.max_power", 2), second) << cards[0] << ", " << cards[1];
        EXPECT_EQ(value_of(rule.get_name() + ".result"), result) << cards[0] << ", " << cards[1];
    }
    EXPECT_NE(rule.debug().find("\ncache_x=2.000000\ncache_y=2.000000\ncache_z=0.000000\ncache_w=300.000000"),
              std::string::npos);
}

TEST_F(pci_lists_test, thresholds_of_the_matched_row_go_to_the_sensor_and_stay_there) {
    common_thermal_algorithm_config_pci_list_threshold rule(1);
    read(rule, "PARAMETER_COUNT=1\n" + numbered(slot_identity, 1) +
                   "1.PARAMETER_T_PREFIX=slot.temperature\n1.PARAMETER_T_INST=4\n1.PARAMETER_TXYZ_COUNT=1\n" +
                   identity_keys(1, 1, "1 1 65535") +
                   "1.PARAMETER_NON_CRITICAL.1=85.5\n1.PARAMETER_CRITICAL.1=95\n1.PARAMETER_NON_RECOVERABLE.1=255\n");
    for (const char* card : {"1 1 0", "9 9 9", "0 0 0"}) {
        insert(dao, {card});
        rule.polling(&dao, 0);
        EXPECT_EQ(value_of("3SNC.slot.temperature", 4), 85.5f) << card;
        EXPECT_EQ(value_of("3SC.slot.temperature", 4), 95.0f) << card;
        EXPECT_EQ(value_of("3SNR.slot.temperature", 4), 255.0f) << card;
        EXPECT_EQ(value_of(rule.get_name() + ".result"), 0.0f) << card;
    }
}

TEST_F(pci_lists_test, each_key_reaches_its_own_field) {
    const auto parsed = [](common_thermal_algorithm& rule, const std::string& keys) {
        read(rule, "PARAMETER_COUNT=1\n" +
                       numbered("#.PARAMETER_T_PREFIX=t\n#.PARAMETER_T_INST=2\n#.PARAMETER_F_PREFIX=f\n"
                                "#.PARAMETER_F_INST=3\n#.PARAMETER_R_MAX.@=10\n" +
                                    keys,
                                1, 1) +
                       numbered(slot_identity, 1) + identity_keys(1, 1, "7 8 9"));
        return rule.debug();
    };
    const std::string slot_keys = "\nx_key=x.1\ny_key=y.1\nz_key=z.1\nx=7.000000\ny=8.000000\nz=9.000000";
    common_thermal_algorithm_support_list_pci_pid_v2 pid(1);
    EXPECT_EQ(parsed(pid,
                     "#.PARAMETER_TFXYZPID_COUNT=1\n#.PARAMETER_KP.@=11\n#.PARAMETER_KI.@=12\n#.PARAMETER_KD.@=13\n"
                     "#.PARAMETER_HI.@=14\n#.PARAMETER_LO.@=15\n"),
              "\nindex=1\nt_key=t.2\nf_key=f.3" + slot_keys +
                  "\nkp=11.000000\nki=12.000000\nkd=13.000000\nhi=14.000000\nlo=15.000000\nr_max=10.000000");
    common_thermal_algorithm_support_list_pci_tier tier(1);
    EXPECT_EQ(parsed(tier,
                     "#.PARAMETER_TXYZABCD_COUNT=1\n#.PARAMETER_TMIN.@=11\n#.PARAMETER_TMAX.@=12\n"
                     "#.PARAMETER_A.@=13\n#.PARAMETER_B.@=14\n#.PARAMETER_C.@=15\n#.PARAMETER_D.@=16\n"),
              "\nindex=1\nt_key=t.2" + slot_keys +
                  "\nt=11.000000 - 12.000000\na=13.000000\nb=14.000000\nc=15.000000\nd=16.000000"
                  "\nr_max=10.000000\nr=a * (x^3) + b * (x^2) + c * x + d");
    EXPECT_EQ(pid_error(50, NAN, 40), 0.0f) << "an edge that is no number";
    EXPECT_EQ(pid_error(50, 60, NAN), 0.0f);
}

}  // namespace
