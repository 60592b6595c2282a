#include "foundation/nap.hpp"

#include "foundation/log_masks.hpp"
#include "platform/clock.hpp"

void nap::set(const char* sleeper, unsigned long now, std::uint8_t seconds) {
    std::uint64_t clock = 0;
    _until = platform_clock::monotonic_seconds(clock) ? static_cast<std::uint32_t>(clock + seconds) : 0;
    LOG::log(log_source, log_mask::nap, "%s::%s:[%08lX] [%08lX]-[%02X]\n", sleeper, "nap_set", now,
             static_cast<unsigned long>(_until), static_cast<unsigned>(seconds));
}

bool nap::check(const char* sleeper, unsigned long now) {
    std::uint64_t clock = 0;
    if (_until == 0 || !platform_clock::monotonic_seconds(clock)) {
        return false;
    }
    if (_until >= clock) {
        return true;
    }
    LOG::log(log_source, log_mask::nap, "%s::%s:[%08lX] [%08lX] < [%08llX]\n", sleeper, "nap_chk", now,
             static_cast<unsigned long>(_until), static_cast<unsigned long long>(clock));
    _until = 0;
    return false;
}
