#include "platform/host/sensors.hpp"

#include <algorithm>
#include <utility>

#include "platform/host/host.hpp"
#include "platform/host/ipmi.hpp"

namespace thermal_host {

namespace {

constexpr std::size_t request_size = 12;
constexpr std::size_t first_threshold = 6;
constexpr std::size_t levels = 3;
constexpr std::uint8_t controller_address = 0x20;
constexpr std::uint8_t function_sensor = 0x04;
constexpr std::uint8_t command_set_thresholds = 0x26;

}  // namespace

const char* sensor_state_text(sensor_state state) {
    constexpr std::array texts{"ok", "non-critical", "critical", "non-recoverable", "no reading"};
    return texts.at(static_cast<std::size_t>(state));
}

void sensor_list::add(sensor_id id, sensor_definition definition) {
    _sensors.insert_or_assign(id, sensor{std::move(definition), {}});
}

const number_line* sensor_list::line_of(const port_id& port) const {
    return dynamic_cast<const number_line*>(port.key() ? _ports.find(*port.key()) : _ports.find(port.number()));
}

sensor_state sensor_list::state_of(const sensor& each, std::uint32_t raw) const {
    std::size_t worst = 0;
    for (std::size_t level = 0; level < levels; ++level) {
        const auto& lower = each.thresholds[level];
        const auto& upper = each.thresholds[levels + level];
        const number_line* event =
            level < each.definition.events.size() ? line_of(each.definition.events[level]) : nullptr;
        if ((lower && raw <= *lower) || (upper && raw >= *upper) || (event != nullptr && event->value() != 0)) {
            worst = level + 1;
        }
    }
    return static_cast<sensor_state>(worst);
}

sensor_report sensor_list::report_of(sensor_id id, const sensor& each) const {
    const sensor_definition& about = each.definition;
    sensor_report report{
        id, about.name, about.unit, std::nullopt, std::nullopt, sensor_state::no_reading, each.thresholds};
    const number_line* output = line_of(about.output);
    if (output != nullptr && output->was_written()) {
        const std::uint32_t raw = output->value();
        report.raw = raw;
        report.value = (static_cast<float>(raw) * about.m + about.b) / about.k2;
        report.state = state_of(each, raw);
    }
    return report;
}

std::vector<sensor_report> sensor_list::list() const {
    std::vector<sensor_report> reports;
    reports.reserve(_sensors.size());
    for (const auto& [id, each] : _sensors) {
        reports.push_back(report_of(id, each));
    }
    return reports;
}

std::optional<sensor_report> sensor_list::find(sensor_id id) const {
    const auto found = _sensors.find(id);
    return found != _sensors.end() ? std::optional(report_of(id, found->second)) : std::nullopt;
}

const sensor_definition* sensor_list::definition(sensor_id id) const {
    const auto found = _sensors.find(id);
    return found != _sensors.end() ? &found->second.definition : nullptr;
}

bool sensor_list::set_thresholds(sensor_id id, std::uint8_t which, std::span<const std::uint8_t, 6> thresholds) {
    const auto found = _sensors.find(id);
    if (found == _sensors.end()) {
        return false;
    }
    for (std::size_t i = 0; i < thresholds.size(); ++i) {
        if ((which >> i & 1u) != 0) {
            found->second.thresholds[i] = thresholds[i];
        }
    }
    return true;
}

std::uint8_t sensor_list::execute(std::span<const std::uint8_t> request) {
    _requests.add({request.begin(), request.end()});
    if (request.size() != request_size) {
        return ipmi_invalid_length;
    }
    if (request[0] != controller_address || request[1] != function_sensor || request[3] != command_set_thresholds) {
        return ipmi_invalid_command;
    }
    const sensor_id id{request[2], request[4]};
    return set_thresholds(id, request[5], request.subspan<first_threshold, 6>()) ? std::uint8_t{0}
                                                                                 : ipmi_unknown_sensor;
}

}  // namespace thermal_host

int send_ipmi_cmd(const std::uint8_t* request, const std::uint32_t* request_length, std::uint8_t* response,
                  std::uint32_t* response_length) {
    thermal_host::platform* host = thermal_host::platform::current();
    if (host == nullptr || request == nullptr || request_length == nullptr) {
        return -1;
    }
    const std::uint8_t completion_code = host->sensors.execute({request, *request_length});
    if (response != nullptr && response_length != nullptr) {
        *response = completion_code;
        *response_length = 1;
    }
    return completion_code;
}
