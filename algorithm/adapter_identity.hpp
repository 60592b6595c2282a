#pragma once

#include <cstdint>

#include "foundation/float_conversion.hpp"
#include "store/common_thermal_dao.hpp"

// Which adapter is in a slot: three store values, such as vendor, device and subsystem of a slot device.
struct adapter_identity {
    float x = 0.0f;
    float y = 0.0f;
    float z = 0.0f;
};

// Whether a slot holds a card that has told who it is. Some cards have no third number.
constexpr bool has_two_numbers(const adapter_identity& live) { return live.x != 0.0f && live.y != 0.0f; }
constexpr bool has_three_numbers(const adapter_identity& live) { return has_two_numbers(live) && live.z != 0.0f; }

// Where an identity is read. A value that is not in the store reads as 0.
struct adapter_identity_references {
    adapter_identity_references() = default;
    explicit adapter_identity_references(int instance)
        : x_reference(instance), y_reference(instance), z_reference(instance) {}

    store_reference x_reference;
    store_reference y_reference;
    store_reference z_reference;

    adapter_identity fetch_identity(const common_thermal_dao& dao) {
        adapter_identity identity;
        x_reference.fetch(dao, &identity.x);
        y_reference.fetch(dao, &identity.y);
        z_reference.fetch(dao, &identity.z);
        return identity;
    }
};

// Numbers of an identity have 16 bits; one of a row that reads 65535 stands for any.
constexpr bool is_identity_number(float of_row, float live) {
    constexpr std::uint16_t any = 0xFFFF;
    const std::uint16_t wanted = saturate_to_word(of_row);
    return wanted == any || wanted == saturate_to_word(live);
}

constexpr bool is_adapter(const adapter_identity& of_row, const adapter_identity& live) {
    return is_identity_number(of_row.x, live.x) && is_identity_number(of_row.y, live.y) &&
           is_identity_number(of_row.z, live.z);
}
