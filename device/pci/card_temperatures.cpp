#include "device/pci/card_temperatures.hpp"

#include <algorithm>
#include <array>

#include "device/pci/plain_request.hpp"
#include "device/pci/supported_list.hpp"
#include "foundation/float_conversion.hpp"
#include "foundation/log_masks.hpp"

using utils = common_thermal_utils;
using intel_nic_temperature = common_thermal_device_pci_request_intel_nic_temperature;
using pensando_cpld_temperature = common_thermal_device_pci_request_pensando_cpld_temperature;
using slot = common_thermal_device_pci_slot;
using status_t = utils::nv_cmd_status_t;

namespace {

using frame = std::span<const std::uint8_t>;

// What a failed read leaves.
enum class failure {
    zero,     // and no line in the log
    invalid,  // 255.0 and a line
};

}  // namespace

struct card_temperature::card {
    reading_request::row request{};
    frame tx{};
    std::uint8_t answer_size = 1;
    std::uint8_t answer_place = 0;
    float unit = 1.0f;  // degrees
    failure on_failure = failure::invalid;
};

namespace {

using card = card_temperature::card;

constexpr std::uint8_t fpga_board_register[] = {0x01, 0x00};
constexpr std::uint8_t fpga_die_register[] = {0x01, 0x10};
constexpr std::uint8_t xilinx_memory_register[] = {0x01};
constexpr std::uint8_t xilinx_die_register[] = {0x05};
constexpr std::uint8_t drive_status_record[] = {0x00};

constexpr card pci_request_intel_fpga_board_temperature{
    .request = {.device = {"common_thermal_device_pci_request_intel_fpga_board_temperature",
                           utils::tdev_pci_request_intel_fpga_board_temperature, pci_group::intel_fpga,
                           utils::tdev_pci_agent_intel_fpga},
                .token_prefix = "ibtemp.",
                .tell = &slot::set_secondary_temperature},
    .tx = fpga_board_register,
    .answer_size = 4,
    .unit = 0.5f,
};
constexpr card pci_request_intel_fpga_die_temperature{
    .request = {.device = {"common_thermal_device_pci_request_intel_fpga_die_temperature",
                           utils::tdev_pci_request_intel_fpga_die_temperature, pci_group::intel_fpga,
                           utils::tdev_pci_agent_intel_fpga},
                .token_prefix = "idtemp.",
                .tell = &slot::set_primary_temperature},
    .tx = fpga_die_register,
    .answer_size = 4,
    .unit = 0.5f,
};
// The two of this maker share one token name.
constexpr card pci_request_xilinx_memory_temperature{
    .request = {.device = {"common_thermal_device_pci_request_xilinx_memory_temperature",
                           utils::tdev_pci_request_xilinx_memory_temperature, pci_group::xilinx_fpga,
                           utils::tdev_pci_agent_xilinx},
                .token_prefix = "xitemp.",
                .tell = &slot::set_secondary_temperature},
    .tx = xilinx_memory_register,
};
constexpr card pci_request_xilinx_temperature{
    .request = {.device = {"common_thermal_device_pci_request_xilinx_temperature",
                           utils::tdev_pci_request_xilinx_temperature, pci_group::xilinx_fpga,
                           utils::tdev_pci_agent_xilinx},
                .token_prefix = "xitemp.",
                .tell = &slot::set_primary_temperature},
    .tx = xilinx_die_register,
    .on_failure = failure::zero,
};
// The agent tests the record.
constexpr card pci_request_ai100_temperature{
    .request = {.device = {"common_thermal_device_pci_request_ai100_temperature",
                           utils::tdev_pci_request_ai100_temperature, pci_group::nvmemi, utils::tdev_pci_agent_nvmemi},
                .token_prefix = "ai100temp.",
                .tell = &slot::set_primary_temperature},
    .tx = drive_status_record,
    .answer_size = 5,
    .answer_place = 3,
    .on_failure = failure::zero,
};

constexpr reading_request::row nic_row{
    .device = {"common_thermal_device_pci_request_intel_nic_temperature", utils::tdev_pci_request_intel_nic_temperature,
               pci_group::intel_nic, utils::tdev_pci_agent_intel_nic},
    .token_prefix = "intel_nictemp.",
    .tell = &slot::set_primary_temperature,
    .on_refusal = reading_request::refusal::last,
    .failure_ends_validity = true,
};

constexpr std::uint8_t nic_command[] = {0xCB, 0x01, 0x02};
constexpr std::uint8_t nic_answer[] = {0xDB};
constexpr std::uint8_t nic_answer_length = 10;  // behind the byte that tells it

constexpr pci_request_device::kind cpld_kind{"common_thermal_device_pci_request_pensando_cpld_temperature",
                                             utils::tdev_pci_request_pensando_cpld_temperature,
                                             pci_group::pensando_cpld, utils::tdev_pci_agent_pensando_cpld};

namespace cpld {
enum register_number : std::uint8_t { asic = 0x16, board = 0x18, qsfp_p1 = 0x19, qsfp_p2 = 0x1A, status = 0x40 };
constexpr unsigned has_qsfp_p1 = 0x01;  // of the status
constexpr unsigned has_qsfp_p2 = 0x02;
}  // namespace cpld

enum cpld_word : std::size_t { asic_temperature, board_temperature, qsfp_p1_temperature, qsfp_p2_temperature };

// A numbered stage of the network card's exchange.
void log_stage(const plain_request& request, int stage, status_t status) {
    if (LOG::is_enabled(log_mask::life_cycle)) {
        LOG::log(log_source, log_mask::life_cycle, "%s%d::%s - cur_status(%d)\n", request.device.get_name().c_str(),
                 stage, request.operation.data(), static_cast<int>(status));
    }
}

}  // namespace

card_temperature::card_temperature(const card& polled, int instance)
    : reading_request(polled.request, instance, {{"temperature"}}), _card(polled) {}

status_t card_temperature::request_temperature(std::uint32_t token, status_t state, plain_pci_agent* agent,
                                               float* value) {
    const plain_request request{*this, "request_temperature", agent, token, state};
    std::array<std::uint8_t, 5> rx{};
    const status_t result = request.write_read(_card.tx, std::span(rx).first(_card.answer_size));
    const float degrees = static_cast<float>(rx[_card.answer_place]) * _card.unit;
    if (_card.on_failure == failure::invalid) {
        return request.conclude(result, degrees, value);
    }
    if (result == utils::cmd_complete) {
        *value = degrees;
    }
    return result;
}

status_t card_temperature::request_reading(std::uint32_t token, plain_pci_agent& agent, float* reading) {
    return request_temperature(token, utils::cmd_idle, &agent, reading);
}

intel_nic_temperature::common_thermal_device_pci_request_intel_nic_temperature(int instance)
    : reading_request(nic_row, instance, {{"valid"}, {"temperature"}}) {}

status_t intel_nic_temperature::request_temperature(std::uint32_t token, status_t state,
                                                    common_thermal_device_pci_agent_intel_nic* agent, float* value) {
    const plain_request request{*this, "request_temperature", agent, token, state};
    const bool logs = LOG::is_enabled(log_mask::life_cycle);
    const char* name = get_name().c_str();
    if (logs) {
        LOG::log(log_source, log_mask::life_cycle,
                 "%s0::%s - cur_status(%d) - sizeof(req_cmd):%d - sizeof(rsp_cmd):%d \n", name,
                 request.operation.data(), static_cast<int>(state), static_cast<int>(std::size(nic_command)),
                 static_cast<int>(std::size(nic_answer)));
    }
    std::array<std::uint8_t, 1 + nic_answer_length> rx{};
    status_t result = request.write_read(nic_command, {});
    log_stage(request, 1, result);
    if (result == utils::cmd_complete) {
        result = request.write_read(nic_answer, rx);
        log_stage(request, 2, result);
    }
    if (result == utils::cmd_complete) {
        result = rx[0] == nic_answer_length ? utils::cmd_complete : utils::cmd_failed;
        if (logs) {
            LOG::log(log_source, log_mask::life_cycle, "%s3::%s - cur_status(%d) -rsp_data[0]:%d -rsp_data[4]:%d \n",
                     name, request.operation.data(), static_cast<int>(result), +rx[0], +rx[4]);
        }
    }
    return request.conclude(result, rx[4], value);
}

status_t intel_nic_temperature::request_reading(std::uint32_t token, plain_pci_agent& agent, float* reading) {
    return request_temperature(token, utils::cmd_idle, static_cast<common_thermal_device_pci_agent_intel_nic*>(&agent),
                               reading);
}

pensando_cpld_temperature::common_thermal_device_pci_request_pensando_cpld_temperature(int instance)
    : pci_request_device(
          cpld_kind, instance,
          {{"asic_temperature"}, {"board_temperature"}, {"qsfp_p1_temperature"}, {"qsfp_p2_temperature"}}),
      _token_name("psdcpldtemp.") {}

status_t pensando_cpld_temperature::request_register_reading(std::uint32_t token, status_t state, agent_t* agent,
                                                             std::uint8_t register_number, float* value) {
    const plain_request request{*this, "request_register_reading", agent, token, state};
    std::array<std::uint8_t, 1> rx{};
    const status_t result = request.write_read(frame(&register_number, 1), rx);
    const bool read = result == utils::cmd_complete;
    *value = read ? rx[0] : utils::invalid_temperature;
    if (LOG::is_enabled(log_mask::bus)) {
        if (read) {
            LOG::log(log_source, log_mask::bus, "%s::%s - Reg[%02X]:[%02X]\n", get_name().c_str(),
                     request.operation.data(), +register_number, +rx[0]);
        } else {
            LOG::log(log_source, log_mask::bus, "%s::%s - Reg[%02X]:cur_status(%d)\n", get_name().c_str(),
                     request.operation.data(), +register_number, static_cast<int>(result));
        }
    }
    return result;
}

bool pensando_cpld_temperature::read(const bus& card, std::uint8_t register_number, float& value) {
    return request_register_reading(card.token, utils::cmd_idle, card.agent, register_number, &value) ==
           utils::cmd_complete;
}

float pensando_cpld_temperature::read_module(const bus& card, bool is_there, std::uint8_t register_number,
                                             float& value) {
    if (!is_there) {
        value = 0.0f;
        return 0.0f;
    }
    return read(card, register_number, value) ? value : 0.0f;
}

float pensando_cpld_temperature::read_primary(const bus& card) {
    if (read(card, cpld::asic, _values[asic_temperature])) {
        return _values[asic_temperature];
    }
    return read(card, cpld::board, _values[board_temperature]) ? _values[board_temperature] : 0.0f;
}

float pensando_cpld_temperature::read_secondary(const bus& card) {
    float status = 0.0f;
    if (!read(card, cpld::status, status)) {
        return 0.0f;
    }
    const unsigned modules = saturate_to_byte(status);
    const float p1 = read_module(card, (modules & cpld::has_qsfp_p1) != 0, cpld::qsfp_p1, _values[qsfp_p1_temperature]);
    const float p2 = read_module(card, (modules & cpld::has_qsfp_p2) != 0, cpld::qsfp_p2, _values[qsfp_p2_temperature]);
    return std::max(p1, p2);
}

void pensando_cpld_temperature::poll(common_thermal_dao* dao, unsigned long) {
    auto* agent = is_card_supported() ? visited_agent<agent_t>() : nullptr;
    if (agent == nullptr) {
        return;
    }
    float primary = 0.0f;
    float secondary = 0.0f;
    if (const agent_hold hold(*agent, _token_name.of(_agent_index)); hold) {
        const bus card{agent, hold.token()};
        primary = read_primary(card);
        secondary = read_secondary(card);
        visit_next_agent();
    }
    tell_slots(&slot::set_primary_temperature, primary);
    tell_slots(&slot::set_secondary_temperature, secondary);
    _values.publish(dao, common_thermal_dao::spike_none);
}

#define THERMAL_CARD_TEMPERATURE(name) \
    common_thermal_device_##name::common_thermal_device_##name(int instance) : card_temperature(name, instance) {}

THERMAL_CARD_TEMPERATURE(pci_request_intel_fpga_board_temperature)
THERMAL_CARD_TEMPERATURE(pci_request_intel_fpga_die_temperature)
THERMAL_CARD_TEMPERATURE(pci_request_xilinx_memory_temperature)
THERMAL_CARD_TEMPERATURE(pci_request_xilinx_temperature)
THERMAL_CARD_TEMPERATURE(pci_request_ai100_temperature)

#undef THERMAL_CARD_TEMPERATURE
