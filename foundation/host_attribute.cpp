#include "foundation/host_attribute.hpp"

#include <cstdlib>

namespace {

constexpr unsigned long highest_mode = 3;
constexpr std::uint8_t mode_of_larger_numbers = 2;

std::uint8_t mode_from_text(const char* text) {
    const unsigned long number = std::strtoul(text, nullptr, 0);
    return number > highest_mode ? mode_of_larger_numbers : static_cast<std::uint8_t>(number);
}

}  // namespace

host_attribute_query query_power_brake_mode() {
    host_attribute_query query;
    query.request.count = 1;
    query.request.name = power_brake_attribute;
    query.request.default_text = "";
    query.error = hvt_api_initialize();
    if (query.error != 0) {
        return query;
    }
    query.error = hvt_get_bios_attribute_value(&query.request, 1, 0);
    query.request.value[sizeof query.request.value - 1] = '\0';
    if (query.error == 0) {
        query.result = host_attribute_query::outcome::answered;
        query.mode = mode_from_text(query.request.value);
    } else {
        query.result = host_attribute_query::outcome::failed;
    }
    hvt_api_uninitialize();
    return query;
}
