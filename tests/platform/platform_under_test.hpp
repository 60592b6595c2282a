#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "platform/events.hpp"
#include "platform/ipmi.hpp"

// All that the facade tests need of a platform beyond platform/ itself. Whoever ports the library writes these few
// operations for the firmware or its simulator. A new object starts from nothing: no lines, properties or subscribers.
class platform_under_test {
public:
    platform_under_test();
    ~platform_under_test();
    platform_under_test(const platform_under_test&) = delete;
    platform_under_test& operator=(const platform_under_test&) = delete;

    // Two lines with the same start value, one under the number and one under the key.
    void make_number(std::uint32_t port, const std::string& key, std::uint32_t value);
    void make_block(std::uint32_t port, const std::string& key, const std::vector<std::uint8_t>& content);
    // From now on every access to these lines fails.
    void fail_lines(std::uint32_t port, const std::string& key);
    void remove_lines(std::uint32_t port, const std::string& key);

    // Lets `ticks` platform ticks pass and delivers what comes due, to the end of the last one.
    void wait_ticks(unsigned ticks);
    std::uint8_t request(const ipmi_command_key& key, const std::vector<std::uint8_t>& bytes,
                         std::vector<std::uint8_t>& response);

private:
    struct implementation;
    std::unique_ptr<implementation> _implementation;
};
