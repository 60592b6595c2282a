#include <algorithm>
#include <iterator>
#include <optional>

#include "algorithm/capping/nvme_device.hpp"
#include "algorithm/config/nvme_cap_params.hpp"
#include "device/fan/fan.hpp"
#include "device/fan/fan_pwm.hpp"
#include "foundation/firmware_event.hpp"
#include "foundation/log_masks.hpp"
#include "orchestration/common_thermal_manager.hpp"
#include "platform/ipmi.hpp"

// End of a cycle: what the winners ask for goes out, compared with what went out last, and the tables start anew.
namespace {

// Marks a fan output that nobody asks for anything; no duty, and never applied to hardware.
constexpr std::uint8_t no_demand = 172;
constexpr int fan_speed_progress = 38;
constexpr std::uint16_t highest_percentage = 100;

constexpr std::uint16_t no_cap = 65535;
const interned_name nobody("NA");

bmc_event* new_event(QSignal signal) {
    return new_firmware_event(signal, "common_thermal_manager: no storage for an event");
}

enum class processors { any, intel, amd };

// A request to another controller of the firmware.
struct capping_request {
    common_thermal_manager::capping_kind kind;
    processors needed;
    QSignal signal;
    controller_types receiver;
    std::uint16_t code;
    std::uint16_t (*word)(std::uint16_t value);
};

std::uint16_t watts(std::uint16_t value) { return value; }

std::uint16_t share_to_leave_out(std::uint16_t value) {
    return value <= highest_percentage ? static_cast<std::uint16_t>(highest_percentage - value) : std::uint16_t{0};
}

std::uint16_t drive_power(std::uint16_t value) {
    return common_thermal_algorithm_sensor_capping_nvme_device::power_val_for_sepcomm(value);
}

constexpr QSignal power_capping_signal = 191;
constexpr QSignal drive_capping_signal = 317;
constexpr capping_request capping_requests[] = {
    {common_thermal_manager::capping_cpu, processors::any, power_capping_signal, power_capping_controller, 0x2102,
     watts},
    {common_thermal_manager::capping_dimm, processors::intel, power_capping_signal, power_capping_controller, 0x3102,
     watts},
    {common_thermal_manager::capping_system, processors::intel, power_capping_signal, power_capping_controller, 0x1102,
     watts},
    {common_thermal_manager::capping_nvme, processors::any, drive_capping_signal, storage_controller, 0, drive_power},
    {common_thermal_manager::capping_dimm_percentage, processors::amd, power_capping_signal, power_capping_controller,
     0x3502, share_to_leave_out},
};

using nvme_v1 = common_thermal_algorithm_config_nvme_cap_params;
using nvme_v2 = common_thermal_algorithm_config_nvme_cap_params_v2;

// What the effective rule of a class asks for; nothing without one.
template <class Rule, class Params>
std::optional<Params> wanted_params() {
    Params wanted;
    const bool is_wanted = std::apply(
        [&wanted](auto&... values) { return Rule::get_effective_params(wanted.instance, values...); }, wanted.values);
    return is_wanted ? std::optional(wanted) : std::nullopt;
}

// Only a change of both the rule and its values goes out: a rule that is read again with other values does not.
template <class Rule, class Params>
bool apply_changed(const Params& wanted, Params& applied) {
    if (wanted.instance == applied.instance || wanted.values == applied.values) {
        return false;
    }
    std::apply(Rule::apply_nvme_params, wanted.values);
    applied = wanted;
    return true;
}

}  // namespace

void common_thermal_manager::reset_thermal_algorithm_status(unsigned long now) {
    if (_scheduler == nullptr) {
        return;
    }
    const index_list& fans = _scheduler->fan_indices();
    const index_list& pci = _scheduler->pci_indices();
    apply_fan_pwm_value(now, fans);
    apply_capping_value(now);
    apply_slot_claims(now, pci);
    clear_fan_pwm_value(fans);
    clear_capping_value();
    clear_pciegen_pwrbrk_slot();
    clear_powerlimit_pci_slot(pci);
}

void common_thermal_manager::apply_fan_pwm_value(unsigned long now, const index_list& fans) {
    know_fans(fans);
    bool psu_change = false;
    std::uint8_t psu_value = 0;
    for (const fan_target& target : _fan_targets) {
        const fan_alg_t& row = *target.row;
        if (!row.claimed) {
            if (compare_psu_pwm(target.fan, no_demand)) {
                target.fan->set_value_pwm_output(no_demand);
                psu_change = true;
                psu_value = 0;
            }
            continue;
        }
        if (compare_psu_pwm(target.fan, row.value)) {
            psu_change = true;
            psu_value = row.value;
        }
        target.fan->set_value_pwm_output(row.value);
        target.fan->apply_value_pwm_output();
        if (_dao != nullptr) {
            _dao->update_debug_fan_alg(now, row.fan, row.name, row.instance, static_cast<float>(row.value));
        }
        if (LOG::is_enabled(log_mask::result)) {
            LOG::log(log_source, log_mask::result, "common_thermal_manager::%s [%d, %s.%d, %d]\n",
                     "apply_fan_pwm_value", static_cast<int>(row.fan), row.name.c_str(), static_cast<int>(row.instance),
                     static_cast<int>(row.value));
        }
    }
    if (psu_change) {
        write_pwm_to_psu(psu_value);
    }
}

bool common_thermal_manager::compare_psu_pwm(const common_thermal_device_fan* fan, std::uint8_t value) {
    bool drives_psu = false;
    fan->for_each_pwm([&drives_psu](const common_thermal_device_fan_pwm& output) {
        drives_psu = drives_psu || output.get_source_type() == fan_source_psu;
    });
    return drives_psu && fan->get_value_pwm_output() != value;
}

void common_thermal_manager::write_pwm_to_psu(std::uint8_t value) const {
    IPMI::progress_notify(fan_speed_progress, 0);
    bmc_event* event = new_event(common_thermal_manager::overloaded_signal);
    event->data_word = _cff2_fan_speed_ctrl_sig;
    event->data_byte0 = value;
    event->data_byte1 = 0;
    QF::publish_(event, "void common_thermal_manager::write_pwm_to_psu(uint8)");
}

void common_thermal_manager::apply_capping_value(unsigned long now) {
    LOG::log(log_source, log_mask::arbitration, "common_thermal_manager::%s CPU_INTEL[%d], CPU_AMD[%d]\n",
             "apply_capping_value", _cpu_intel, _cpu_amd);
    for (unsigned kind = 0; kind < capping_kinds; ++kind) {
        cap_alg_t& row = _cap_alg[kind];
        if (row.value != row.value_applied) {
            act_on_capping(static_cast<capping_kind>(kind), row.value);
        }
        if (_dao != nullptr) {
            _dao->update_debug_cap_alg(now, kind, row.name, row.instance, row.value);
        }
        LOG::log(log_source, log_mask::arbitration, "common_thermal_manager::%s [%d, %d, %d]\n", "apply_capping_value",
                 static_cast<int>(kind), row.value_applied, row.value);
        row.value_applied = row.value;
    }
    apply_nvme_params();
}

// The second generation takes precedence, also while it has nothing new to say.
void common_thermal_manager::apply_nvme_params() {
    if (const auto v2 = wanted_params<nvme_v2, decltype(_nvme_params_v2_applied)>()) {
        if (apply_changed<nvme_v2>(*v2, _nvme_params_v2_applied)) {
            const auto& [margin_lower, margin_upper, timer_lower, timer_upper] = v2->values;
            LOG::log(log_source, log_mask::arbitration, "common_thermal_manager::%s [%d][%u, %u, %u, %u]\n",
                     "apply_capping_value", v2->instance, margin_lower, margin_upper, timer_lower, timer_upper);
        }
    } else if (const auto v1 = wanted_params<nvme_v1, decltype(_nvme_params_applied)>()) {
        if (apply_changed<nvme_v1>(*v1, _nvme_params_applied)) {
            const auto& [margin1, margin2, hysteresis] = v1->values;
            LOG::log(log_source, log_mask::arbitration, "common_thermal_manager::%s [%d][%u, %u, %u]\n",
                     "apply_capping_value", v1->instance, margin1, margin2, hysteresis);
        }
    }
    nvme_v2::open_place();
    nvme_v1::open_place();
}

void common_thermal_manager::act_on_capping(capping_kind kind, std::uint16_t value) {
    if (kind == capping_power_permission) {
        handle_power_permission(value != 0);
    } else if (kind != capping_fan_maximum) {
        send_capping_request(kind, value);
    } else if (_dao != nullptr) {
        _fan_maximum.value = static_cast<float>(std::min(value, highest_percentage));
        _dao->update_dev(&_fan_maximum, common_thermal_dao::spike_none, false);
    }
}

void common_thermal_manager::send_capping_request(capping_kind kind, std::uint16_t value) const {
    const auto* request = std::ranges::find(capping_requests, kind, &capping_request::kind);
    if (request == std::end(capping_requests)) {
        return;
    }
    const bool has_processors = request->needed == processors::any ||
                                (request->needed == processors::intel && _cpu_intel != 0) ||
                                (request->needed == processors::amd && _cpu_amd != 0);
    if (!has_processors) {
        return;
    }
    bmc_event* event = new_event(request->signal);
    event->data_word = request->word(value);
    event->data_byte0 = static_cast<std::uint8_t>(request->code & 0xFF);
    event->data_byte1 = static_cast<std::uint8_t>(request->code >> 8);
    EM::postFIFO(request->receiver, event);
}

void common_thermal_manager::clear_fan_pwm_value(const index_list& fans) {
    know_fans(fans);
    for (fan_alg_t& row : _fan_alg) {
        row.claimed = false;
    }
    for (const fan_target& target : _fan_targets) {
        if (!target.fan->is_manual_speed()) {
            target.fan->set_expected_speed(0);
        }
    }
}

void common_thermal_manager::clear_capping_value() {
    for (cap_alg_t& row : _cap_alg) {
        row = {nobody, 0, no_cap, row.value_applied};
    }
}

void common_thermal_manager::set_power_permission_voter(unsigned port) {
    LOG::err(log_source, "%s common_thermal_manager::PortKey[%d]\n", "set_power_permission_voter",
             static_cast<int>(port));
    _port_power_permission.create_port_bit(*this, "common_thermal_manager.pwr_perm_vtr", 1, port, false);
}

void common_thermal_manager::handle_power_permission(bool enable) {
    std::uint8_t bit = 0;
    if (!_port_power_permission.is_bound() || !_port_power_permission.read_port_bit(&bit)) {
        return;
    }
    if (enable) {
        LOG::warn(log_source, log_mask::life_cycle, "common_thermal_manager::Enable Power Permission\n");
    } else {
        LOG::warn(log_source, log_mask::life_cycle, "common_thermal_manager::Block Power Permission\n");
    }
    const bool is_enabled = bit != 0;
    if (is_enabled != enable) {
        _port_power_permission.write_port_bit(enable ? 1 : 0);
    }
}
