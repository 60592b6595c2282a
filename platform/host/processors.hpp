#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <utility>
#include <vector>

#include "platform/host/ports.hpp"
#include "platform/host_cpu.hpp"

namespace thermal_host {

// What a processor answers. Temperatures in degrees Celsius, power in W.
struct processor_answers {
    float relative_temperature = -45.0f;
    float absolute_temperature = 50.0f;
    float margin = 45.0f;
    float average_power = 100.0f;
    cpu_family_t family = cpu_family_t{6};
    std::uint32_t type = 143;
    std::uint8_t power_unit = 3;
    std::uint8_t energy_unit = 14;
    float tjmax = 95.0f;
    std::uint16_t tdp = 200;
    std::uint32_t cores = 32;
    std::uint32_t throttle_status = 0;
};

// A memory channel of a processor: whole degrees of each module, nothing where there is none. fail_reads() makes the
// channel's bus fail; the processor's other answers go on.
class memory_channel : public port_line {
public:
    std::vector<std::optional<int>> modules;
    std::uint8_t last_count = 0;  // modules that the last read asked for

    bool answers_access(std::uint8_t count) {
        last_count = count;
        return begin_read();
    }
};

// A processor socket as its bus shows it; fail_reads() makes the bus fail. Loop thread only.
class processor_socket : public port_line {
public:
    // Bit of the status word that says the processor slows itself down now; the others are its history.
    static constexpr std::uint32_t throttling_now = 1;

    explicit processor_socket(const processor_answers& first) : answers(first) {}

    processor_answers answers;
    std::map<std::uint8_t, memory_channel> memory;  // by channel, counted from 0
    bool is_present = true;
    unsigned tjmax_zero_reads = 0;                // the next so many reads of Tjmax answer 0.0
    std::deque<std::uint16_t> tdp_of_next_boots;  // one is taken with each release()

    // Keeps the processor in reset, where it does not answer, and lets it start.
    void hold() { _is_held = true; }
    void release();
    bool is_held() const { return _is_held; }

    // One access over the bus.
    bool answers_access() { return begin_read() && is_present && !_is_held; }
    float take_tjmax();

private:
    bool _is_held = false;
};

// The sockets of the machine by interface and bus address. A reference is good until its socket is replaced.
class processor_list {
public:
    processor_socket& add(host_cpu_vendor vendor, std::uint8_t address, const processor_answers& answers = {});
    // Null if there is none.
    processor_socket* find(host_cpu_vendor vendor, std::uint8_t address);

private:
    std::map<std::pair<host_cpu_vendor, std::uint8_t>, processor_socket> _sockets;
};

}  // namespace thermal_host
