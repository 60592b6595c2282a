#include "platform/host/processors.hpp"

#include <algorithm>

#include "platform/host/host.hpp"

namespace thermal_host {

void processor_socket::release() {
    _is_held = false;
    if (!tdp_of_next_boots.empty()) {
        answers.tdp = tdp_of_next_boots.front();
        tdp_of_next_boots.pop_front();
    }
}

float processor_socket::take_tjmax() {
    if (tjmax_zero_reads == 0) {
        return answers.tjmax;
    }
    --tjmax_zero_reads;
    return 0.0f;
}

processor_socket& processor_list::add(host_cpu_vendor vendor, std::uint8_t address, const processor_answers& answers) {
    const std::pair identity(vendor, address);
    _sockets.erase(identity);
    return _sockets.try_emplace(identity, answers).first->second;
}

processor_socket* processor_list::find(host_cpu_vendor vendor, std::uint8_t address) {
    const auto found = _sockets.find({vendor, address});
    return found != _sockets.end() ? &found->second : nullptr;
}

}  // namespace thermal_host

using thermal_host::platform;
using thermal_host::processor_answers;
using thermal_host::processor_socket;

namespace {

// The socket that answers an access; null if nobody does, which is counted.
processor_socket* answering(host_cpu_vendor vendor, std::uint8_t address, std::uint32_t& failures) {
    platform* host = platform::current();
    processor_socket* socket = host != nullptr ? host->processors.find(vendor, address) : nullptr;
    if (socket != nullptr && socket->answers_access()) {
        return socket;
    }
    ++failures;
    return nullptr;
}

template <class Answer>
int copy(const processor_socket* socket, Answer processor_answers::*answer, Answer& result) {
    if (socket == nullptr) {
        return 0;
    }
    result = socket->answers.*answer;
    return 1;
}

}  // namespace

host_cpu_interface::host_cpu_interface(logical_device* parent, const char* name, const char* type_name,
                                       const char* power_good_port, host_cpu_vendor vendor, const host_cpu_bus& bus)
    : logical_device(parent, name, type_name, true), _power_good_port(power_good_port), _vendor(vendor), _bus(bus) {}

int host_cpu_interface::read_relative_temperature(std::uint8_t address) {
    float reading = 0.0f;
    const int answered =
        copy(answering(_vendor, address, _bus_failures), &processor_answers::relative_temperature, reading);
    if (answered != 0 && !(_ignore_dts_zero_reads && reading == 0.0f)) {
        _relative_temperature = reading;
    }
    return answered;
}

int host_cpu_interface::read_absolute_temperature(std::uint8_t address) {
    return copy(answering(_vendor, address, _bus_failures), &processor_answers::absolute_temperature,
                _absolute_temperature);
}

int host_cpu_interface::read_margin_value(std::uint8_t address) {
    return copy(answering(_vendor, address, _bus_failures), &processor_answers::margin, _margin_value);
}

int host_cpu_interface::read_average_power(std::uint8_t address) {
    return copy(answering(_vendor, address, _bus_failures), &processor_answers::average_power, _average_power);
}

int host_cpu_interface::read_cpu_family(std::uint8_t address) {
    return copy(answering(_vendor, address, _bus_failures), &processor_answers::family, _family);
}

int host_cpu_interface::read_cpu_type(std::uint8_t address, cpu_family_t) {
    return copy(answering(_vendor, address, _bus_failures), &processor_answers::type, _type);
}

int host_cpu_interface::read_cpu_unit(std::uint8_t address) {
    const processor_socket* socket = answering(_vendor, address, _bus_failures);
    copy(socket, &processor_answers::power_unit, _power_unit);
    return copy(socket, &processor_answers::energy_unit, _energy_unit);
}

int host_cpu_interface::read_tjmax(std::uint8_t address) {
    processor_socket* socket = answering(_vendor, address, _bus_failures);
    _tjmax = socket != nullptr ? socket->take_tjmax() : _tjmax;
    return socket != nullptr ? 1 : 0;
}

int host_cpu_interface::read_cpu_tdp(std::uint8_t address) {
    return copy(answering(_vendor, address, _bus_failures), &processor_answers::tdp, _tdp);
}

int host_cpu_interface::read_cpu_core_number_mask(std::uint8_t address) {
    return copy(answering(_vendor, address, _bus_failures), &processor_answers::cores, _cores);
}

int host_cpu_interface::read_host_cpu_therm_throttle_status(std::uint8_t address) {
    return copy(answering(_vendor, address, _bus_failures), &processor_answers::throttle_status, _throttle_status);
}

int host_cpu_interface::read_all_dimms_temp(std::uint8_t address, std::uint8_t channel, std::uint8_t count) {
    processor_socket* socket = answering(_vendor, address, _bus_failures);
    if (socket == nullptr) {
        return 0;
    }
    const auto memory = socket->memory.find(channel);
    if (memory == socket->memory.end() || !memory->second.answers_access(count)) {
        ++_bus_failures;
        return 0;
    }
    const auto& modules = memory->second.modules;
    const auto last = static_cast<std::uint8_t>(std::min<std::size_t>(count, modules.size()));
    for (std::uint8_t index = 0; index < last; ++index) {
        if (modules[index]) {
            _dimm_temperatures[{channel, index}] = *modules[index];
        }
    }
    return 1;
}

int host_cpu_interface::get_dimm_temp(std::uint8_t channel, std::uint8_t index) const {
    const auto found = _dimm_temperatures.find({channel, index});
    return found != _dimm_temperatures.end() ? found->second : 0;
}

int host_cpu_interface::check_therm_throttle(unsigned long status) const {
    return (status & processor_socket::throttling_now) != 0 ? 1 : 0;
}
