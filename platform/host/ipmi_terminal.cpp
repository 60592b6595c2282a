#include "platform/host/ipmi_terminal.hpp"

#include <array>
#include <charconv>
#include <span>
#include <utility>

#include "platform/host/host.hpp"
#include "platform/log.hpp"

namespace thermal_host {

namespace {

// Function and unit, sequence, command.
constexpr std::size_t header_size = 3;
// What one turn of the loop takes in, so that a flood leaves time for everything else.
constexpr std::size_t read_size = 256;
// Unread characters in front of a client that is taken not to read. The kernel keeps about twice as many.
constexpr std::size_t most_unread = 2048;

// False if the text is no whole number of bytes.
bool read_bytes(std::string_view text, std::vector<std::uint8_t>& bytes) {
    while (!text.empty()) {
        if (text.front() == ' ') {
            text.remove_prefix(1);
            continue;
        }
        std::uint8_t value = 0;
        const std::string_view digits = text.substr(0, 2);
        const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value, 16);
        if (error != std::errc() || end != digits.data() + 2) {
            return false;
        }
        bytes.push_back(value);
        text.remove_prefix(2);
    }
    return true;
}

}  // namespace

std::optional<terminal_input> terminal_decoder::take(char character) {
    if (character == '[') {
        const bool is_torn = std::exchange(_is_inside, true);
        _line.clear();
        return is_torn ? std::optional<terminal_input>(terminal_fault::torn) : std::nullopt;
    }
    if (!_is_inside) {
        return std::nullopt;
    }
    if (character == ']' || character == '\r' || character == '\n') {
        _is_inside = false;
        return character == ']' ? end_line() : terminal_fault::torn;
    }
    if (_line.size() == longest_line) {
        _is_inside = false;
        return terminal_fault::too_long;
    }
    _line.push_back(character);
    return std::nullopt;
}

terminal_input terminal_decoder::end_line() {
    std::vector<std::uint8_t> bytes;
    if (!read_bytes(_line, bytes)) {
        return terminal_fault::no_bytes;
    }
    if (bytes.size() < header_size) {
        return terminal_fault::too_short;
    }
    const auto function = static_cast<std::uint8_t>(bytes[0] >> 2);
    const auto unit = static_cast<std::uint8_t>(bytes[0] & 3u);
    if (function % 2 != 0) {
        // An answer, such as one of ours that a terminal with its echo on sends back.
        return terminal_fault::no_request;
    }
    return terminal_request{{bytes[2], function, unit}, bytes[1], {bytes.begin() + header_size, bytes.end()}};
}

std::string terminal_line(const terminal_request& request, const ipmi_answer& answer) {
    static constexpr char digits[] = "0123456789ABCDEF";
    std::string line;
    const auto add = [&line](unsigned value) {
        line += line.empty() ? '[' : ' ';
        line += digits[value >> 4 & 15u];
        line += digits[value & 15u];
    };
    add((request.key.network_function | 1u) << 2 | request.key.lun);
    add(request.sequence);
    add(request.key.command);
    add(answer.completion_code);
    for (const std::uint8_t value : answer.data) {
        add(value);
    }
    return line + "]\r\n";
}

ipmi_terminal::ipmi_terminal(platform& host, const std::string& link) : _host(host), _sensors(host), _terminal(link) {
    _host.loop.watch(_terminal.descriptor(), [this] { read_some(); });
}

ipmi_terminal::~ipmi_terminal() { _host.loop.unwatch(_terminal.descriptor()); }

void ipmi_terminal::read_some() {
    std::array<char, read_size> characters{};
    const std::optional<std::size_t> count = _terminal.read(characters);
    if (!count) {
        _host.loop.unwatch(_terminal.descriptor());
        LOG::err(host_log_source, "IPMI terminal: cannot be read any more\n");
        return;
    }
    for (const char character : std::span(characters).first(*count)) {
        const std::optional<terminal_input> input = _decoder.take(character);
        if (!input) {
            continue;
        }
        if (const auto* request = std::get_if<terminal_request>(&*input)) {
            answer(*request);
        } else {
            ++_dropped_lines;
        }
    }
}

void ipmi_terminal::answer(const terminal_request& request) {
    const std::string line = terminal_line(request, _host.ipmi.execute(request.key, request.data));
    if (_terminal.unread() + line.size() > most_unread || !_terminal.write(line)) {
        ++_lost_answers;
    }
}

}  // namespace thermal_host
