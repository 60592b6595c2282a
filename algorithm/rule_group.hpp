#pragma once

#include <array>
#include <charconv>
#include <cstdint>
#include <string>
#include <string_view>

#include "foundation/export.hpp"
#include "foundation/ini_file.hpp"

// A key of a numbered entry, "<number>.<word>" or, of a row in it, "<number>.<word>.<row>", composed on the stack.
class numbered_key {
public:
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-member-init): the text is set as far as it goes
    explicit numbered_key(unsigned number, unsigned row = 0) : _row(row) {
        _word = std::to_chars(_text.data(), _text.data() + longest_number, number).ptr;
        *_word++ = '.';
    }
    numbered_key(const numbered_key&) = delete;
    numbered_key& operator=(const numbered_key&) = delete;

    // Valid until the next call.
    std::string_view operator()(std::string_view word) {
        char* end = _word + word.copy(_word, word_room);
        if (_row != 0) {
            *end++ = '.';
            end = std::to_chars(end, end + longest_number, _row).ptr;
        }
        return {_text.data(), static_cast<std::size_t>(end - _text.data())};
    }

private:
    static constexpr std::size_t longest_number = 10;
    static constexpr std::size_t word_room = 52;
    std::array<char, longest_number + 1 + word_room + 1 + longest_number> _text;
    char* _word;
    unsigned _row;
};

// A key that a class reads from its rules, "n" standing for a record's number and "m" for a row's, and the text that a
// missing one counts as.
struct rule_key {
    std::string name;
    std::string missing;
};

// One group of a rule file. Numbers convert as std::stoi, stoul and stof do: what is no number throws
// std::invalid_argument, what does not fit std::out_of_range, and a missing key gives its default.
class THERMAL_API rule_group {
public:
    // Both are borrowed.
    rule_group(const ini_file::std_handler& rules, const char* name)
        : _rules(rules), _name(name), _group(rules.find_group(name)) {}

    const char* text(std::string_view key) const { return _rules.get_value(_group, key, ""); }
    int integer(std::string_view key, const char* missing = "0") const;
    // 32 bits on every machine; a sign wraps.
    std::uint32_t unsigned_integer(std::string_view key) const;
    float number(std::string_view key, const char* missing = "0") const;

    // The rows of a list: 0 for a count below 1. A count beyond what the group can hold is cut to one row more, which
    // is a row that nobody wrote as the rest would be, and leaves a warning.
    unsigned count(std::string_view key) const;

private:
    const ini_file::std_handler& _rules;
    const char* _name;
    int _group;
};
