#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "algorithm/algorithm_list.hpp"
#include "algorithm/common_thermal_algorithm.hpp"
#include "foundation/export.hpp"

// The rules of one load, owned. After a load that threw, `group` names the group that it stopped in.
struct rule_set {
    std::vector<std::unique_ptr<common_thermal_algorithm>> rules;
    std::string group;
    int announced = 0;  // ALGORITHM_COUNT
};

struct THERMAL_API common_thermal_algorithm_parser {
    // Reads "/tmp/ThermalAlgorithm.ini" or, where that cannot be opened, `path`, and replaces the list and the set by
    // the rules in it, in ascending number. No readable file leaves no rules; a type that is not known skips its rule.
    // Text that is no number leaves through std::invalid_argument or std::out_of_range: from the count with the old
    // rules still in place, from a rule with those before it built.
    static void generate_algorithm_rule(const std::string& path, algorithm_list* list, rule_set& set);

    // What a rule can name as its TYPE.
    static std::vector<std::string_view> types();
    // A rule of that type without parameters; null if there is no such type.
    static std::unique_ptr<common_thermal_algorithm> make(std::string_view type, int instance);
};
