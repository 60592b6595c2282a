#include "algorithm/rule_group.hpp"

#include <limits>
#include <optional>
#include <stdexcept>

#include "foundation/log_masks.hpp"

namespace {

// Most numbers of a rule file are a few plain digits, exact in every type here.
std::optional<int> plain_number(const char* text) {
    constexpr int most_digits = 7;
    int number = 0;
    for (int digits = 0; digits < most_digits; ++digits, ++text) {
        if (*text == '\0' && digits > 0) {
            return number;
        }
        if (*text < '0' || *text > '9') {
            break;
        }
        number = 10 * number + (*text - '0');
    }
    return {};
}

}  // namespace

int rule_group::integer(std::string_view key, const char* missing) const {
    const char* text = _rules.get_value(_group, key, missing);
    const std::optional<int> plain = plain_number(text);
    return plain ? *plain : std::stoi(text);
}

std::uint32_t rule_group::unsigned_integer(std::string_view key) const {
    const std::string_view text = _rules.get_value(_group, key, "0");
    const auto wide = static_cast<std::uint64_t>(std::stoul(text.data()));
    const std::uint64_t magnitude = text.starts_with('-') ? 0 - wide : wide;
    if (magnitude > std::numeric_limits<std::uint32_t>::max()) {
        throw std::out_of_range("stoul");
    }
    return static_cast<std::uint32_t>(wide);
}

float rule_group::number(std::string_view key, const char* missing) const {
    const char* text = _rules.get_value(_group, key, missing);
    const std::optional<int> plain = plain_number(text);
    return plain ? static_cast<float>(*plain) : std::stof(text);
}

unsigned rule_group::count(std::string_view key) const {
    const int number = integer(key);
    if (number < 1) {
        return 0;
    }
    const auto wanted = static_cast<unsigned>(number);
    const unsigned most = _rules.most_rows(_group, wanted) + 1;
    if (wanted <= most) {
        return wanted;
    }
    LOG::warn(log_source, log_mask::life_cycle, "rule group [%s]: %s=%d cut to %u, the group has no more rows\n", _name,
              std::string(key).c_str(), number, most);
    return most;
}
