#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace thermal_host {

struct property_value {
    // `value` has to fit; see fits().
    static property_value number_of(unsigned width, std::uint32_t value) { return {width, value, {}}; }
    // With the tag and length that it is stored under; nothing for a size that a block cannot have.
    static std::optional<property_value> block_of(const std::uint8_t* bytes, unsigned size);

    bool is_block() const { return width == 0; }
    // Whether a number of this width can be `value`.
    bool fits(std::uint32_t value) const { return width >= sizeof(value) || value < std::uint32_t{1} << (8 * width); }
    bool operator==(const property_value&) const = default;

    unsigned width = 0;  // bytes of the number: 1, 2 or 4; 0 for a block
    std::uint32_t number = 0;
    std::vector<std::uint8_t> block;
};

using property_values = std::map<std::string, property_value, std::less<>>;

// Whether a line of the file can hold the path.
bool is_usable_path(std::string_view path);

// The file's text: a line that says what it is, a line for each property, and a last line with their number, without
// which the file is torn.
std::string property_file_text(const property_values& values);

// Why a file is not used, and the line counted from 1.
struct property_file_fault {
    unsigned line;
    const char* why;
};

// Fills `values`; what it holds after a fault is no use.
std::optional<property_file_fault> read_property_file(std::string_view text, property_values& values);

}  // namespace thermal_host
