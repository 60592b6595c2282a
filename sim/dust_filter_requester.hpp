#pragma once

#include <cstdint>

#include "platform/host/ports.hpp"

namespace sim {

// The firmware that asks for a dust filter measurement now and then: it writes a request, waits for the answer, and
// takes the request back.
class dust_filter_requester {
public:
    explicit dust_filter_requester(thermal_host::number_line& line) : _line(line) {}

    void request() { _line.set_value(requested); }
    // Has a look at the answer.
    void look() {
        if (_line.value() == measured || _line.value() == refused) {
            _measurements += _line.value() == measured ? 1 : 0;
            _line.set_value(none);
        }
    }
    bool is_waiting() const { return _line.value() != none; }
    unsigned measurements() const { return _measurements; }

private:
    static constexpr std::uint32_t none = 0x00;
    static constexpr std::uint32_t requested = 0x10;
    static constexpr std::uint32_t measured = 0x80;
    static constexpr std::uint32_t refused = 0x81;

    thermal_host::number_line& _line;
    unsigned _measurements = 0;
};

}  // namespace sim
