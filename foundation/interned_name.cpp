#include "foundation/interned_name.hpp"

#include <set>

interned_name::interned_name(std::string_view text) {
    static std::set<std::string, std::less<>> names;
    auto known = names.find(text);
    if (known == names.end()) {
        known = names.emplace(text).first;
    }
    _text = &*known;
}
