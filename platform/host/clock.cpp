#include "platform/host/clock.hpp"

#include <algorithm>
#include <ctime>

#include "platform/clock.hpp"
#include "platform/host/host.hpp"

namespace thermal_host {

namespace {

// A board that has been up for a while, so that a time of 0 is nothing special.
constexpr std::uint64_t virtual_uptime_seconds = 100;

nanoseconds kernel_clock(clockid_t clock) {
    timespec time{};
    ::clock_gettime(clock, &time);
    return std::chrono::seconds(time.tv_sec) + nanoseconds(time.tv_nsec);
}

}  // namespace

host_clock::host_clock(bool is_virtual, std::int64_t virtual_wall) : _virtual(is_virtual) {
    if (_virtual) {
        _wall_offset = virtual_wall;
    } else {
        _start = kernel_clock(CLOCK_MONOTONIC);
    }
}

nanoseconds host_clock::now() const { return _virtual ? _virtual_now : kernel_clock(CLOCK_MONOTONIC) - _start; }

std::int64_t host_clock::wall_nanoseconds() const {
    return _wall_offset + (_virtual ? _virtual_now : kernel_clock(CLOCK_REALTIME)).count();
}

void host_clock::set_wall_nanoseconds(std::int64_t wall) { _wall_offset += wall - wall_nanoseconds(); }

bool host_clock::monotonic_seconds(std::uint64_t& seconds) {
    if (_failing_monotonic != 0) {
        --_failing_monotonic;
        return false;
    }
    const nanoseconds time = _virtual ? _virtual_now : kernel_clock(CLOCK_MONOTONIC);
    seconds = static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::seconds>(time).count());
    if (_virtual) {
        seconds += virtual_uptime_seconds;
    }
    return true;
}

void host_clock::advance_to(nanoseconds time) { _virtual_now = std::max(_virtual_now, time); }

}  // namespace thermal_host

using thermal_host::platform;

std::int64_t platform_clock::wall_nanoseconds() {
    const platform* host = platform::current();
    return host != nullptr ? host->clock.wall_nanoseconds() : 0;
}

bool platform_clock::monotonic_seconds(std::uint64_t& seconds) {
    platform* host = platform::current();
    return host != nullptr && host->clock.monotonic_seconds(seconds);
}
