#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <vector>

#include "platform/host/ports.hpp"

namespace sim {

// How a card misbehaves.
enum class card_fault { none, silent, refuses, echoes_another, never_ready };

// One core of an accelerator behind its mailbox: a command register that answers with a status, a data register of 32
// bits, and scratch memory for commands that the card carries out in the background. Temperatures in degrees Celsius.
class mailbox_core {
public:
    struct readings {
        double die_c = 40.0;
        double memory_c = 40.0;
        double headroom_c = 50.0;  // until the card slows itself down
        double watts = 30.0;
    };
    // In milliwatts.
    struct limits {
        std::uint32_t lowest = 100'000;
        std::uint32_t highest = 300'000;
        std::uint32_t usual = 300'000;
    };

    explicit mailbox_core(thermal_host::block_line& line);
    mailbox_core(const mailbox_core&) = delete;
    mailbox_core& operator=(const mailbox_core&) = delete;

    readings shown;
    limits power_limits;
    // Capabilities. Page 0: a core, memory and headroom; page 2: no driver in bit 0.
    std::array<std::uint32_t, 3> pages{0x01 | 0x20 | 0x80, 0x01, 0x02};
    card_fault fault = card_fault::none;
    unsigned pending_answers = 0;  // of each command, ahead of its result

    void set_driver(bool is_loaded) { pages[2] = is_loaded ? 0x02 : 0x03; }
    // Without power it forgets what it was told.
    void set_power(bool is_on);

    std::uint32_t power_limit() const { return _power_limit; }  // mW; 0 until one is set
    unsigned peak_percent() const { return _peak_percent; }
    unsigned commands() const { return _commands; }

private:
    struct outcome {
        std::uint8_t status;
        std::uint32_t data;
    };

    std::uint32_t answer(const std::uint8_t* out, std::uint32_t size, std::uint8_t* in, std::uint32_t max, int& result);
    void take_command(std::uint8_t opcode, std::uint8_t argument_1, std::uint8_t argument_2);
    outcome carry_out(std::uint8_t opcode, std::uint8_t argument_1, std::uint8_t argument_2);
    outcome carry_out_later(std::uint8_t command, std::uint8_t sequence);
    void work(std::uint8_t command);
    std::uint8_t present_status();

    std::uint8_t _opcode = 0;
    outcome _outcome{0, 0};
    unsigned _pending = 0;
    std::uint32_t _data = 0;
    std::array<std::uint32_t, 8> _scratch{};
    std::uint8_t _sequence = 0;
    std::uint32_t _power_limit = 0;
    unsigned _peak_percent = 0;
    unsigned _commands = 0;
};

// A card that answers what was written to it at once: bytes out, bytes in.
class register_card {
public:
    using bytes = std::vector<std::uint8_t>;

    explicit register_card(thermal_host::block_line& line);
    register_card(const register_card&) = delete;
    register_card& operator=(const register_card&) = delete;

    card_fault fault = card_fault::none;  // all but `none` are silence

    void set(const bytes& written, bytes answer) { _answers.insert_or_assign(written, std::move(answer)); }
    // In place, for a card that shows something new all the time; ignores a request that it does not know.
    void set_byte(const bytes& written, std::size_t place, std::uint8_t value);

private:
    std::map<bytes, bytes> _answers;
    bytes _written;
};

}  // namespace sim
