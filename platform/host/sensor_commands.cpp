#include "platform/host/sensor_commands.hpp"

#include <algorithm>
#include <array>
#include <optional>
#include <span>
#include <vector>

#include "platform/host/host.hpp"
#include "platform/host/sensor_record.hpp"
#include "platform/ipmi.hpp"

namespace thermal_host {

namespace {

constexpr std::uint8_t completed = 0;
constexpr std::uint8_t lost_reservation = 0xC5;
constexpr std::uint8_t out_of_range = 0xC9;

constexpr std::uint8_t function_sensor = 0x04;
constexpr std::uint8_t function_application = 0x06;
constexpr std::uint8_t function_storage = 0x0A;
constexpr unsigned logical_units = 4;

// The number of a record tells its sensor. These two stand for others in a request; the last one also follows the last.
constexpr std::uint16_t first_record = 0;
constexpr std::uint16_t last_record = 0xFFFF;

std::uint16_t record_of(sensor_id id) {
    constexpr unsigned sensors_of_a_unit = 256;
    return static_cast<std::uint16_t>(1 + sensors_of_a_unit * id.lun + id.number);
}

std::uint16_t pop_low_first(bmc_message_buffer& bytes) {
    const unsigned low = bytes.pop();
    return static_cast<std::uint16_t>(low | static_cast<unsigned>(bytes.pop()) << 8);
}

void push_low_first(bmc_message_buffer& bytes, unsigned value) {
    bytes.push(static_cast<std::uint8_t>(value & 0xFF));
    bytes.push(static_cast<std::uint8_t>(value >> 8));
}

void push_all(bmc_message_buffer& bytes, std::span<const std::uint8_t> values) {
    for (const std::uint8_t value : values) {
        bytes.push(value);
    }
}

std::uint8_t byte_of(std::uint32_t raw) { return static_cast<std::uint8_t>(std::min<std::uint32_t>(raw, 0xFF)); }

// One bit for each threshold that the reading is at or beyond. What event lines alone tell shows as upper thresholds:
// they know a severity, but no side.
std::uint8_t state_bits(const sensor_report& sensor) {
    constexpr std::size_t levels = 3;
    unsigned bits = 0;
    for (std::size_t level = 0; level < levels; ++level) {
        const auto& lower = sensor.thresholds[level];
        const auto& upper = sensor.thresholds[levels + level];
        bits |= lower && *sensor.raw <= *lower ? 1u << level : 0u;
        bits |= upper && *sensor.raw >= *upper ? 1u << (levels + level) : 0u;
    }
    const unsigned worst = static_cast<unsigned>(sensor.state);
    const unsigned up_to_worst = (1u << worst) - 1;
    const bool is_told = worst == 0 || ((bits | bits >> levels) >> (worst - 1) & 1u) != 0;
    return static_cast<std::uint8_t>(is_told ? bits : bits | up_to_worst << levels);
}

// One request with all that may answer it. Its sensors are those of its logical unit.
struct asked {
    platform& host;
    std::uint16_t& reservation;
    bmc_message_buffer& request;
    bmc_message_buffer& response;
    std::uint8_t lun;

    std::optional<sensor_report> sensor() const { return host.sensors.find({lun, request.pop()}); }
};

std::uint8_t device_identity(const asked& by) {
    constexpr std::array<std::uint8_t, 11> identity{0x20, 0x01,        // device and its revision
                                                    0x00, 0x01,        // firmware 0.1
                                                    0x02,              // IPMI 2.0
                                                    0x03,              // has sensors and their records
                                                    0x00, 0x00, 0x00,  // no manufacturer
                                                    0x00, 0x00};       // no product
    push_all(by.response, identity);
    return completed;
}

std::uint8_t reading(const asked& by) {
    constexpr std::uint8_t scanning = 0x40;
    constexpr std::uint8_t unavailable = 0x20;
    constexpr std::uint8_t reserved_bits = 0xC0;
    const auto sensor = by.sensor();
    if (!sensor) {
        return ipmi_unknown_sensor;
    }
    push_all(by.response,
             sensor->raw ? std::array<std::uint8_t, 3>{byte_of(*sensor->raw), scanning,
                                                       static_cast<std::uint8_t>(reserved_bits | state_bits(*sensor))}
                         : std::array<std::uint8_t, 3>{0, scanning | unavailable, reserved_bits});
    return completed;
}

std::uint8_t thresholds(const asked& by) {
    const auto sensor = by.sensor();
    if (!sensor) {
        return ipmi_unknown_sensor;
    }
    unsigned readable = 0;
    for (std::size_t i = 0; i < sensor->thresholds.size(); ++i) {
        readable |= sensor->thresholds[i] ? 1u << i : 0u;
    }
    by.response.push(static_cast<std::uint8_t>(readable));
    for (const auto& threshold : sensor->thresholds) {
        by.response.push(threshold.value_or(0));
    }
    return completed;
}

std::uint8_t set_thresholds(const asked& by) {
    const std::span<const std::uint8_t> request = by.request.bytes();
    return by.host.sensors.set_thresholds({by.lun, request[0]}, request[1], request.subspan<2, 6>())
               ? completed
               : ipmi_unknown_sensor;
}

std::uint8_t repository(const asked& by) {
    constexpr std::uint8_t version = 0x51;
    constexpr std::uint8_t can_reserve = 0x02;
    constexpr std::array<std::uint8_t, 10> never_changed{};  // no free space; times of the last addition and removal
    by.response.push(version);
    push_low_first(by.response, static_cast<unsigned>(by.host.sensors.list().size()));
    push_all(by.response, never_changed);
    by.response.push(can_reserve);
    return completed;
}

std::uint8_t reserve(const asked& by) {
    by.reservation = static_cast<std::uint16_t>(by.reservation == 0xFFFF ? 1 : by.reservation + 1);
    push_low_first(by.response, by.reservation);
    return completed;
}

// From its start a record can be read without a reservation, from elsewhere with the last that was given.
std::uint8_t record(const asked& by) {
    const unsigned reservation = pop_low_first(by.request);
    const std::uint16_t number = pop_low_first(by.request);
    const std::size_t offset = by.request.pop();
    const std::size_t count = by.request.pop();
    if (reservation == 0 ? offset != 0 : reservation != by.reservation) {
        return lost_reservation;
    }
    const std::vector<sensor_report> sensors = by.host.sensors.list();
    auto sensor = std::ranges::find(sensors, number, [](const sensor_report& each) { return record_of(each.id); });
    if (number == first_record) {
        sensor = sensors.begin();
    } else if (number == last_record && !sensors.empty()) {
        sensor = std::prev(sensors.end());
    }
    if (sensor == sensors.end()) {
        return ipmi_unknown_sensor;
    }
    const auto bytes =
        sensor_record(record_of(sensor->id), sensor->id, *by.host.sensors.definition(sensor->id), sensor->thresholds);
    if (offset >= bytes.size()) {
        return out_of_range;
    }
    const auto next = std::next(sensor);
    push_low_first(by.response, next != sensors.end() ? record_of(next->id) : last_record);
    push_all(by.response, std::span(bytes).subspan(offset, std::min(count, bytes.size() - offset)));
    return completed;
}

struct command_row {
    std::uint8_t function;
    std::uint8_t command;
    unsigned length;                      // of the request
    std::uint8_t (*serve)(const asked&);  // returns a completion code
};
constexpr command_row commands[] = {
    {function_application, 0x01, 0, device_identity},
    {function_sensor, 0x26, 8, set_thresholds},
    {function_sensor, 0x27, 1, thresholds},
    {function_sensor, 0x2D, 1, reading},
    {function_storage, 0x20, 0, repository},
    {function_storage, 0x22, 0, reserve},
    {function_storage, 0x23, 6, record},
};

}  // namespace

sensor_commands::sensor_commands(platform& host) : _host(host) { register_all(true); }

sensor_commands::~sensor_commands() { register_all(false); }

// Those about a sensor on each logical unit, the others on the first one.
void sensor_commands::register_all(bool is_offered) {
    for (const command_row& row : commands) {
        const unsigned luns = row.function == function_sensor ? logical_units : 1;
        for (unsigned unit = 0; unit < luns; ++unit) {
            const auto lun = static_cast<std::uint8_t>(unit);
            const auto serve = [this, &row, lun](ipmi_message& message) {
                return message.request.bytes().size() == row.length
                           ? row.serve({_host, _reservation, message.request, message.response, lun})
                           : ipmi_invalid_length;
            };
            _host.ipmi.register_command({row.command, row.function, lun},
                                        is_offered ? ipmi_command_handler(serve) : nullptr);
        }
    }
}

}  // namespace thermal_host
