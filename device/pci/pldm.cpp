#include "device/pci/pldm.hpp"

#include "device/pci/supported_list.hpp"
#include "foundation/log_masks.hpp"

using utils = common_thermal_utils;

namespace {

constexpr const char* agent_class = "common_thermal_device_pci_agent_pldm";
constexpr const char* api_agent_class = "common_thermal_device_pci_agent_pldm_api";

constexpr pci_request_device::kind status_kind{"common_thermal_device_pci_request_pldm_status",
                                               utils::tdev_pci_request_pldm_status, pci_group::pldm_status,
                                               utils::tdev_pci_agent_pldm};
constexpr pci_request_device::kind info_kind{"common_thermal_device_pci_request_pldm_info",
                                             utils::tdev_pci_request_pldm_info, pci_group::pldm,
                                             utils::tdev_pci_agent_pldm_api};

constexpr unsigned ready_level = 1;
constexpr unsigned last_level = 5;

constexpr std::uint32_t device_key_mark = 0x1000000;
constexpr std::uint32_t polling_on = 1;
constexpr std::uint32_t polling_seconds = 3;

constexpr std::uint8_t nap_seconds = 3;
constexpr std::uint8_t polls_of_grace = 3;

enum info_word : std::size_t { margin, timestamp, temperature };

// No bit for the ready level and for no level.
constexpr std::uint32_t bit_of(std::uint32_t level) {
    const std::uint32_t bit = level - 2;
    return bit < 32 ? std::uint32_t{1} << bit : 0;
}

}  // namespace

common_thermal_device_pci_agent_pldm::common_thermal_device_pci_agent_pldm(int instance)
    : common_thermal_device(agent_class, agent_class, instance, utils::tdev_pci_agent_pldm),
      _port(*this, device_port::kind::integer, "PCI_AGENT_PLDM") {}

void common_thermal_device_pci_agent_pldm::set_num(unsigned level) {
    _level = level <= last_level ? level : 0;
    _ready = _ready || level == ready_level;
}

unsigned common_thermal_device_pci_agent_pldm::read_data(unsigned* value) {
    if (!_port.is_bound()) {
        return 1;
    }
    return _port.read_port_integer(value) ? 0 : 2;
}

common_thermal_device_pci_request_pldm_status::common_thermal_device_pci_request_pldm_status(int instance)
    : pci_request_device(status_kind, instance, {{"status"}}) {}

void common_thermal_device_pci_request_pldm_status::poll(common_thermal_dao* dao, unsigned long) {
    using agent_t = common_thermal_device_pci_agent_pldm;
    const bool active = is_card_supported();
    const bool traced = LOG::is_enabled(log_mask::life_cycle);
    if (traced) {
        LOG::log(log_source, log_mask::life_cycle, "pci_request_pldm_status::poll() Inst:%d, active %d\n",
                 get_instance(), active ? 1 : 0);
    }
    bool seen_ready = false;
    std::uint32_t status = 0;
    const auto read = [&](agent_t& agent) {
        unsigned value = 0;
        const unsigned result = agent.read_data(&value);
        if (result == 0 && value != 0) {
            seen_ready = seen_ready || agent.is_ready();
            status = agent.is_ready() ? 0 : bit_of(agent.get_num());
        }
        if (traced) {
            LOG::log(log_source, log_mask::life_cycle,
                     "pci_request_pldm_status::poll() read data level(%u), ready(%u), status(%u), rc(%u), stat(%d)\n",
                     agent.get_num(), agent.is_ready() ? 1u : 0u, status, result, static_cast<int>(value));
        }
    };
    if (active) {
        for_each_depend<agent_t>(_kind.agent, read);
    }
    _values[0] = seen_ready ? static_cast<float>(status) : 0.0f;
    _values.publish(dao, common_thermal_dao::spike_going_high);
}

common_thermal_device_pci_agent_pldm_api::common_thermal_device_pci_agent_pldm_api(int instance)
    : common_thermal_device(api_agent_class, api_agent_class, instance, utils::tdev_pci_agent_pldm_api) {}

void common_thermal_device_pci_agent_pldm_api::set_num(unsigned bus, unsigned device) {
    _device_key = (bus & 0xFF) << 16 | (device & 0xFFFF) | device_key_mark;
}

bool common_thermal_device_pci_agent_pldm_api::set_pldm_config() {
    pcie_device_manager::polling_mode = polling_on;
    LOG::log(log_source, log_mask::bus, "%s::%s PLDM polling mode:%d\n", get_name().c_str(), "set_pldm_config",
             static_cast<int>(polling_on));
    if (pcie_device_manager::set_polling_interval(_device_key, polling_seconds) == 0) {
        return false;
    }
    if (LOG::is_enabled(log_mask::bus)) {
        LOG::log(log_source, log_mask::bus, "%s::%s PLDM polling interval:%d\n", get_name().c_str(), "set_pldm_config",
                 static_cast<int>(pcie_device_manager::get_polling_interval(_device_key)));
    }
    _init_done = true;
    return true;
}

bool common_thermal_device_pci_agent_pldm_api::read_data(device_temperature_margin& out) {
    LOG::log(log_source, log_mask::bus, "%s::%s read PLDM data with device key:0x%08lx\n", get_name().c_str(),
             "read_data", static_cast<unsigned long>(_device_key));
    return pcie_device_manager::get_device_temperature_margin(_device_key, out) != 0;
}

common_thermal_device_pci_request_pldm_info::common_thermal_device_pci_request_pldm_info(int instance)
    : pci_request_device(info_kind, instance, {{"margin", utils::invalid_temperature}, {"timestamp"}, {"temperature"}}),
      _heartbroken_countdown(polls_of_grace) {}

// What no adapter answers stays as the one before it left it; whether there is an answer is up to the last one.
device_temperature_margin common_thermal_device_pci_request_pldm_info::read_adapters() {
    using agent_t = common_thermal_device_pci_agent_pldm_api;
    const device_temperature_margin no_data{static_cast<std::int32_t>(utils::invalid_temperature), 0, 0};
    device_temperature_margin data = no_data;
    bool answered = false;
    for_each_depend<agent_t>(_kind.agent, [&](agent_t& agent) {
        if (!agent.init_status()) {
            agent.set_pldm_config();
        }
        answered = agent.read_data(data);
        LOG::log(log_source, log_mask::bus, "%s::%s read PLDM data: margin(%d), time_stamp(%lld), reading(%d)\n",
                 get_name().c_str(), "poll", data.margin, static_cast<long long>(data.time_stamp),
                 static_cast<int>(data.reading));
    });
    if (!answered) {
        LOG::log(log_source, log_mask::life_cycle, "%s::%s Failed to get the polling info from PLDM LD\n",
                 get_name().c_str(), "poll");
    }
    return answered ? data : no_data;
}

bool common_thermal_device_pci_request_pldm_info::is_news(const device_temperature_margin& data) const {
    return static_cast<float>(data.margin) != utils::invalid_temperature && data.time_stamp != _last_timestamp;
}

void common_thermal_device_pci_request_pldm_info::take(const device_temperature_margin& data) {
    _last_margin = static_cast<float>(data.margin);
    _last_reading = static_cast<float>(data.reading);
    _last_timestamp = data.time_stamp;
    _heartbroken_countdown = polls_of_grace;
}

void common_thermal_device_pci_request_pldm_info::miss() {
    LOG::log(log_source, log_mask::bus, "%s::%s PLDM data is invalid\n", get_name().c_str(), "poll");
    if (_heartbroken_countdown > 0) {
        --_heartbroken_countdown;
        LOG::log(log_source, log_mask::bus, "%s::%s heartbroken countdown:%d\n", get_name().c_str(), "poll",
                 static_cast<int>(_heartbroken_countdown));
    } else {
        _last_margin = utils::invalid_temperature;
        LOG::log(log_source, log_mask::bus, "%s::%s PLDM device is unavailable\n", get_name().c_str(), "poll");
    }
}

void common_thermal_device_pci_request_pldm_info::poll(common_thermal_dao* dao, unsigned long now) {
    if (nap_chk(now) || !is_card_supported()) {
        return;
    }
    const device_temperature_margin data = read_adapters();
    is_news(data) ? take(data) : miss();
    if (_last_margin != utils::invalid_temperature) {
        tell_slots(&common_thermal_device_pci_slot::set_margin, _last_margin);
        tell_slots(&common_thermal_device_pci_slot::set_primary_temperature, _last_reading);
    }
    _values[margin] = _last_margin;
    _values[temperature] = _last_reading;
    _values[timestamp] = static_cast<float>(data.time_stamp);
    _values.publish(dao, common_thermal_dao::spike_none);
    nap_set(now, nap_seconds);
}
