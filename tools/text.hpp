#pragma once

#include <algorithm>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

// Columns that a text takes: a byte that continues a character takes none.
inline std::size_t columns_of(std::string_view text) {
    return static_cast<std::size_t>(
        std::ranges::count_if(text, [](char byte) { return (static_cast<unsigned char>(byte) & 0xC0u) != 0x80u; }));
}

// To `width` columns on the left.
inline std::string padded(std::string text, std::size_t width) {
    const std::size_t columns = columns_of(text);
    return text.append(width > columns ? width - columns : 0, ' ');
}

// Ascending numbers as "1-2,4-6".
template <class Number>
std::string ranges_text(const std::vector<Number>& numbers) {
    std::string text;
    for (std::size_t begin = 0; begin < numbers.size();) {
        std::size_t end = begin + 1;
        while (end < numbers.size() && numbers[end] == numbers[end - 1] + 1) {
            ++end;
        }
        text += (text.empty() ? "" : ",") + std::to_string(numbers[begin]);
        text += end - begin > 1 ? "-" + std::to_string(numbers[end - 1]) : "";
        begin = end;
    }
    return text;
}
