#pragma once

#include <chrono>
#include <cstdint>

namespace thermal_host {

using nanoseconds = std::chrono::nanoseconds;

constexpr nanoseconds never = nanoseconds::max();

// Time of one host object: the kernel's clocks, or a virtual time that only the event loop moves.
class host_clock {
public:
    // A virtual clock starts at the wall time `virtual_wall` (nanoseconds since 1970).
    host_clock(bool is_virtual, std::int64_t virtual_wall);

    bool is_virtual() const { return _virtual; }
    // Since the construction of the clock; never goes back.
    nanoseconds now() const;

    std::int64_t wall_nanoseconds() const;
    // Sets this host's wall clock, forwards or backwards. The machine's own clock is left alone.
    void set_wall_nanoseconds(std::int64_t wall);

    bool monotonic_seconds(std::uint64_t& seconds);
    // The next `count` reads of the monotonic clock fail.
    void fail_monotonic(unsigned count) { _failing_monotonic = count; }

    // Virtual time only; a time in the past changes nothing.
    void advance_to(nanoseconds time);

private:
    bool _virtual;
    nanoseconds _start{0};
    nanoseconds _virtual_now{0};
    std::int64_t _wall_offset = 0;  // wall clock minus its source
    unsigned _failing_monotonic = 0;
};

}  // namespace thermal_host
