#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "platform/host/ipmi.hpp"
#include "platform/host/pseudo_terminal.hpp"
#include "platform/host/sensor_commands.hpp"

namespace thermal_host {

struct terminal_request {
    ipmi_command_key key;
    std::uint8_t sequence;
    std::vector<std::uint8_t> data;
};

// Why a line is dropped without an answer.
enum class terminal_fault { torn, too_long, no_bytes, too_short, no_request };

using terminal_input = std::variant<terminal_request, terminal_fault>;

// Finds the requests of serial terminal mode among characters: bytes in hexadecimal digits between brackets, with or
// without blanks between them. Whatever stands outside of brackets is ignored, and each opening one begins anew.
class terminal_decoder {
public:
    static constexpr std::size_t longest_line = 1024;

    terminal_decoder() { _line.reserve(longest_line); }

    // Something whenever `character` ends a line.
    std::optional<terminal_input> take(char character);

private:
    terminal_input end_line();

    std::string _line;
    bool _is_inside = false;
};

std::string terminal_line(const terminal_request& request, const ipmi_answer& answer);

// The IPMI service on a pseudo-terminal in serial terminal mode, and with it the commands about sensors. Requests are
// handled on the loop's thread, a few at each turn, only in real time. Clients may come and go, and share the terminal
// in turns; nothing that they send or leave unread holds the loop up.
class ipmi_terminal {
public:
    // Throws what a user should read if the terminal or its link cannot be made. The host must live longer.
    ipmi_terminal(platform& host, const std::string& link);
    ~ipmi_terminal();
    ipmi_terminal(const ipmi_terminal&) = delete;
    ipmi_terminal& operator=(const ipmi_terminal&) = delete;

    unsigned dropped_lines() const { return _dropped_lines; }
    // Not sent because the client did not read the ones before.
    unsigned lost_answers() const { return _lost_answers; }

private:
    void read_some();
    void answer(const terminal_request& request);

    platform& _host;
    sensor_commands _sensors;
    pseudo_terminal _terminal;
    terminal_decoder _decoder;
    unsigned _dropped_lines = 0;
    unsigned _lost_answers = 0;
};

}  // namespace thermal_host
