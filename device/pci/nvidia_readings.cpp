#include "device/pci/nvidia_readings.hpp"

#include "device/pci/nvidia_capability.hpp"
#include "foundation/log_masks.hpp"

using utils = common_thermal_utils;
using capability_t = common_thermal_device_pci_request_nvidia_capability;
using slot_t = common_thermal_device_pci_slot;

struct nvidia_reading::row {
    kind device{};
    const char* token_prefix = nullptr;
    std::string_view operation;
    mailbox::frame command{};
    bool (*is_supported)(const capability_t& capability, std::uint32_t core) = nullptr;
    float unsupported = 0.0f;  // value of a target that cannot answer
    bool keeps_after_failure = false;
    std::size_t cores = 1;  // how many values in a row belong to one core each; 1 is of the whole card
    std::size_t first = 0;  // place of the first of them
    std::size_t total = 0;  // place of what the slots are told
    float (*sum_up)(float so_far, float core) = nullptr;  // makes the total of the cores; null where it is the value
    slot_setter tell = nullptr;
    bool tells_zero_if_unsupported = false;  // else the slots hear nothing then
    common_thermal_dao::dev_data_spike_t spike = common_thermal_dao::spike_none;
};

namespace {

constexpr float no_reading = 255.0f;

bool has_core(const capability_t& capability, std::uint32_t core) { return capability.is_support_core_temp(core); }
bool has_memory(const capability_t& capability, std::uint32_t) { return capability.is_support_hbm_temp(); }
bool has_limit(const capability_t& capability, std::uint32_t) { return capability.is_support_tlimit_temp(); }
bool has_core_at_work(const capability_t& capability, std::uint32_t core) {
    return capability.is_driver_loaded() && capability.is_support_core_temp(core);
}

float hottest(float so_far, float core) { return core != no_reading && core > so_far ? core : so_far; }
float sum(float so_far, float core) { return so_far + core; }

const nvidia_reading::row temperature_row{
    .device =
        nvidia_kind("common_thermal_device_pci_request_nvidia_temperature", utils::tdev_pci_request_nvidia_temperature),
    .token_prefix = "nvtemp.",
    .operation = "request_temperature",
    .command = mailbox::command(2, 0),
    .is_supported = has_core,
    .cores = 4,
    .total = 4,
    .sum_up = hottest,
    .tell = &slot_t::set_primary_temperature,
};

const nvidia_reading::row memory_temperature_row{
    .device = nvidia_kind("common_thermal_device_pci_request_nvidia_memory_temperature",
                          utils::tdev_pci_request_nvidia_memory_temperature),
    .token_prefix = "hbmtemp.",
    .operation = "request_temperature",
    .command = mailbox::command(2, 5),
    .is_supported = has_memory,
    .tell = &slot_t::set_secondary_temperature,
};

const nvidia_reading::row tlimit_temperature_row{
    .device = nvidia_kind("common_thermal_device_pci_request_nvidia_tlimit_temperature",
                          utils::tdev_pci_request_nvidia_tlimit_temperature),
    .token_prefix = "tlmtemp.",
    .operation = "request_temperature",
    .command = mailbox::command(2, 7),
    .is_supported = has_limit,
    .unsupported = no_reading,
    .tell = &slot_t::set_margin,
    .spike = common_thermal_dao::spike_going_high_low,
};

const nvidia_reading::row power_row{
    .device = nvidia_kind("common_thermal_device_pci_request_nvidia_power", utils::tdev_pci_request_nvidia_power),
    .token_prefix = "power.",
    .operation = "request_power",
    .command = mailbox::command(4),
    .is_supported = has_core_at_work,
    .keeps_after_failure = true,
    .cores = 4,
    .first = 1,
    .sum_up = sum,
    .tell = &slot_t::set_power_consumption,
    .tells_zero_if_unsupported = true,
};

// The card counts in 1/256 of a degree.
float whole_degrees(std::uint32_t word) { return static_cast<float>(static_cast<std::int32_t>(word) >> 8); }

}  // namespace

nvidia_reading::nvidia_reading(const row& reading, int instance,
                               std::initializer_list<published_values::start_value> values)
    : nvidia_supported_request(reading.device, reading.token_prefix, instance, values), _row(reading) {}

void nvidia_reading::store(std::uint32_t core, float value) {
    const std::size_t place = _row.cores > 1 ? core - 1 : 0;
    if (place >= _row.cores) {
        return;
    }
    _values[_row.first + place] = value;
    if (_row.sum_up == nullptr) {
        return;
    }
    float total = 0.0f;
    for (std::size_t position = _row.first; position < _row.first + _row.cores; ++position) {
        total = _row.sum_up(total, _values[position]);
    }
    _values[_row.total] = total;
}

void nvidia_reading::pass_over(agent_t& agent) {
    store(agent.get_num(), _row.unsupported);
    release_owned_token(agent, target_name());
    _exchange.reset();
    visit_next_agent();
}

void nvidia_reading::ask(agent_t& agent) {
    const std::uint32_t token = take_token(agent, target_name());
    if (token == 0) {
        return;
    }
    float value = no_reading;
    const status_t result = advance(agent, [&](status_t state) { return request(token, state, &agent, value); });
    if (result == utils::cmd_pending) {
        return;
    }
    if (result == utils::cmd_complete || (result == utils::cmd_failed && !_row.keeps_after_failure)) {
        store(agent.get_num(), value);
    }
    visit_next_agent();
}

void nvidia_reading::poll(common_thermal_dao* dao, unsigned long) {
    if (!is_card_supported()) {
        if (_exchange.in_flight()) {
            give_up(target_agent(), target_name());
        }
        return;
    }
    const target visited = choose_target(_exchange.in_flight());
    if (!visited) {
        return;
    }
    const bool supported = _row.is_supported(*visited.capability, visited.agent->get_num());
    if (supported) {
        ask(*visited.agent);
    } else {
        pass_over(*visited.agent);
    }
    if (supported) {
        tell_slots(_row.tell, _values[_row.total]);
    } else if (_row.tells_zero_if_unsupported) {
        tell_slots(_row.tell, 0.0f);
    }
    _values.publish(dao, _row.spike);
}

nvidia_reading::status_t nvidia_temperature_reading::request_temperature(std::uint32_t token, status_t state,
                                                                         agent_t* agent, float& degrees) const {
    std::uint32_t word = 0;
    const status_t result = request_word(token, state, agent, _row.command, _row.operation, word);
    if (result == utils::cmd_complete) {
        degrees = whole_degrees(word);
    } else if (result == utils::cmd_failed) {
        degrees = no_reading;
        LOG::log(log_source, log_mask::bus, "%s::%s - cur_status(%d)\n", get_name().c_str(), _row.operation.data(),
                 static_cast<int>(result));
    }
    return result;
}

nvidia_reading::status_t common_thermal_device_pci_request_nvidia_power::request_power(
    std::uint32_t token, status_t state, agent_t* agent, std::uint32_t& milliwatts) const {
    return request_word(token, state, agent, _row.command, _row.operation, milliwatts);
}

nvidia_reading::status_t common_thermal_device_pci_request_nvidia_power::request(std::uint32_t token, status_t state,
                                                                                 agent_t* agent, float& value) {
    std::uint32_t milliwatts = 0;
    const status_t result = request_power(token, state, agent, milliwatts);
    if (result == utils::cmd_complete) {
        value = static_cast<float>(milliwatts);
    }
    return result;
}

common_thermal_device_pci_request_nvidia_temperature::common_thermal_device_pci_request_nvidia_temperature(int instance)
    : nvidia_temperature_reading(temperature_row, instance,
                                 {{"core1_temperature"},
                                  {"core2_temperature"},
                                  {"core3_temperature"},
                                  {"core4_temperature"},
                                  {"high_temperature"}}) {}

common_thermal_device_pci_request_nvidia_memory_temperature::
    common_thermal_device_pci_request_nvidia_memory_temperature(int instance)
    : nvidia_temperature_reading(memory_temperature_row, instance, {{"temperature"}}) {}

common_thermal_device_pci_request_nvidia_tlimit_temperature::
    common_thermal_device_pci_request_nvidia_tlimit_temperature(int instance)
    : nvidia_temperature_reading(tlimit_temperature_row, instance, {{"temperature", no_reading}}) {}

common_thermal_device_pci_request_nvidia_power::common_thermal_device_pci_request_nvidia_power(int instance)
    : nvidia_reading(power_row, instance,
                     {{"power"}, {"core1_power"}, {"core2_power"}, {"core3_power"}, {"core4_power"}}) {}
