#pragma once

#include <array>
#include <charconv>
#include <string>
#include <string_view>

#include "foundation/export.hpp"
#include "foundation/ini_file.hpp"

// A key of a numbered entry, "<number>.<word>", composed on the stack.
class numbered_key {
public:
    explicit numbered_key(unsigned number) {
        _word = std::to_chars(_text.data(), _text.data() + longest_number, number).ptr;
        *_word++ = '.';
    }
    numbered_key(const numbered_key&) = delete;
    numbered_key& operator=(const numbered_key&) = delete;

    // Valid until the next call.
    const char* operator()(std::string_view word, std::string_view suffix = {}) {
        char* end = _word + word.copy(_word, word_room);
        end += suffix.copy(end, word_room - static_cast<std::size_t>(end - _word));
        *end = '\0';
        return _text.data();
    }

private:
    static constexpr std::size_t longest_number = 10;
    static constexpr std::size_t word_room = 52;
    std::array<char, longest_number + 1 + word_room + 1> _text;
    char* _word;
};

// One group of a rule file. Numbers convert as std::stoi, stoul and stof do: what is no number throws
// std::invalid_argument, what does not fit std::out_of_range, and a missing key gives its default.
class THERMAL_API rule_group {
public:
    rule_group(const ini_file::std_handler& rules, const std::string& name) : _rules(rules), _name(name) {}

    const char* text(const char* key) const { return _rules.get_value(_name.c_str(), key, ""); }
    int integer(const char* key) const;
    unsigned long unsigned_integer(const char* key) const;
    float number(const char* key) const;

    // The rows of a list: 0 for a count below 1. Rows need lines, so a count beyond the lines of the group is cut to
    // one row more than it has lines, which is a row that nobody wrote, and leaves a warning.
    unsigned count(const char* key) const;

private:
    const ini_file::std_handler& _rules;
    const std::string& _name;
};
