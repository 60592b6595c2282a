#include "sim/rule_check.hpp"

#include <cerrno>
#include <cstring>
#include <exception>
#include <filesystem>
#include <fstream>

#include "algorithm/common_thermal_algorithm_parser.hpp"

namespace sim {

namespace {

// Counts rules; the rule set owns them.
class rule_counter : public algorithm_list {
public:
    void free_all_thermal_algorithm_list() override { _count = 0; }
    unsigned get_thermal_algorithm_size() const override { return _count; }
    void add_thermal_algorithm(unsigned, common_thermal_algorithm*) override { ++_count; }
    void add_thermal_algorithm_done() override {}

private:
    unsigned _count = 0;
};

// Of the group's header, from 1; 0 without one.
unsigned line_of_group(std::istream& file, const std::string& group) {
    const std::string header = "[" + group + "]";
    std::string line;
    for (unsigned number = 1; std::getline(file, line); ++number) {
        if (line.find(header) != std::string::npos) {
            return number;
        }
    }
    return 0;
}

}  // namespace

rule_check check_rules(const std::string& path) {
    rule_check result;
    const std::string read = std::ifstream(rule_override) ? rule_override : path;
    std::ifstream file(read);
    if (!file || std::filesystem::is_directory(read)) {
        result.error = read + ":0: cannot be read: " + std::strerror(file ? EISDIR : errno);
        return result;
    }
    rule_counter counter;
    rule_set set;
    try {
        common_thermal_algorithm_parser::generate_algorithm_rule(path, &counter, set);
    } catch (const std::exception& error) {
        result.error = read + ":" + std::to_string(line_of_group(file, set.group)) + ": [" + set.group +
                       "] holds text where a number belongs (" + error.what() + ")";
        return result;
    }
    result.rules = counter.get_thermal_algorithm_size();
    if (result.rules == 0) {
        result.error = read + ":0: no rules; ALGORITHM_COUNT in [SUMMARY] is " + std::to_string(set.announced);
    } else if (static_cast<long>(result.rules) < set.announced) {
        result.warning = read + ":0: ALGORITHM_COUNT is " + std::to_string(set.announced) + ", " +
                         std::to_string(result.rules) + " rules built: a group is missing or its TYPE is not known";
    }
    return result;
}

}  // namespace sim
