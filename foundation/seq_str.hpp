#pragma once

#include <string>

#include "foundation/export.hpp"

// A numbered name: prefix, number, suffix.
class THERMAL_API seq_str {
public:
    seq_str(const char* prefix, int number, const char* suffix);
    // The number at least `width` characters wide, filled with "0" on the left.
    seq_str(const char* prefix, int number, const char* suffix, int width);

    operator std::string() const { return _text; }
    const std::string& text() const { return _text; }

private:
    std::string _text;
};
