#include "sim/rule_check.hpp"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <exception>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <sstream>

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

struct written_key {
    unsigned line;  // from 1
    std::string key;
};

struct written_group {
    unsigned line = 0;
    std::string type;
    std::vector<written_key> keys;
};

// The groups of a rule file as they were written, line by line, with the library's own reader.
class written_rules : public ini_file::ini_handler {
public:
    explicit written_rules(std::istream& file) {
        ini_file::ini_file_reader reader(this);
        std::string text;
        while (std::getline(file, text)) {
            ++_line;
            std::istringstream line(text + "\n");
            reader.read_file(line);
        }
    }

    void add_group(const std::string& name) override {
        _group = &_groups[name];
        if (_group->line == 0) {
            _group->line = _line;
        }
    }
    void add_entry(const ini_file::ini_file_entry& entry) override {
        if (_group == nullptr) {
            return;
        }
        _group->keys.push_back({_line, entry.key});
        if (entry.key == "TYPE") {
            _group->type = entry.value;
        }
    }

    const std::map<std::string, written_group>& groups() const { return _groups; }
    unsigned line_of(const std::string& group) const {
        const auto found = _groups.find(group);
        return found == _groups.end() ? 0 : found->second.line;
    }

private:
    std::map<std::string, written_group> _groups;
    written_group* _group = nullptr;
    unsigned _line = 0;
};

bool is_number(const std::string& text) {
    return !text.empty() && std::ranges::all_of(text, [](unsigned char c) { return std::isdigit(c) != 0; });
}

// "2.PARAMETER_X.7" as "n.PARAMETER_X.m".
std::string general(const std::string& key) {
    const std::size_t first = key.find('.');
    if (first == std::string::npos || !is_number(key.substr(0, first))) {
        return key;
    }
    const std::size_t last = key.rfind('.');
    const bool has_row = last != first && is_number(key.substr(last + 1));
    return "n" + (has_row ? key.substr(first, last - first) + ".m" : key.substr(first));
}

// Of every rule, and of those that drive fans or adapters.
std::set<std::string> keys_of(const common_thermal_algorithm& rule) {
    std::set<std::string> keys{
        "TYPE",           "NAME", "CONDITION_COUNT", "n.CONDITION_KEY_PREFIX", "n.CONDITION_INST", "n.CONDITION_OPS",
        "n.CONDITION_VAL"};
    for (const rule_key& key : rule.parameter_keys()) {
        keys.insert(key.name);
    }
    if (rule.is_supported_action_fan_map()) {
        keys.insert({"FAN_MAP_COUNT", "n.FAN_MAP"});
    }
    if (rule.is_supported_action_sensor_pciegen_pwrbrk() || rule.is_supported_action_sensor_powerlimit_pci()) {
        keys.insert({"PCI_MAP_COUNT", "n.PCI_LOCATION", "n.PCI_SLOT_NO"});
    }
    return keys;
}

std::string place(const std::string& file, unsigned line) { return file + ":" + std::to_string(line) + ": "; }

void add_unread_keys(const std::string& file, const std::string& name, const written_group& group,
                     std::vector<std::string>& warnings) {
    const auto rule = common_thermal_algorithm_parser::make(group.type, 1);
    if (rule == nullptr) {
        return;
    }
    const std::set<std::string> known = keys_of(*rule);
    for (const written_key& written : group.keys) {
        if (!known.contains(general(written.key))) {
            warnings.push_back(place(file, written.line) + "[" + name + "] " + group.type + " reads no " + written.key);
        }
    }
}

}  // namespace

rule_check check_rules(const std::string& path) {
    rule_check result;
    const std::string read = std::ifstream(rule_override) ? rule_override : path;
    std::ifstream file(read);
    if (!file || std::filesystem::is_directory(read)) {
        result.error = place(read, 0) + "cannot be read: " + std::strerror(file ? EISDIR : errno);
        return result;
    }
    const written_rules written(file);
    rule_counter counter;
    rule_set set;
    try {
        common_thermal_algorithm_parser::generate_algorithm_rule(path, &counter, set);
    } catch (const std::exception& error) {
        result.error = place(read, written.line_of(set.group)) + "[" + set.group +
                       "] holds text where a number belongs (" + error.what() + ")";
        return result;
    }
    result.rules = counter.get_thermal_algorithm_size();
    if (result.rules == 0) {
        result.error = place(read, 0) + "no rules; ALGORITHM_COUNT in [SUMMARY] is " + std::to_string(set.announced);
    } else if (static_cast<long>(result.rules) < set.announced) {
        result.warnings.push_back(place(read, 0) + "ALGORITHM_COUNT is " + std::to_string(set.announced) + ", " +
                                  std::to_string(result.rules) +
                                  " rules built: a group is missing or its TYPE is not known");
    }
    for (const auto& [name, group] : written.groups()) {
        add_unread_keys(read, name, group, result.warnings);
    }
    return result;
}

}  // namespace sim
