#include "foundation/seq_str.hpp"

seq_str::seq_str(const char* prefix, int number, const char* suffix) : seq_str(prefix, number, suffix, 0) {}

seq_str::seq_str(const char* prefix, int number, const char* suffix, int width) : _text(prefix) {
    const std::string digits = std::to_string(number);
    const auto wanted = static_cast<std::string::size_type>(width > 0 ? width : 0);
    if (digits.size() < wanted) {
        _text.append(wanted - digits.size(), '0');
    }
    _text += digits;
    _text += suffix;
}
