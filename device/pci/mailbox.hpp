#pragma once

#include <array>
#include <cstdint>

#include "foundation/common_thermal_utils.hpp"

// Frames of a card's mailbox: a command register that answers with a status, and a data register of 32 bits. Written
// are register, length and four bytes; an answer is a count and four bytes.
namespace mailbox {

using status_t = common_thermal_utils::nv_cmd_status_t;
using frame = std::array<std::uint8_t, 6>;

constexpr std::uint8_t command_register = 0x5C;
constexpr std::uint8_t data_register = 0x5D;
constexpr std::uint8_t payload_length = 4;
constexpr std::uint8_t request_flag = 0x80;
constexpr std::size_t answer_length = 5;

constexpr frame command(std::uint8_t opcode, std::uint8_t argument_1 = 0, std::uint8_t argument_2 = 0) {
    return {command_register, payload_length, opcode, argument_1, argument_2, request_flag};
}

constexpr frame data(std::uint32_t word) {
    const auto byte = [word](unsigned place) { return static_cast<std::uint8_t>(word >> (8 * place)); };
    return {data_register, payload_length, byte(0), byte(1), byte(2), byte(3)};
}

constexpr std::uint8_t opcode_of(const frame& command) { return command[2]; }
constexpr std::uint8_t echo_of(const frame& answer) { return answer[1]; }
constexpr std::uint8_t status_of(const frame& answer) { return answer[4]; }

constexpr std::uint32_t word_of(const frame& answer) {
    std::uint32_t word = 0;
    for (unsigned place = 0; place < 4; ++place) {
        word |= std::uint32_t{answer[1 + place]} << (8 * place);
    }
    return word;
}

// The only status that says failed by itself; every other one that is not known counts as failed too.
constexpr std::uint8_t status_refused = 0x1E;
constexpr bool is_refusal(std::uint8_t status) { return (status & 0x1F) == status_refused; }

// Bit 7 echoes the request flag, and bits 5 and 6 tell nothing but that there is an answer.
constexpr status_t judge(std::uint8_t status) {
    if ((status & 0x7F) == 0) {
        return common_thermal_utils::cmd_pending;
    }
    switch (status & 0x1F) {
        case 0x1F:
            return common_thermal_utils::cmd_data_ready;
        case 0x1C:
            return common_thermal_utils::cmd_accepted;
        case 0x0A:
            return common_thermal_utils::cmd_busy;
        default:
            return common_thermal_utils::cmd_failed;
    }
}

}  // namespace mailbox
