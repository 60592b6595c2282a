#include "device/pci/rf_temperatures.hpp"

#include <algorithm>

#include "device/pci/supported_list.hpp"
#include "foundation/log_masks.hpp"

using utils = common_thermal_utils;

namespace {

using slot = common_thermal_device_pci_slot;

constexpr std::string_view request_name = "request_reading";
constexpr float milliwatts_per_watt = 1000.0f;

enum class quantity {
    temperature,
    core,  // a temperature that the highest one is taken from
    highest,
    power,
};

// A value, the reading behind it and the slot's setter that hears of it.
struct rf_value {
    const char* word = nullptr;
    quantity kind = quantity::temperature;
    rf_reading::type sensor = rf_reading::none;
    void (slot::*tell)(float) = nullptr;
};

float signed_thousandths(std::uint32_t raw) { return static_cast<float>(static_cast<std::int32_t>(raw)) / 1000.0f; }

float unsigned_thousandths(std::uint32_t raw) { return static_cast<float>(raw) / 1000.0f; }

float degrees_or_thousandths(std::uint32_t raw) {
    return raw >= 1000 ? unsigned_thousandths(raw) : static_cast<float>(raw);
}

}  // namespace

struct rf_temperature_request::row {
    kind request{};
    float (*decode)(std::uint32_t raw) = nullptr;
    bool logs_instance = false;
    std::array<rf_value, 6> values{};  // in the order in which they are read, told and published
};

namespace {

using enum quantity;
using row = rf_temperature_request::row;

constexpr row pci_request_nvidia_rf_temperature{
    {"common_thermal_device_pci_request_nvidia_rf_temperature", utils::tdev_pci_request_nvidia_rf_temperature,
     pci_group::nvidia_rf_gpu, utils::tdev_pci_agent_nvidia_rf},
    signed_thousandths,
    false,
    {{{"core1_temperature", core, rf_reading::first, &slot::set_primary_temperature},
      {"core2_temperature", temperature, rf_reading::second, &slot::set_margin},
      {"high_temperature", highest},
      {"hbm_temperature", temperature, rf_reading::memory, &slot::set_secondary_temperature},
      {"retimer_temperature", temperature, rf_reading::retimer, &slot::set_tertiary_temperature},
      {"power", power, rf_reading::power, &slot::set_power_consumption}}}};
constexpr row pci_request_amd_rf_temperature{
    {"common_thermal_device_pci_request_amd_rf_temperature", utils::tdev_pci_request_amd_rf_temperature,
     pci_group::amd_rf_gpu, utils::tdev_pci_agent_amd_rf},
    unsigned_thousandths,
    true,
    {{{"temperature", core, rf_reading::amd_die},
      {"high_temperature", highest, rf_reading::none, &slot::set_primary_temperature},
      {"hbm_temperature", temperature, rf_reading::amd_memory, &slot::set_secondary_temperature},
      {"retimer_temperature", temperature, rf_reading::amd_retimer},
      {"consolidated_temperature", temperature, rf_reading::amd_consolidated, &slot::set_tertiary_temperature},
      {"power", power, rf_reading::amd_power, &slot::set_power_consumption}}}};
constexpr row pci_request_intel_gaudi3_temperature{
    {"common_thermal_device_pci_request_intel_gaudi3_temperature", utils::tdev_pci_request_intel_gaudi3_temperature,
     pci_group::intel_gaudi3_gpu, utils::tdev_pci_agent_intel_gaudi3},
    degrees_or_thousandths,
    false,
    {{{"core1_temperature", core, rf_reading::first, &slot::set_primary_temperature},
      {"core2_temperature", core, rf_reading::second, &slot::set_margin},
      {"high_temperature", highest},
      {"hbm_temperature", temperature, rf_reading::none, &slot::set_secondary_temperature},
      {"retimer_temperature", temperature, rf_reading::retimer, &slot::set_tertiary_temperature},
      {"power", power, rf_reading::power, &slot::set_power_consumption}}}};

}  // namespace

rf_temperature_request::rf_temperature_request(const row& family, int instance)
    : pci_request_device(family.request, instance,
                         {{family.values[0].word},
                          {family.values[1].word},
                          {family.values[2].word},
                          {family.values[3].word},
                          {family.values[4].word},
                          {family.values[5].word}}),
      _row(family) {}

rf_agent::status_t rf_temperature_request::request_reading(rf_agent& agent, rf_agent::reading_type type, float* out) {
    std::uint32_t raw = 0;
    const auto status = agent.read_data(type, &raw, request_name, static_cast<unsigned>(get_instance()));
    if (status == utils::cmd_complete) {
        *out = _row.decode(raw);
    } else {
        *out = utils::invalid_temperature;
        if (LOG::is_enabled(log_mask::bus)) {
            log_lost(status);
        }
    }
    return status;
}

void rf_temperature_request::log_lost(rf_agent::status_t status) const {
    LOG::log(log_source, log_mask::bus, "%s::%s - cur_status(%d)\n",
             rf_agent::shown_name(*this, _row.logs_instance).c_str(), request_name.data(), static_cast<int>(status));
}

void rf_temperature_request::read_sensors(rf_agent& agent) {
    float high = 0.0f;
    for (std::size_t position = 0; position < _row.values.size(); ++position) {
        const rf_value& value = _row.values[position];
        float& reading = _values[position];
        const bool lost =
            value.sensor != rf_reading::none && request_reading(agent, value.sensor, &reading) != utils::cmd_complete;
        if (value.kind == core && reading != utils::invalid_temperature) {
            high = std::max(high, reading);
        } else if (value.kind == highest) {
            reading = high;
        } else if (value.kind == power && lost) {
            reading = 0.0f;
        }
    }
}

void rf_temperature_request::tell_readings() const {
    for_each_depend<slot>(utils::tdev_pci_slot, [this](slot& told) {
        for (std::size_t position = 0; position < _row.values.size(); ++position) {
            const rf_value& value = _row.values[position];
            if (value.tell != nullptr) {
                const float reading = _values[position];
                (told.*value.tell)(value.kind == power ? reading * milliwatts_per_watt : reading);
            }
        }
    });
}

void rf_temperature_request::poll(common_thermal_dao* dao, unsigned long) {
    auto* agent = is_card_supported() ? visited_agent<rf_agent>() : nullptr;
    if (agent == nullptr) {
        return;
    }
    read_sensors(*agent);
    tell_readings();
    visit_next_agent();
    _values.publish(dao, common_thermal_dao::spike_none);
}

#define THERMAL_RF_REQUEST(name) \
    common_thermal_device_##name::common_thermal_device_##name(int instance) : rf_temperature_request(name, instance) {}

THERMAL_RF_REQUEST(pci_request_nvidia_rf_temperature)
THERMAL_RF_REQUEST(pci_request_amd_rf_temperature)
THERMAL_RF_REQUEST(pci_request_intel_gaudi3_temperature)

#undef THERMAL_RF_REQUEST
