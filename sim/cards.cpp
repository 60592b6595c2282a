#include "sim/cards.hpp"

#include <algorithm>
#include <cmath>

namespace sim {

namespace {

constexpr std::uint8_t command_register = 0x5C;
constexpr std::uint8_t data_register = 0x5D;
constexpr std::uint8_t payload_length = 4;

enum status : std::uint8_t { pending = 0x80, ready = 0x1F, accepted = 0x1C, refused = 0x1E };
enum opcode : std::uint8_t {
    read_capabilities = 0x01,
    read_temperature = 0x02,
    read_power = 0x04,
    read_scratch = 0x0D,
    write_scratch = 0x0E,
    background_command = 0x10
};
enum temperature_kind : std::uint8_t { die = 0, memory = 5, headroom = 7 };
enum background : std::uint8_t { get_limit = 0, set_limit = 1, get_bounds = 2, peak = 17, poll = 0xFF };

constexpr std::uint32_t lowest_peak_percent = 60;
constexpr std::uint32_t highest_peak_percent = 100;

// Degrees with eight bits of fraction.
std::uint32_t fixed_point(double celsius) {
    return static_cast<std::uint32_t>(static_cast<std::int32_t>(std::lround(celsius * 256.0)));
}

std::uint32_t put(std::uint8_t* in, std::uint32_t max, const std::array<std::uint8_t, 5>& bytes) {
    const auto count = std::min<std::size_t>(max, bytes.size());
    std::copy_n(bytes.begin(), count, in);
    return static_cast<std::uint32_t>(count);
}

}  // namespace

mailbox_core::mailbox_core(thermal_host::block_line& line) {
    line.set_script([this](const std::uint8_t* out, std::uint32_t size, std::uint8_t* in, std::uint32_t max,
                           int& result) { return answer(out, size, in, max, result); });
}

void mailbox_core::set_power(bool is_on) {
    if (is_on) {
        return;
    }
    _power_limit = 0;
    _peak_percent = 0;
    _pending = 0;
    _outcome = {pending, 0};
    _scratch = {};
}

std::uint32_t mailbox_core::answer(const std::uint8_t* out, std::uint32_t size, std::uint8_t* in, std::uint32_t max,
                                   int& result) {
    if (size == 0 || fault == card_fault::silent) {
        result = 1;
        return 0;
    }
    const bool is_frame = size >= 6 && out[1] == payload_length;
    if (out[0] == command_register && is_frame) {
        take_command(out[2], out[3], out[4]);
    } else if (out[0] == data_register && is_frame) {
        _data = std::uint32_t{out[2]} | std::uint32_t{out[3]} << 8 | std::uint32_t{out[4]} << 16 |
                std::uint32_t{out[5]} << 24;
    }
    if (out[0] == command_register) {
        const std::uint8_t echo = fault == card_fault::echoes_another ? static_cast<std::uint8_t>(~_opcode) : _opcode;
        return put(in, max, {payload_length, echo, 0, 0, max != 0 ? present_status() : std::uint8_t{0}});
    }
    const auto byte = [this](unsigned place) { return static_cast<std::uint8_t>(_data >> (8 * place)); };
    return put(in, max, {payload_length, byte(0), byte(1), byte(2), byte(3)});
}

void mailbox_core::take_command(std::uint8_t opcode, std::uint8_t argument_1, std::uint8_t argument_2) {
    ++_commands;
    _opcode = opcode;
    _pending = pending_answers;
    _outcome = fault == card_fault::refuses ? outcome{refused, 0} : carry_out(opcode, argument_1, argument_2);
}

std::uint8_t mailbox_core::present_status() {
    if (fault == card_fault::never_ready) {
        return pending;
    }
    if (_pending > 0) {
        --_pending;
        return pending;
    }
    if (_outcome.status == ready || _outcome.status == accepted) {
        _data = _outcome.data;
    }
    return static_cast<std::uint8_t>(_outcome.status | pending);
}

mailbox_core::outcome mailbox_core::carry_out(std::uint8_t opcode, std::uint8_t argument_1, std::uint8_t argument_2) {
    switch (opcode) {
        case read_capabilities:
            return argument_1 < pages.size() ? outcome{ready, pages[argument_1]} : outcome{refused, 0};
        case read_temperature:
            switch (argument_1) {
                case die:
                    return {ready, fixed_point(shown.die_c)};
                case memory:
                    return {ready, fixed_point(shown.memory_c)};
                case headroom:
                    return {ready, fixed_point(shown.headroom_c)};
                default:
                    return {refused, 0};
            }
        case read_power:
            return {ready, static_cast<std::uint32_t>(std::lround(shown.watts * 1000.0))};
        case read_scratch:
            return argument_1 < _scratch.size() ? outcome{ready, _scratch[argument_1]} : outcome{refused, 0};
        case write_scratch:
            if (argument_1 >= _scratch.size()) {
                return {refused, 0};
            }
            _scratch[argument_1] = _data;
            return {ready, _data};
        case background_command:
            return carry_out_later(argument_1, argument_2);
        default:
            return {refused, 0};
    }
}

// A command of the background is accepted with a number, under which the card is asked whether it is done.
mailbox_core::outcome mailbox_core::carry_out_later(std::uint8_t command, std::uint8_t sequence) {
    if (command == poll) {
        return sequence == _sequence ? outcome{ready, 0} : outcome{refused, 0};
    }
    if (command > get_bounds && command != peak) {
        return {refused, 0};
    }
    _sequence = static_cast<std::uint8_t>(_sequence % 250 + 1);
    work(command);
    return {accepted, _sequence};
}

void mailbox_core::work(std::uint8_t command) {
    switch (command) {
        case get_limit:
            _scratch[1] = _scratch[2] = _power_limit != 0 ? _power_limit : power_limits.usual;
            break;
        case set_limit:
            _power_limit = std::clamp(_scratch[1], power_limits.lowest, power_limits.highest);
            break;
        case get_bounds:
            _scratch[0] = power_limits.lowest;
            _scratch[1] = power_limits.highest;
            _scratch[2] = power_limits.usual;
            break;
        case peak: {
            // The lowest bit asks for a new percentage.
            if ((_scratch[0] & 1u) != 0) {
                _peak_percent = _scratch[0] >> 4 & 0x7Fu;
            }
            const std::uint32_t present = _peak_percent != 0 ? _peak_percent : highest_peak_percent;
            _scratch[0] =
                present << 4 | highest_peak_percent << 11 | highest_peak_percent << 18 | lowest_peak_percent << 25;
            break;
        }
        default:
            break;
    }
}

register_card::register_card(thermal_host::block_line& line) {
    line.set_script([this](const std::uint8_t* out, std::uint32_t size, std::uint8_t* in, std::uint32_t max,
                           int& result) -> std::uint32_t {
        _written.assign(out, out + size);
        const auto found = _answers.find(_written);
        if (fault != card_fault::none || found == _answers.end()) {
            result = 1;
            return 0;
        }
        const auto count = std::min<std::size_t>(max, found->second.size());
        std::copy_n(found->second.begin(), count, in);
        return static_cast<std::uint32_t>(count);
    });
}

void register_card::set_byte(const bytes& written, std::size_t place, std::uint8_t value) {
    const auto found = _answers.find(written);
    if (found != _answers.end() && place < found->second.size()) {
        found->second[place] = value;
    }
}

}  // namespace sim
