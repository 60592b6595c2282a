#pragma once

#include <cstdint>
#include <string>

#include "platform/api.hpp"

// A named value that survives a restart of the controller ("/ac/...") or of the host ("/v2/...", "/dc/...").
// Writing the value it has already costs nothing: the firmware drops it. It holds a number or a block, and stays
// what it was made as.
class PLATFORM_API bmc_property {
public:
    virtual ~bmc_property();

    // The low part of the number; 0 of a block.
    virtual std::uint8_t get_byte() const = 0;
    virtual std::uint16_t get_word() const = 0;
    virtual std::uint32_t get_dword() const = 0;
    // The block as tlv1 tells, good until the property changes; null for a number.
    virtual const std::uint8_t* get_block() const = 0;

    // `flags` and `notify` are the firmware's; false if the value was refused.
    virtual bool set(std::uint8_t value, std::uint16_t flags, std::uint8_t notify) = 0;
    virtual bool set(std::uint16_t value, std::uint16_t flags, std::uint8_t notify) = 0;
    virtual bool set(std::uint32_t value, std::uint16_t flags, std::uint8_t notify) = 0;
    // A block of 1 to 255 bytes; it may change its length.
    virtual bool set(const std::uint8_t* bytes, unsigned size, std::uint16_t flags, std::uint8_t notify) = 0;

    // False if the property exists or cannot be made.
    static bool create(const std::string& path, std::uint8_t value, std::uint16_t flags);
    static bool create(const std::string& path, std::uint16_t value, std::uint16_t flags);
    static bool create(const std::string& path, std::uint32_t value, std::uint16_t flags);
    static bool create(const std::string& path, const std::uint8_t* bytes, unsigned size, std::uint16_t flags);
};

// A stored block: one byte of tag, which is the firmware's, one byte of length, and that many bytes.
struct tlv1 {
    static constexpr unsigned header_size = 2;
    // 0 for null.
    static unsigned tlv_get_length(const std::uint8_t* stored) { return stored != nullptr ? stored[1] : 0u; }
};

// Flags and notify argument of every property that this library writes: kept, and announced to subscribers.
constexpr std::uint16_t property_flags = 2048;
constexpr std::uint8_t property_notify = 1;
