#pragma once

#include <string>
#include <string_view>

#include "foundation/export.hpp"

// A text kept once for the life of the process: copying, comparing and storing it costs one word and never allocates.
// For class names and the like, of which there are few; never for text that grows with time.
class THERMAL_API interned_name {
public:
    interned_name() : interned_name(std::string_view()) {}
    interned_name(std::string_view text);
    interned_name(const char* text) : interned_name(std::string_view(text)) {}
    interned_name(const std::string& text) : interned_name(std::string_view(text)) {}

    const std::string& text() const { return *_text; }
    const char* c_str() const { return _text->c_str(); }
    bool empty() const { return _text->empty(); }

    bool operator==(const interned_name& other) const { return _text == other._text; }

private:
    const std::string* _text;
};
