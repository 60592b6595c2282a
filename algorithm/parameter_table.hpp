#pragma once

#include <algorithm>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "algorithm/rule_group.hpp"
#include "store/common_thermal_dao.hpp"

// One field of a parameter record. A table of them, in the order of the diagnostic text, reads the record from a rule
// group and shows it. Start values stand in the record itself: they hold for a record that no rule filled.
template <class Record>
struct parameter {
    const char* shown = nullptr;
    const char* key = nullptr;  // behind "<number>."; null for what the class computes
    std::variant<float Record::*, store_reference Record::*> member;
    const char* instance_key = nullptr;  // of a reference, whose `key` is its name's
};

// The parameter records of an algorithm by number, from 1.
template <class Record>
class parameter_records {
public:
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

    auto begin() { return _records.begin(); }
    auto end() { return _records.end(); }

    // Replaces all records by those of the rule. A key that is missing gives 0 or the empty text, not the start value.
    template <class Table>
    void parse(const rule_group& rule, const Table& table) {
        const unsigned count = rule.count("PARAMETER_COUNT");
        set_size(count);
        for (unsigned number = 1; number <= count; ++number) {
            numbered_key key(number);
            Record& record = at(number);
            for (const parameter<Record>& field : table) {
                if (field.key != nullptr) {
                    std::visit([&](auto member) { read(rule, key, field, record.*member); }, field.member);
                }
            }
        }
    }

    template <class Table>
    static std::string debug_text(unsigned number, const Record& record, const Table& table) {
        std::string text = "\nindex=" + std::to_string(number);
        for (const parameter<Record>& field : table) {
            text += std::string("\n") + field.shown + "=" +
                    std::visit([&record](auto member) { return text_of(record.*member); }, field.member);
        }
        return text;
    }

private:
    using field_of_record = parameter<Record>;

    static void read(const rule_group& rule, numbered_key& key, const field_of_record& field, float& value) {
        value = rule.number(key(field.key));
    }
    static void read(const rule_group& rule, numbered_key& key, const field_of_record& field, store_reference& value) {
        std::string name = rule.text(key(field.key));
        value = store_reference(std::move(name), rule.integer(key(field.instance_key)));
    }

    static std::string text_of(float value) { return std::to_string(value); }
    static std::string text_of(const store_reference& value) {
        return value.name() + "." + std::to_string(value.instance());
    }

    std::vector<numbered_record> _records;  // ascending
};
