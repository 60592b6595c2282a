#include "platform/host/property_file.hpp"

#include <algorithm>
#include <charconv>
#include <utility>

namespace thermal_host {

namespace {

constexpr std::string_view head = "thermal properties 1";
constexpr std::pair<std::string_view, unsigned> widths[] = {{"byte", 1}, {"word", 2}, {"dword", 4}, {"block", 0}};
constexpr const char* blanks = " \t\r\n";
constexpr std::uint8_t block_tag = 1;
constexpr std::ptrdiff_t block_header = 2;
constexpr unsigned largest_block = 255;
constexpr std::string_view digits = "0123456789abcdef";

std::string tail(const property_values& values) { return "end " + std::to_string(values.size()); }

std::string_view next_word(std::string_view& line) {
    line.remove_prefix(std::min(line.find_first_not_of(blanks), line.size()));
    const std::string_view word = line.substr(0, line.find_first_of(blanks));
    line.remove_prefix(word.size());
    return word;
}

template <class Number>
bool read_number(std::string_view text, Number& value, int base) {
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, value, base);
    return error == std::errc() && rest == end;
}

std::optional<property_value> read_block(std::string_view text) {
    std::vector<std::uint8_t> bytes;
    for (; !text.empty(); text.remove_prefix(2)) {
        std::uint8_t byte = 0;
        if (text.size() < 2 || !read_number(text.substr(0, 2), byte, 16)) {
            return {};
        }
        bytes.push_back(byte);
    }
    return property_value::block_of(bytes.data(), static_cast<unsigned>(bytes.size()));
}

std::optional<property_value> read_value(unsigned width, std::string_view text) {
    if (width == 0) {
        return read_block(text);
    }
    property_value value{width, 0, {}};
    return read_number(text, value.number, 10) && value.fits(value.number) ? std::optional(value) : std::nullopt;
}

// Null for a line that is a property.
const char* read_property(std::string_view line, property_values& values) {
    const std::string_view path = next_word(line);
    const std::string_view kind = next_word(line);
    const std::string_view text = next_word(line);
    const auto* const width = std::ranges::find(widths, kind, &std::pair<std::string_view, unsigned>::first);
    if (width == std::end(widths) || text.empty() || !next_word(line).empty()) {
        return "expected \"path byte|word|dword|block value\"";
    }
    const std::optional<property_value> value = read_value(width->second, text);
    if (!value) {
        return "the value is none of that width";
    }
    if (!is_usable_path(path) || !values.try_emplace(std::string(path), *value).second) {
        return "the property is here twice, or its path is unusable";
    }
    return nullptr;
}

void append_value(std::string& text, const property_value& value) {
    if (!value.is_block()) {
        text += std::to_string(value.number);
        return;
    }
    for (auto byte = value.block.begin() + block_header; byte != value.block.end(); ++byte) {
        text += digits[*byte >> 4];
        text += digits[*byte & 0xF];
    }
}

}  // namespace

std::optional<property_value> property_value::block_of(const std::uint8_t* bytes, unsigned size) {
    if (bytes == nullptr || size == 0 || size > largest_block) {
        return {};
    }
    property_value value{0, 0, {block_tag, static_cast<std::uint8_t>(size)}};
    value.block.insert(value.block.end(), bytes, bytes + size);
    return value;
}

bool is_usable_path(std::string_view path) {
    return !path.empty() && path.find_first_of(blanks) == std::string_view::npos &&
           path.find('\0') == std::string_view::npos;
}

std::string property_file_text(const property_values& values) {
    std::string text(head);
    for (const auto& [path, value] : values) {
        const auto* const width =
            std::ranges::find(widths, value.width, &std::pair<std::string_view, unsigned>::second);
        text.append("\n").append(path).append(" ").append(width->first).append(" ");
        append_value(text, value);
    }
    return text.append("\n").append(tail(values)).append("\n");
}

std::optional<property_file_fault> read_property_file(std::string_view text, property_values& values) {
    for (unsigned number = 1;; ++number) {
        const std::size_t end = text.find('\n');
        if (end == std::string_view::npos) {
            return property_file_fault{number, "the file ends ahead of its last line"};
        }
        const std::string_view line = text.substr(0, end);
        text.remove_prefix(end + 1);
        if (number == 1) {
            if (line != head) {
                return property_file_fault{number, "the file does not begin with \"thermal properties 1\""};
            }
        } else if (text.empty()) {
            return line == tail(values) ? std::nullopt
                                        : std::optional(property_file_fault{
                                              number, "the last line is not \"end\" and the number of properties"});
        } else if (const char* why = read_property(line, values)) {
            return property_file_fault{number, why};
        }
    }
}

}  // namespace thermal_host
