#pragma once

#include <string>
#include <vector>

namespace sim {

// What the library would make of a rule file.
struct rule_check {
    std::string error;                  // "file:line: what is wrong"; empty for a file that loads
    std::vector<std::string> warnings;  // alike: rules that were announced and not built, keys that no rule reads
    unsigned rules = 0;
};

// The library reads this file in place of any other.
constexpr const char* rule_override = "/tmp/ThermalAlgorithm.ini";

rule_check check_rules(const std::string& path);

}  // namespace sim
