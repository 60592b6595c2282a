#pragma once

#include <array>
#include <charconv>
#include <string>
#include <string_view>

// The text of a store key: prefix, name, a point, the instance in decimal. Composed on the stack unless the name is
// uncommonly long.
class dao_key {
public:
    dao_key(std::string_view name, int instance) : dao_key(std::string_view(), name, instance) {}

    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-member-init): the text is set as far as it goes
    dao_key(std::string_view prefix, std::string_view name, int instance) {
        constexpr std::size_t longest_instance = 12;
        char* text = _short.data();
        if (prefix.size() + name.size() + longest_instance > _short.size()) {
            _long.resize(prefix.size() + name.size() + longest_instance);
            text = _long.data();
        }
        char* end = append(append(text, prefix), name);
        *end++ = '.';
        end = std::to_chars(end, end + longest_instance - 1, instance).ptr;
        _view = {text, static_cast<std::size_t>(end - text)};
    }

    dao_key(const dao_key&) = delete;
    dao_key& operator=(const dao_key&) = delete;

    std::string_view view() const { return _view; }

private:
    static char* append(char* end, std::string_view text) { return end + text.copy(end, text.size()); }

    std::array<char, 160> _short;
    std::string _long;
    std::string_view _view;
};
