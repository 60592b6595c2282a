#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "platform/host/bounded_record.hpp"
#include "platform/host/ports.hpp"

namespace thermal_host {

constexpr std::uint8_t ipmi_invalid_length = 0xC7;
constexpr std::uint8_t ipmi_unknown_sensor = 0xCB;

// In the order of severity.
enum class sensor_state { ok, non_critical, critical, non_recoverable, no_reading };
const char* sensor_state_text(sensor_state state);

struct sensor_id {
    std::uint8_t lun;
    std::uint8_t number;
    auto operator<=>(const sensor_id&) const = default;  // NOLINT(modernize-use-nullptr)
};

struct sensor_definition {
    std::string name;
    std::string unit;
    // A raw reading shows as (raw * m + b) / k2.
    float m = 1.0f;
    float b = 0.0f;
    float k2 = 1.0f;
    port_id output;                    // where the library writes the raw reading
    std::vector<port_id> events = {};  // high from non-critical, critical, non-recoverable upward; may be empty
};

// Lower non-critical, critical, non-recoverable, then upper ones; raw, and nothing while nobody set them.
using sensor_thresholds = std::array<std::optional<std::uint8_t>, 6>;

struct sensor_report {
    sensor_id id;
    std::string name;
    std::string unit;
    std::optional<std::uint32_t> raw;  // as the library wrote it, mostly one byte
    std::optional<float> value;
    sensor_state state;
    sensor_thresholds thresholds;
};

// The IPMI sensors of the machine, kept as their firmware would: readings come from ports, thresholds by command.
// A sensor has no reading until its port is there and was written once; then the worse of what its thresholds and its
// event ports say is its state. Loop thread only.
class sensor_list {
public:
    explicit sensor_list(const port_registry& ports) : _ports(ports) {}

    // Replaces a sensor of the same identity. The lines behind its ports may come later.
    void add(sensor_id id, sensor_definition definition);

    // In the order of logical unit and number.
    std::vector<sensor_report> list() const;
    std::optional<sensor_report> find(sensor_id id) const;
    // Null for an unknown sensor; until the next add().
    const sensor_definition* definition(sensor_id id) const;

    // `thresholds` are in the order of sensor_thresholds; those whose bit is not set in `which`, bit 0 for the first,
    // stay as they are. False for an unknown sensor.
    bool set_thresholds(sensor_id id, std::uint8_t which, std::span<const std::uint8_t, 6> thresholds);
    // Returns a completion code; anything but a well-formed Set Sensor Thresholds for a known sensor changes nothing.
    std::uint8_t execute(std::span<const std::uint8_t> request);
    // What execute() was given.
    bounded_record<std::vector<std::uint8_t>>& requests() { return _requests; }

private:
    struct sensor {
        sensor_definition definition;
        sensor_thresholds thresholds{};
    };

    const number_line* line_of(const port_id& port) const;
    sensor_state state_of(const sensor& each, std::uint32_t raw) const;
    sensor_report report_of(sensor_id id, const sensor& each) const;

    const port_registry& _ports;
    std::map<sensor_id, sensor> _sensors;
    bounded_record<std::vector<std::uint8_t>> _requests{64};
};

}  // namespace thermal_host
