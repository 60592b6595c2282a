#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <utility>
#include <vector>

#include "platform/api.hpp"

// Bytes of an IPMI request or response, taken from the front and put at the back.
class bmc_message_buffer {
public:
    bmc_message_buffer() = default;
    explicit bmc_message_buffer(std::vector<std::uint8_t> bytes) : _bytes(std::move(bytes)) {}

    // What is missing reads as 0, so a short request needs its length() checked first. Numbers of 16 bits travel with
    // the high byte first.
    std::uint8_t pop() { return _next < _bytes.size() ? _bytes[_next++] : std::uint8_t{0}; }
    std::uint16_t pop_16() {
        const unsigned high = pop();
        return static_cast<std::uint16_t>(high << 8 | pop());
    }
    void push(std::uint8_t value) { _bytes.push_back(value); }
    void push_16(std::uint16_t value) {
        push(static_cast<std::uint8_t>(value >> 8));
        push(static_cast<std::uint8_t>(value & 0xFF));
    }
    // All bytes, also those that were taken.
    unsigned length() const { return static_cast<unsigned>(_bytes.size()); }
    const std::vector<std::uint8_t>& bytes() const { return _bytes; }

private:
    std::vector<std::uint8_t> _bytes;
    std::size_t _next = 0;
};

struct ipmi_message {
    bmc_message_buffer request;
    bmc_message_buffer response;
};

struct ipmi_command_key {
    std::uint8_t command;
    std::uint8_t network_function;
    std::uint8_t lun;
    auto operator<=>(const ipmi_command_key&) const = default;  // NOLINT(modernize-use-nullptr)
};

// Runs on the thermal thread, between ticks, and returns the completion code.
using ipmi_command_handler = std::function<std::uint8_t(ipmi_message&)>;

struct PLATFORM_API IPMI {
    // A later registration of the same key replaces the earlier one; an empty handler takes the command away.
    static void register_command(ipmi_command_key key, ipmi_command_handler handler);
    // Tells the IPMI side that something moved; fire and forget.
    static void progress_notify(int code, int detail);
    // Tells the IPMI side that the power brake of `what` is now in `state`, "enabled" or "disabled"; fire and forget.
    static void send_pciegen_pwrbrk_enabled_disabled_overriden(const char* what, const char* state);
};

// Carries out one IPMI request on this controller; both lengths are in bytes. Returns 0 for success. The caller gives
// room for 52 bytes of response, sets `*response_length` to 0 and does not look at either afterwards.
//
// The library sends one command, Set Sensor Thresholds, in 12 bytes:
//   0 address, 0x20            4 sensor number
//   1 network function, 0x04   5 which of the thresholds count: bit 0 the first, bit 5 the last
//   2 logical unit             6, 7, 8 lower non-critical, critical, non-recoverable
//   3 command, 0x26            9, 10, 11 upper non-critical, critical, non-recoverable
// A threshold is the low byte of the rule's number without its fraction. The sensor's conversion is not applied to it.
PLATFORM_API int send_ipmi_cmd(const std::uint8_t* request, const std::uint32_t* request_length, std::uint8_t* response,
                               std::uint32_t* response_length);
