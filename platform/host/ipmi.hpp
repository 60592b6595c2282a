#pragma once

#include <cstdint>
#include <functional>
#include <future>
#include <map>
#include <string>
#include <vector>

#include "platform/host/bounded_record.hpp"
#include "platform/host/event_loop.hpp"
#include "platform/ipmi.hpp"

namespace thermal_host {

constexpr std::uint8_t ipmi_invalid_command = 0xC1;
constexpr std::uint8_t ipmi_unspecified_error = 0xFF;

struct ipmi_answer {
    std::uint8_t completion_code;
    std::vector<std::uint8_t> data;
};

struct progress_note {
    int code;
    int detail;
};

struct brake_notice {
    std::string what;
    std::string state;
};

// Takes requests from any thread and runs their handlers on the loop's thread, between events.
class ipmi_dispatcher {
public:
    explicit ipmi_dispatcher(event_loop& loop) : _loop(loop) {}

    // Loop thread only. An empty handler takes the command away.
    void register_command(const ipmi_command_key& key, ipmi_command_handler handler);

    // Loop thread only: at once.
    ipmi_answer execute(const ipmi_command_key& key, std::vector<std::uint8_t> bytes);

    // From any thread, while the host lives. `done` runs on the loop's thread.
    void request(const ipmi_command_key& key, std::vector<std::uint8_t> bytes, std::function<void(ipmi_answer)> done);
    // The future is broken if the host ends before it came to the request. Never wait for it on the loop's thread.
    std::future<ipmi_answer> request(const ipmi_command_key& key, std::vector<std::uint8_t> bytes);

    bounded_record<progress_note>& progress_notes() { return _progress; }
    bounded_record<brake_notice>& brake_notices() { return _brake; }

private:
    event_loop& _loop;
    std::map<ipmi_command_key, ipmi_command_handler> _handlers;
    bounded_record<progress_note> _progress{64};
    bounded_record<brake_notice> _brake{64};
};

}  // namespace thermal_host
