#pragma once

#include "algorithm/common_thermal_algorithm.hpp"
#include "tests/support/host_fixture.hpp"
#include "tests/support/rules_text.hpp"

// Rules on a store of their own.
class rule_test : public host_fixture {
protected:
    // The rule reads these keys of its group.
    static void read(common_thermal_algorithm& rule, const std::string& keys) {
        rules_text text("[R]\n" + keys);
        rule.parse_result_name(&text, "R");
        rule.parse_parameters(&text, "R");
        rule.parse_action(&text, "R");
    }
    // After one more pass.
    static float result_of(common_thermal_algorithm& rule, common_thermal_dao& store) {
        rule.polling(&store, 0);
        return value_in(store, rule.get_name() + ".result", rule.get_instance());
    }
    float result_of(common_thermal_algorithm& rule) { return result_of(rule, dao); }
};
