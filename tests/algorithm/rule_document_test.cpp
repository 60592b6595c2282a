#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <set>

#include "algorithm/common_thermal_algorithm_parser.hpp"
#include "sim/rule_check.hpp"
#include "tests/support/host_fixture.hpp"
#include "tests/support/rules_text.hpp"
#include "tests/support/temporary_file.hpp"

// docs/rule-file.md says what the code does: every type, every key with its default, every target, every example.
namespace {

using parser = common_thermal_algorithm_parser;
using key_defaults = std::map<std::string, std::string>;

const std::string class_prefix = "common_thermal_algorithm_";

std::vector<std::string> split(const std::string& text, const std::string& separator) {
    std::vector<std::string> parts;
    std::size_t begin = 0;
    for (std::size_t end = text.find(separator); end != std::string::npos; end = text.find(separator, begin)) {
        parts.push_back(text.substr(begin, end - begin));
        begin = end + separator.size();
    }
    parts.push_back(text.substr(begin));
    return parts;
}

std::vector<std::string> back_quoted(const std::string& text) {
    const std::vector<std::string> parts = split(text, "`");
    std::vector<std::string> names;
    for (std::size_t i = 1; i < parts.size(); i += 2) names.push_back(parts[i]);
    return names;
}

struct documented_type {
    key_defaults keys;
    std::string targets;
};

// A key table belongs to the types named in the last "Types:" paragraph ahead of it, in the same section; without one
// to the section itself.
class rule_document {
public:
    std::map<std::string, documented_type> types;
    std::map<std::string, key_defaults> sections;
    std::vector<std::string> examples;
    std::vector<std::string> mistakes;

    explicit rule_document(std::istream& file) {
        for (std::string line; std::getline(file, line);) {
            if (line.starts_with("```")) {
                read_code(file, line == "```ini");
            } else if (line.starts_with("#")) {
                _section = line.substr(line.find_first_not_of("# "));
                _current.clear();
            } else if (line.starts_with("Types: ")) {
                read_types(file, line);
            } else if (line == "| key | meaning | unit | range | default |") {
                std::getline(file, line);
                read_table(file);
            }
        }
    }

private:
    void read_code(std::istream& file, bool is_example) {
        std::string code;
        for (std::string line; std::getline(file, line) && line != "```";) code += line + "\n";
        if (is_example) examples.push_back(code);
    }
    void read_types(std::istream& file, std::string paragraph) {
        for (std::string line; std::getline(file, line) && !line.empty();) paragraph += " " + line;
        _current = back_quoted(paragraph);
        const std::vector<std::string> parts = split(paragraph, ". Targets: ");
        for (const std::string& type : _current) {
            if (parts.size() != 2 || !types.emplace(type, documented_type{{}, split(parts.back(), ".")[0]}).second) {
                mistakes.push_back(type + ": no targets, or documented twice");
            }
        }
    }
    void read_table(std::istream& file) {
        for (std::string line; std::getline(file, line) && line.starts_with("|");) {
            std::vector<std::string> cells = split(line.substr(1, line.size() - 2), "|");
            std::ranges::transform(cells, cells.begin(), ini_file::ini_file_reader::trim);
            const std::vector<std::string> keys = back_quoted(cells[0]);
            std::vector<std::string> defaults = split(cells.back(), ", ");
            if (defaults.size() == 1) defaults.resize(keys.size(), defaults[0]);
            if (cells.size() != 5 || keys.empty() || defaults.size() != keys.size()) {
                mistakes.push_back("not a row of keys: " + line);
                continue;
            }
            for (std::size_t i = 0; i < keys.size(); ++i) {
                enter(keys[i], defaults[i] == "empty" ? "" : defaults[i], cells[0]);
            }
        }
    }
    void enter(const std::string& key, const std::string& missing, const std::string& cell) {
        if (_current.empty()) {
            sections[_section][key] = missing;
            return;
        }
        for (const std::string& type : owners(cell)) {
            const auto entry = types.find(type);
            if (entry == types.end() || std::find(_current.begin(), _current.end(), type) == _current.end()) {
                mistakes.push_back(std::string(type).append(" is not among the types of ").append(cell));
            } else if (!entry->second.keys.emplace(key, missing).second) {
                mistakes.push_back(std::string(type).append(": ").append(key).append(" is documented twice"));
            }
        }
    }
    // The types in the parentheses of a cell, or all of the table.
    std::vector<std::string> owners(const std::string& cell) const {
        const std::size_t open = cell.find('(');
        if (open == std::string::npos) return _current;
        std::vector<std::string> names = split(cell.substr(open + 1, cell.find(')') - open - 1), ", ");
        for (std::string& name : names) name.insert(0, class_prefix);
        return names;
    }

    std::string _section;
    std::vector<std::string> _current;
};

class rule_document_test : public host_fixture {
protected:
    static rule_document read() {
        std::ifstream file(THERMAL_SOURCE_DIR "/docs/rule-file.md");
        EXPECT_TRUE(file);
        return rule_document(file);
    }
    static key_defaults keys_of(const common_thermal_algorithm& rule) {
        key_defaults keys;
        for (const auto& [name, missing] : rule.parameter_keys()) {
            EXPECT_TRUE(keys.emplace(name, missing).second) << rule.get_name() << " reads " << name << " twice";
        }
        return keys;
    }
    static std::string shown(const key_defaults& keys, const std::string& key) {
        const auto found = keys.find(key);
        return found == keys.end() ? "no such key" : "default \"" + found->second + "\"";
    }
    // What the rule does with lists of fans and slots, as the document words it.
    static std::string targets_of(common_thermal_algorithm& rule) {
        rules_text lists("[r]\nFAN_MAP_COUNT=1\n1.FAN_MAP=7\nPCI_MAP_COUNT=1\n1.PCI_LOCATION=2\n1.PCI_SLOT_NO=3\n");
        rule.parse_action(&lists, "r");
        constexpr unsigned long slot_2_3 = 0x20003;
        const bool slots =
            rule.is_in_action_pciegen_pwrbrk_slot(slot_2_3) || rule.is_in_action_powerlimit_pci_slot(slot_2_3);
        return rule.is_in_action_fan(7) ? (slots ? "fans, slots" : "fans") : (slots ? "slots" : "none");
    }

    // The library and the check of thermal-sim have nothing to say about this rule file.
    void expect_clean(const std::string& text) {
        host.log.captured().clear();
        const sim::rule_check check = sim::check_rules(temporary_file(text).path());
        EXPECT_EQ(check.error, "") << text;
        EXPECT_EQ(check.warnings, text_lines()) << text;
        for (const auto& line : host.log.captured().entries()) {
            EXPECT_TRUE(line.level == thermal_host::log_level::log) << line.text << text;
        }
    }

    const std::string only_rule = "[SUMMARY]\nALGORITHM_COUNT=1\n[1.ALGORITHM]\n";
    const rule_document document = read();
};

TEST_F(rule_document_test, every_type_stands_in_it_with_its_keys_defaults_and_targets_and_no_others) {
    EXPECT_EQ(document.mistakes, text_lines());
    std::set<std::string> unbuilt;
    for (const auto& [type, entry] : document.types) unbuilt.insert(type);
    for (const std::string_view type : parser::types()) {
        const auto rule = parser::make(type, 1);
        const auto entry = document.types.find(std::string(type));
        ASSERT_NE(rule, nullptr) << type;
        if (unbuilt.erase(std::string(type)) == 0) {
            ADD_FAILURE() << type << " has no section";
            continue;
        }
        const auto& [documented, targets] = entry->second;
        EXPECT_EQ(targets, targets_of(*rule)) << type;
        key_defaults all = keys_of(*rule);
        const key_defaults code = all;
        all.insert(documented.begin(), documented.end());
        for (const auto& [key, missing] : all) {
            if (shown(documented, key) != shown(code, key)) {
                ADD_FAILURE() << type << ", " << key << ": the document has " << shown(documented, key) << ", the code "
                              << shown(code, key);
            }
        }
    }
    EXPECT_EQ(unbuilt, std::set<std::string>()) << "documented, and no rule can name them";
}

TEST_F(rule_document_test, examples_load_without_a_warning_or_a_key_that_their_type_does_not_read) {
    if (::access(sim::rule_override, F_OK) == 0) GTEST_SKIP() << "an override file hides every other";
    EXPECT_FALSE(document.examples.empty());
    for (const std::string& example : document.examples) {
        const bool whole = example.find("[SUMMARY]") != std::string::npos;
        expect_clean((whole ? "" : only_rule) + example);
    }
}

TEST_F(rule_document_test, keys_of_every_rule_and_of_targets_are_read) {
    if (::access(sim::rule_override, F_OK) == 0) GTEST_SKIP() << "an override file hides every other";
    for (const std::string_view type : parser::types()) {
        const auto rule = parser::make(type, 1);
        const std::string targets = targets_of(*rule);
        std::string text = only_rule;
        for (const std::string& section : {std::string("Keys of every rule"), "Targets: " + targets}) {
            const auto keys = document.sections.find(section);
            ASSERT_TRUE(keys != document.sections.end() || targets == "none") << section;
            for (const auto& [key, missing] : keys == document.sections.end() ? key_defaults() : keys->second) {
                text += (key.starts_with("n.") ? "1" + key.substr(1) : key) + "=" +
                        (key == "TYPE" ? std::string(type) : missing) + "\n";
            }
        }
        expect_clean(text);
    }
}

}  // namespace
