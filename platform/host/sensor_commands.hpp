#pragma once

#include <cstdint>

namespace thermal_host {

class platform;

// What an IPMI client asks to find sensors and to show them: device identity, sensor records, readings and thresholds.
// Registers its commands with the host, and takes them away at its end. docs/ipmi.md has them byte by byte.
class sensor_commands {
public:
    explicit sensor_commands(platform& host);
    ~sensor_commands();
    sensor_commands(const sensor_commands&) = delete;
    sensor_commands& operator=(const sensor_commands&) = delete;

private:
    void register_all(bool is_offered);

    platform& _host;
    std::uint16_t _reservation = 0;  // the last that was given
};

}  // namespace thermal_host
