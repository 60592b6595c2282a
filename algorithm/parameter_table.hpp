#pragma once

#include <algorithm>
#include <concepts>
#include <cstdint>
#include <span>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "algorithm/common_thermal_algorithm.hpp"
#include "algorithm/rule_group.hpp"
#include "store/common_thermal_dao.hpp"

// A word of a rule file with its length at hand; empty for none.
struct rule_word : std::string_view {
    constexpr rule_word() = default;
    constexpr rule_word(std::nullptr_t) {}                             // NOLINT(google-explicit-constructor)
    constexpr rule_word(const char* text) : std::string_view(text) {}  // NOLINT(google-explicit-constructor)
};

// One field of a parameter record. A table of them, in the order of the diagnostic text, reads the record from a rule
// group and shows it. Start values stand in the record itself: they hold for a record that no rule filled.
template <class Record>
struct parameter {
    const char* shown = nullptr;  // ahead of the value; null for what the text leaves out
    rule_word key{};              // behind "<number>."; none for what the class computes
    std::variant<std::monostate, float Record::*, std::uint32_t Record::*, bool Record::*, std::string Record::*,
                 store_reference Record::*>
        member{};
    rule_word instance_key{};          // of a reference, whose `key` is its name's
    const char* missing = "0";         // what a number counts as that the rule does not give
    bool whole = false;                // a number without a fraction, though it is kept as a float
    const char* instance_shown = ".";  // between the name of a reference and its instance
};

// Records of an algorithm, or rows of a record, by number from 1.
template <class Record>
class numbered_list {
public:
    using value_type = Record;
    struct numbered_record {
        unsigned number;
        Record record;
    };

    void set_size(unsigned count) {
        _records.clear();
        _records.reserve(count);
        for (unsigned number = 1; number <= count; ++number) {
            _records.push_back({number, {}});
        }
    }

    // A record that is not there is made.
    Record& at(unsigned number) {
        const auto place = std::ranges::lower_bound(_records, number, {}, &numbered_record::number);
        if (place != _records.end() && place->number == number) {
            return place->record;
        }
        return _records.insert(place, {number, {}})->record;
    }

    std::size_t size() const { return _records.size(); }
    bool empty() const { return _records.empty(); }
    auto begin() { return _records.begin(); }
    auto end() { return _records.end(); }
    auto begin() const { return _records.begin(); }
    auto end() const { return _records.end(); }

private:
    std::vector<numbered_record> _records;  // ascending
};

template <class Record>
concept record_with_rows = requires(Record record) {
    record.rows;
};

struct no_row {};

template <class Record>
struct row_of {
    using type = no_row;
};
template <record_with_rows Record>
struct row_of<Record> {
    using type = typename decltype(Record::rows)::value_type;
};

// The rows of a record: its member `rows`, a numbered_list. Their keys are "<number>.<key>.<row>".
template <class Row>
struct row_layout {
    const char* count_key = nullptr;
    const char* count_shown = nullptr;
    const char* heading = nullptr;  // shown ahead of each row, with the row's number
    std::span<const parameter<Row>> fields{};
};

// What a record consists of, in the order of the diagnostic text.
template <class Record>
struct parameter_layout {
    std::span<const parameter<Record>> fields;
    const char* closing = "";  // shown behind each record
    row_layout<typename row_of<Record>::type> rows{};
    std::span<const parameter<Record>> behind_rows{};
};

// Fills a record, or a row, from the keys of one number.
template <class Record>
class record_reader {
public:
    record_reader(const rule_group& rule, numbered_key& key) : _rule(rule), _key(key) {}

    void read(std::span<const parameter<Record>> fields, Record& record) {
        for (const parameter<Record>& field : fields) {
            if (!field.key.empty()) {
                std::visit([&](auto member) { read_member(field, record, member); }, field.member);
            }
        }
    }

private:
    using field_type = parameter<Record>;

    void read_member(const field_type&, Record&, std::monostate) {}
    void read_member(const field_type& field, Record& record, float Record::*member) {
        record.*member = field.whole ? static_cast<float>(_rule.integer(_key(field.key), field.missing))
                                     : _rule.number(_key(field.key), field.missing);
    }
    void read_member(const field_type& field, Record& record, std::uint32_t Record::*member) {
        record.*member = static_cast<std::uint32_t>(std::max(0, _rule.integer(_key(field.key), field.missing)));
    }
    void read_member(const field_type& field, Record& record, bool Record::*member) {
        record.*member = _rule.number(_key(field.key), field.missing) != 0.0f;
    }
    void read_member(const field_type& field, Record& record, std::string Record::*member) {
        record.*member = _rule.text(_key(field.key));
    }
    void read_member(const field_type& field, Record& record, store_reference Record::*member) {
        std::string name = _rule.text(_key(field.key));
        record.*member = store_reference(std::move(name), _rule.integer(_key(field.instance_key)));
    }

    const rule_group& _rule;
    numbered_key& _key;
};

inline std::string parameter_text(float value) { return std::to_string(value); }
inline std::string parameter_text(std::uint32_t value) { return std::to_string(value); }
inline std::string parameter_text(bool value) { return value ? "1" : "0"; }
inline std::string parameter_text(const std::string& value) { return value; }
inline std::string parameter_text(const store_reference& value, const char* instance_shown) {
    return value.name() + instance_shown + std::to_string(value.instance());
}

template <class Record>
std::string parameter_text(std::span<const parameter<Record>> fields, const Record& record) {
    std::string text;
    for (const parameter<Record>& field : fields) {
        if (field.shown == nullptr) {
            continue;
        }
        text += field.shown;
        std::visit(
            [&](auto member) {
                if constexpr (std::same_as<decltype(member), store_reference Record::*>) {
                    text += parameter_text(record.*member, field.instance_shown);
                } else if constexpr (!std::same_as<decltype(member), std::monostate>) {
                    text += parameter_text(record.*member);
                }
            },
            field.member);
    }
    return text;
}

// The keys that a table reads, with `lead` ahead and `tail` behind each.
template <class Record>
void add_rule_keys(std::vector<rule_key>& keys, std::span<const parameter<Record>> fields, const std::string& lead,
                   const std::string& tail) {
    for (const parameter<Record>& field : fields) {
        if (field.key.empty()) {
            continue;
        }
        const bool is_text = std::holds_alternative<std::string Record::*>(field.member) || !field.instance_key.empty();
        const auto add = [&](std::string_view key, const char* missing) {
            keys.push_back({std::string(lead).append(key).append(tail), missing});
        };
        add(field.key, is_text ? "" : field.missing);
        if (!field.instance_key.empty()) {
            add(field.instance_key, "0");
        }
    }
}

// An algorithm whose parameters are records of one kind. Reads them, shows them and names their keys; a class adds its
// setters and its poll(). A record that derives something from its keys has a complete(), called once it is read.
template <class Record>
class algorithm_with_parameters : public common_thermal_algorithm {
public:
    using parameter_t = Record;

    // Frees all records and makes `count` new ones.
    void set_parameter_size(unsigned count) { _records.set_size(count); }

    // Replaces all records by those of the rule. A key that is missing gives its default, not the start value.
    void parse_parameters(ini_file::std_handler* rules, const std::string& group) override {
        const rule_group rule(*rules, group.c_str());
        const unsigned count = rule.count("PARAMETER_COUNT");
        set_parameter_size(count);
        for (unsigned number = 1; number <= count; ++number) {
            numbered_key key(number);
            Record& record = _records.at(number);
            record_reader<Record> reader(rule, key);
            reader.read(_layout.fields, record);
            parse_rows(rule, number, record);
            reader.read(_layout.behind_rows, record);
            if constexpr (requires { record.complete(); }) {
                record.complete();
            }
        }
    }

    std::string debug() override {
        std::string text;
        for (const auto& [number, record] : _records) {
            text += "\nindex=" + std::to_string(number) + parameter_text(_layout.fields, record) + rows_text(record) +
                    parameter_text(_layout.behind_rows, record) + _layout.closing;
        }
        return text;
    }

    std::vector<rule_key> parameter_keys() const override {
        std::vector<rule_key> keys{{"PARAMETER_COUNT", "0"}};
        add_rule_keys(keys, _layout.fields, "n.", "");
        if constexpr (record_with_rows<Record>) {
            keys.push_back({std::string("n.") + _layout.rows.count_key, "0"});
            add_rule_keys(keys, _layout.rows.fields, "n.", ".m");
        }
        add_rule_keys(keys, _layout.behind_rows, "n.", "");
        return keys;
    }

protected:
    // `layout` is borrowed for good.
    algorithm_with_parameters(const parameter_layout<Record>& layout, const char* name, int instance, talg_type_t type,
                              std::uint32_t action_support = 0)
        : common_thermal_algorithm(name, instance, type, action_support), _layout(layout) {}

    Record& record(unsigned index) { return _records.at(index); }
    auto& row(unsigned index, unsigned row_number) requires record_with_rows<Record> {
        return _records.at(index).rows.at(row_number);
    }
    numbered_list<Record>& records() { return _records; }

private:
    void parse_rows(const rule_group& rule, unsigned number, Record& record) {
        if constexpr (record_with_rows<Record>) {
            const unsigned count = rule.count(numbered_key(number)(_layout.rows.count_key));
            record.rows.set_size(count);
            for (unsigned row_number = 1; row_number <= count; ++row_number) {
                numbered_key key(number, row_number);
                record_reader<typename row_of<Record>::type>(rule, key).read(_layout.rows.fields,
                                                                             record.rows.at(row_number));
            }
        }
    }

    std::string rows_text(const Record& record) const {
        std::string text;
        if constexpr (record_with_rows<Record>) {
            const auto& layout = _layout.rows;
            if (layout.count_shown != nullptr) {
                text += layout.count_shown + std::to_string(record.rows.size());
            }
            for (const auto& [number, row] : record.rows) {
                if (layout.heading != nullptr) {
                    text += layout.heading + std::to_string(number);
                }
                text += parameter_text(layout.fields, row);
            }
        }
        return text;
    }

    const parameter_layout<Record>& _layout;
    numbered_list<Record> _records;
};
