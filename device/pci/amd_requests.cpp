#include "device/pci/amd_requests.hpp"

#include <algorithm>
#include <array>
#include <optional>

#include "device/pci/plain_request.hpp"
#include "device/pci/supported_list.hpp"
#include "foundation/log_masks.hpp"

using utils = common_thermal_utils;
using amd_temperature = common_thermal_device_pci_request_amd_temperature;
using amd_memory_temperature = common_thermal_device_pci_request_amd_memory_temperature;
using amd_power = common_thermal_device_pci_request_amd_power;
using slot = common_thermal_device_pci_slot;
using status_t = utils::nv_cmd_status_t;

namespace {

constexpr std::uint32_t plain_dialect = 1;  // as special treatment of a card

constexpr pci_request_device::kind temperature_kind{"common_thermal_device_pci_request_amd_temperature",
                                                    utils::tdev_pci_request_amd_temperature, pci_group::amd_gpu,
                                                    utils::tdev_pci_agent_amd};

constexpr reading_request::row memory_row{
    .device = {"common_thermal_device_pci_request_amd_memory_temperature",
               utils::tdev_pci_request_amd_memory_temperature, pci_group::amd_gpu, utils::tdev_pci_agent_amd},
    .token_prefix = "amdmemtemp.1.",
    .tell = &slot::set_secondary_temperature,
    .on_refusal = reading_request::refusal::last_not_valid,
    .moves_on_when_refused = true,
};

constexpr reading_request::row power_row{
    .device = {"common_thermal_device_pci_request_amd_power", utils::tdev_pci_request_amd_power, pci_group::amd_gpu,
               utils::tdev_pci_agent_amd},
    .token_prefix = "amdpower.1.",
    .tell = &slot::set_power_consumption,
    .slot_unit = 1000.0f,
    .on_refusal = reading_request::refusal::last_not_valid,
    .moves_on_when_refused = true,
    .tells_zero_while_not_valid = true,
};

enum word : std::size_t { amb_temperature, die_temperature, high_temperature };

status_t not_supported(const plain_request& request) {
    if (LOG::is_enabled(log_mask::bus)) {
        LOG::log(log_source, log_mask::bus, "%s::%s - NO_SUPPORT(%d)\n", request.device.get_name().c_str(),
                 request.operation.data(), static_cast<int>(utils::cmd_failed));
    }
    return utils::cmd_failed;
}

status_t conclude(const plain_request& request, std::optional<std::uint8_t> degrees, float* value) {
    return request.conclude(degrees ? utils::cmd_complete : utils::cmd_failed, degrees.value_or(0), value);
}

namespace plain {

using command = std::array<std::uint8_t, 6>;
constexpr command die{0x01, 0x04, 0x0F, 0x01, 0x66, 0x5F};
constexpr command memory{0x01, 0x04, 0x0F, 0x01, 0x5C, 0x52};

// Four bytes behind their count.
using answer = std::array<std::uint8_t, 5>;
std::optional<answer> ask(const plain_request& request, const command& tx) {
    constexpr std::array<std::uint8_t, 1> read_answer{0x03};
    answer rx{};
    if (request.write_read(tx, {}) != utils::cmd_complete ||
        request.write_read(read_answer, rx) != utils::cmd_complete || rx[0] != 4) {
        return {};
    }
    return rx;
}

}  // namespace plain

namespace rm {

enum register_number : std::uint8_t { any_die = 0x0E, status = 0x10, die = 0x11, memory = 0x12, power = 0x20 };
constexpr std::uint8_t has_readings = 0x02;  // of the status; `any_die` answers without it

bool ask(const plain_request& request, register_number number, std::span<std::uint8_t> rx) {
    const std::array<std::uint8_t, 2> tx{0xEF, number};
    const status_t result = request.write_read(tx, rx);
    if (LOG::is_enabled(log_mask::bus)) {
        const char* name = request.device.get_name().c_str();
        if (rx.size() == 2) {
            LOG::log(log_source, log_mask::bus, "%s::%s [%02X][%02X]->[%02X][%02X]:[%02X]\n", name,
                     request.operation.data(), +tx[0], +tx[1], +rx[0], +rx[1], static_cast<unsigned>(result));
        } else {
            LOG::log(log_source, log_mask::bus, "%s::%s [%02X][%02X]->[%02X]:[%02X]\n", name, request.operation.data(),
                     +tx[0], +tx[1], +rx[0], static_cast<unsigned>(result));
        }
    }
    return result == utils::cmd_complete;
}

std::optional<std::uint8_t> read(const plain_request& request, register_number number) {
    std::array<std::uint8_t, 1> rx{};
    return ask(request, number, rx) ? std::optional(rx[0]) : std::nullopt;
}

bool is_ready(const plain_request& request) { return (read(request, status).value_or(0) & has_readings) != 0; }

}  // namespace rm

}  // namespace

amd_temperature::common_thermal_device_pci_request_amd_temperature(int instance)
    : pci_request_device(temperature_kind, instance, {{"amb_temperature"}, {"die_temperature"}, {"high_temperature"}}),
      _die_token("amddietemp.1."),
      _ambient_token("amdambtemp.1.") {}

status_t amd_temperature::request_die_temperature(std::uint32_t token, status_t state, agent_t* agent, float* value) {
    const plain_request request{*this, "request_die_temperature", agent, token, state};
    const auto answer = plain::ask(request, plain::die);
    return conclude(request, answer ? std::optional((*answer)[4]) : std::nullopt, value);
}

status_t amd_temperature::request_amb_temperature(std::uint32_t token, status_t state, agent_t* agent, float* value) {
    const plain_request request{*this, "request_amb_temperature", agent, token, state};
    constexpr std::array<std::uint8_t, 1> tx{0x01};
    std::array<std::uint8_t, 1> rx{};
    const bool read = request.write_read(tx, rx) == utils::cmd_complete;
    return conclude(request, read ? std::optional(rx[0]) : std::nullopt, value);
}

status_t amd_temperature::request_die_temperature_rm(std::uint32_t token, status_t state, agent_t* agent,
                                                     float* value) {
    const plain_request request{*this, "request_die_temperature_rm", agent, token, state};
    auto degrees = rm::is_ready(request) ? rm::read(request, rm::die) : std::nullopt;
    if (!degrees) {
        degrees = rm::read(request, rm::any_die);
    }
    return conclude(request, degrees, value);
}

status_t amd_temperature::request_amb_temperature_rm(std::uint32_t token, status_t state, agent_t* agent,
                                                     float* value) {
    *value = utils::invalid_temperature;
    return not_supported({*this, "request_amb_temperature_rm", agent, token, state});
}

bool amd_temperature::read(agent_t& agent, token_name& name, operation request, float& value) {
    const agent_hold hold(agent, name.of(_agent_index));
    return hold && (this->*request)(hold.token(), utils::cmd_idle, &agent, &value) == utils::cmd_complete;
}

void amd_temperature::poll(common_thermal_dao* dao, unsigned long) {
    auto* agent = is_card_supported() ? visited_agent<agent_t>() : nullptr;
    if (agent == nullptr) {
        return;
    }
    const bool is_plain = is_card_forced(plain_dialect);
    if (!read(*agent, _die_token,
              is_plain ? &amd_temperature::request_die_temperature : &amd_temperature::request_die_temperature_rm,
              _values[die_temperature])) {
        read(*agent, _ambient_token,
             is_plain ? &amd_temperature::request_amb_temperature : &amd_temperature::request_amb_temperature_rm,
             _values[amb_temperature]);
    }
    visit_next_agent();
    const auto heat_of = [this](word place) {
        return _values[place] != utils::invalid_temperature ? _values[place] : 0.0f;
    };
    _values[high_temperature] = std::max(heat_of(die_temperature), heat_of(amb_temperature));
    tell_slots(&slot::set_primary_temperature, _values[high_temperature]);
    _values.publish(dao, common_thermal_dao::spike_none);
}

amd_memory_temperature::common_thermal_device_pci_request_amd_memory_temperature(int instance)
    : reading_request(memory_row, instance, {{"valid"}, {"temperature"}}) {}

status_t amd_memory_temperature::request_temperature(std::uint32_t token, status_t state, agent_t* agent,
                                                     float* value) {
    const plain_request request{*this, "request_temperature", agent, token, state};
    const auto answer = plain::ask(request, plain::memory);
    const bool is_reading = answer && ((*answer)[2] & 0x80) == 0;
    return conclude(request, is_reading ? std::optional((*answer)[2]) : std::nullopt, value);
}

status_t amd_memory_temperature::request_temperature_rm(std::uint32_t token, status_t state, agent_t* agent,
                                                        float* value) {
    const plain_request request{*this, "request_temperature_rm", agent, token, state};
    return conclude(request, rm::is_ready(request) ? rm::read(request, rm::memory) : std::nullopt, value);
}

status_t amd_memory_temperature::request_reading(std::uint32_t token, plain_pci_agent& agent, float* reading) {
    auto* amd = static_cast<agent_t*>(&agent);
    return is_card_forced(plain_dialect) ? request_temperature(token, utils::cmd_idle, amd, reading)
                                         : request_temperature_rm(token, utils::cmd_idle, amd, reading);
}

amd_power::common_thermal_device_pci_request_amd_power(int instance)
    : reading_request(power_row, instance, {{"valid"}, {"power"}}) {}

status_t amd_power::request_power(std::uint32_t token, status_t state, agent_t* agent, float*) {
    return not_supported({*this, "request_power", agent, token, state});
}

status_t amd_power::request_power_rm(std::uint32_t token, status_t state, agent_t* agent, float* value) {
    const plain_request request{*this, "request_power_rm", agent, token, state};
    std::array<std::uint8_t, 2> watts{};
    if (!rm::is_ready(request) || !rm::ask(request, rm::power, watts)) {
        request.log_status(utils::cmd_failed);
        return utils::cmd_failed;
    }
    *value = static_cast<float>(watts[0] | watts[1] << 8);
    return utils::cmd_complete;
}

status_t amd_power::request_reading(std::uint32_t token, plain_pci_agent& agent, float* reading) {
    auto* amd = static_cast<agent_t*>(&agent);
    return is_card_forced(plain_dialect) ? request_power(token, utils::cmd_idle, amd, reading)
                                         : request_power_rm(token, utils::cmd_idle, amd, reading);
}
