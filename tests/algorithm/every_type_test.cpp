#include <stdexcept>

#include "algorithm/common_thermal_algorithm_parser.hpp"
#include "bench/allocation_counter.hpp"
#include "bench/rules_of_every_type.hpp"
#include "tests/support/host_fixture.hpp"
#include "tests/support/rules_text.hpp"

namespace {

using parser = common_thermal_algorithm_parser;
using rule_pointer = std::unique_ptr<common_thermal_algorithm>;

class every_type_test : public host_fixture {
protected:
    every_type_test() { host.log.set_mask(0); }

    static rule_pointer parsed(const sample_rule& sample, const std::string& more = "") {
        rules_text text("[R]\nNAME=R\nFAN_MAP_COUNT=1\n1.FAN_MAP=1\n" + parameters_for(sample, 1) + more);
        rule_pointer rule = parser::make(sample.type, 1);
        rule->parse_result_name(&text, "R");
        rule->parse_parameters(&text, "R");
        rule->parse_conditions(&text, "R");
        rule->parse_action(&text, "R");
        return rule;
    }
    void give(float value) {
        for (const char* name : {"four_value_device.temperature", "four_value_device.margin", "four_value_device.power",
                                 "four_value_device.valid"}) {
            dao.update_dev(name, 1, value, false);
        }
    }
    void poll_with_everything(common_thermal_algorithm& rule) {
        const float infinity = std::numeric_limits<float>::infinity();
        for (const float value : {60.0f, NAN, infinity, -infinity, -1.0f, 65535.0f, 1e30f, 0.0f, 60.0f}) {
            give(value);
            rule.polling(&dao, 1000);
            rule.debugging();
        }
    }
    static std::string first_row(const rule_key& key, const std::string& value) {
        std::string name = key.name;
        name = name.starts_with("n.") ? "1" + name.substr(1) : name;
        name = name.ends_with(".m") ? name.substr(0, name.size() - 1) + "1" : name;
        return name + "=" + value + "\n";
    }
};

TEST_F(every_type_test, is_made_under_its_name_and_polls_without_parameters) {
    for (const std::string_view type : parser::types()) {
        const rule_pointer rule = parser::make(type, 7);
        ASSERT_NE(rule, nullptr) << type;
        EXPECT_EQ(rule->get_name() + "." + std::to_string(rule->get_instance()), std::string(type) + ".7");
        EXPECT_EQ(rule->debug(), "") << type;
        poll_with_everything(*rule);
    }
    EXPECT_EQ(parser::make("common_thermal_algorithm_dummy", 1), nullptr) << "no rule can name it";
    EXPECT_EQ(sample_rules().size(), parser::types().size());
}

TEST_F(every_type_test, refuses_text_that_is_no_number_in_each_of_its_keys) {
    for (const sample_rule& sample : sample_rules()) {
        for (const rule_key& key : parsed(sample)->parameter_keys()) {
            if (key.missing.empty()) continue;
            for (const char* text : {"x", "", "-", ".", "bad_key 1"}) {
                EXPECT_THROW(parsed(sample, first_row(key, text)), std::invalid_argument) << sample.type << key.name;
            }
            EXPECT_NO_THROW(parsed(sample, first_row(key, "bad_key"))) << "the default of " << key.name;
        }
    }
}

TEST_F(every_type_test, survives_strange_numbers_in_its_keys_and_in_the_store) {
    for (const sample_rule& sample : sample_rules()) {
        for (const rule_key& key : parsed(sample)->parameter_keys()) {
            for (const char* text : {"-1", "-2147483648", "2147483647", "99999999999", "1e60", "nan", "-inf", "0"}) {
                try {
                    poll_with_everything(*parsed(sample, first_row(key, text)));
                } catch (const std::invalid_argument&) {  // no whole number
                } catch (const std::out_of_range&) {
                }
            }
        }
    }
}

TEST_F(every_type_test, allocates_nothing_once_it_has_polled) {
    give(60);
    for (const sample_rule& sample : sample_rules()) {
        const rule_pointer rule = parsed(sample);
        rule->polling(&dao, 1000);
        rule->polling(&dao, 1001);
        const allocation_counter allocations;
        for (unsigned long now = 1002; now < 1100; ++now) {
            give(now % 2 == 0 ? 60.0f : 61.0f);
            rule->polling(&dao, now);
        }
        EXPECT_EQ(allocations.calls(), 0u) << sample.type;
    }
}

}  // namespace
