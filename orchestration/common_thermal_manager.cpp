#include "orchestration/common_thermal_manager.hpp"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <exception>
#include <limits>

#include "algorithm/config/nvme_cap_params.hpp"
#include "device/event_status.hpp"
#include "device/fan/fan_control.hpp"
#include "device/uefi.hpp"
#include "foundation/diagnostic_file.hpp"
#include "foundation/log_masks.hpp"

namespace {

using utils = common_thermal_utils;

constexpr const char* manager_name = "common_thermal_manager";
constexpr bmc_signal subscribed_signals[] = {
    149, 225, 134, 135, 304, 132, 128, 129, 87, common_thermal_manager::timer_signal, 230, 239};

// A device of one of the scheduler's lists by kind, as the class of that kind.
template <class Device>
Device& device_at(const common_thermal_scheduler& scheduler, unsigned long index) {
    return *static_cast<Device*>(scheduler.get_thermal_device_by_index(index));
}

bool holds_no_rule(const common_thermal_scheduler& scheduler) {
    return std::ranges::all_of(scheduler.get_all_thermal_algorithm_list(),
                               [](const common_thermal_algorithm* rule) { return rule == nullptr; });
}

}  // namespace

common_thermal_scheduler* common_thermal_manager::_scheduler = nullptr;
common_thermal_dao* common_thermal_manager::_dao = nullptr;

common_thermal_manager::common_thermal_manager()
    : logical_device(utils::thermal_controller_device(), manager_name, manager_name, true),
      _fsm(std::make_unique<common_thermal_manager_sm>(*this)),
      _fan_maximum(common_thermal_device_fan_control::fan_maximum_name, 1) {
    _port_total_system_psu.create_port_integer(*this, "CIO_TOTAL_SYSTEM_PSU_WATT", 1, "TOTAL_SYS_PSU_WATTS");
    _port_total_high_power_pcie.create_port_integer(*this, "CIO_HIPWR_PCIE_TOTAL_WATT", 1, "TOTAL_HIGH_POW_PCIE_WATTS");
    set_fsm(_fsm.get());
    _fsm->set_object_number(QFM::add_qfsm_object(_fsm.get(), this));
    if (!_fsm->is_registered()) {
        LOG::err(log_source_registration, "%s::set_fsm(): add_qfsm_object returned bad value!", device_name().c_str());
    }
    common_thermal_algorithm_config_nvme_cap_params::forget_everything();
    common_thermal_algorithm_config_nvme_cap_params_v2::forget_everything();
}

common_thermal_manager::~common_thermal_manager() { withdraw_commands(); }

void common_thermal_manager::add_thermal_device(common_thermal_device* device) {
    if (_scheduler != nullptr) {
        _scheduler->add_thermal_device(device);
    }
}

bool common_thermal_manager::chk_platform_cpu_type_number() {
    std::size_t intel = 0;
    std::size_t amd = 0;
    if (_scheduler != nullptr) {
        for (const unsigned long index : _scheduler->get_all_thermal_device_cpu_index_list()) {
            const auto& channel = device_at<common_thermal_device>(*_scheduler, index);
            intel += channel.get_depends(utils::tdev_cpu_agent_intel).size();
            amd += channel.get_depends(utils::tdev_cpu_agent_amd).size();
        }
    }
    const bool both = intel > 0 && amd > 0;
    if (both) {
        LOG::log(log_source, log_mask::arbitration, "common_thermal_manager:: Both CPU types are available!?\n");
    }
    _cpu_intel = static_cast<std::uint8_t>(both ? 0 : intel);
    _cpu_amd = static_cast<std::uint8_t>(both ? 0 : amd);
    return !both;
}

void common_thermal_manager::add_thermal_device_done() {
    chk_platform_cpu_type_number();
    if (_scheduler != nullptr) {
        _scheduler->add_thermal_device_done();
    }
    if (::mkdir(diagnostics_directory, 0755) != 0 && errno != EEXIST) {
        LOG::err(log_source, "%s: failed to mkdir /tmp/thermal, errno %d\n", "add_thermal_device_done", errno);
    } else if (!diagnostic_file::is_directory_ours()) {
        LOG::err(log_source, "%s: /tmp/thermal is not ours, no diagnostic files\n", "add_thermal_device_done");
    }
}

int common_thermal_manager::initialize(controller* owner) {
    if (owner != nullptr) {
        for (const bmc_signal signal : subscribed_signals) {
            owner->register_bmc_event(signal, this, true);
        }
    }
    register_commands();
    _uefi_perf_sig = static_cast<std::uint8_t>(EM::register_overloaded_signal("UEFI_PERF_SIG"));
    _cff2_fan_speed_ctrl_sig = static_cast<std::uint8_t>(EM::register_overloaded_signal("CFF2_FAN_SPEED_CTRL_SIG"));
    reserve_timer(owner);
    LOG::log(log_source, log_mask::life_cycle, "common_thermal_manager::%s \n", "initialize");
    _fsm->init(nullptr);
    return 1;
}

// The firmware may hand out another signal than the usual one, and then has to be asked for that one too.
void common_thermal_manager::reserve_timer(controller* owner) {
    const int reserved = owner != nullptr ? owner->reserve_timer_signal(timer_signal, 0, 0, 0) : 0;
    if (reserved > 0 && reserved <= std::numeric_limits<QSignal>::max()) {
        _timer_signal = static_cast<QSignal>(reserved);
    }
    if (owner != nullptr && _timer_signal != timer_signal) {
        owner->register_bmc_event(_timer_signal, this, true);
    }
    _timer = std::make_unique<QTimeEvt>(_timer_signal);
}

bool common_thermal_manager::is_timer_signal(QSignal signal) const {
    return signal == timer_signal || signal == _timer_signal;
}

void common_thermal_manager::set_stage(status_stage_t stage, bool value) {
    if (_scheduler == nullptr) {
        return;
    }
    for (const unsigned long index : _scheduler->event_indices()) {
        device_at<common_thermal_device_event_status>(*_scheduler, index).set_stage(stage, value);
    }
}

bool common_thermal_manager::get_stage(status_stage_t stage) const {
    return _scheduler == nullptr || std::ranges::all_of(_scheduler->event_indices(), [stage](unsigned long index) {
               return device_at<common_thermal_device_event_status>(*_scheduler, index).get_stage(stage);
           });
}

int common_thermal_manager::get_thermal_dao_reading(const std::string& name, int instance, float* value) {
    if (_scheduler == nullptr || _dao == nullptr) {
        return 0;
    }
    float reading = 0.0f;
    if (!_dao->fetch_dev(name, instance, &reading)) {
        LOG::warn(log_source, log_mask::life_cycle, "common_thermal_manager::get DAO reading failed. [%s.%d]\n",
                  name.c_str(), instance);
        return 0;
    }
    if (value != nullptr) {
        *value = reading;
    }
    return 1;
}

void common_thermal_manager::set_uefi_event(std::uint16_t signal, std::uint8_t op_mode, std::uint8_t) const {
    if (_scheduler == nullptr || signal != _uefi_perf_sig) {
        return;
    }
    for (const unsigned long index : _scheduler->uefi_indices()) {
        device_at<common_thermal_device_uefi>(*_scheduler, index).set_op_mode(op_mode);
    }
}

void common_thermal_manager::persistent_settings_available() {
    if (DM::get_property(accelerate_policy) == nullptr) {
        bmc_property::create(accelerate_policy, std::uint8_t{0}, property_flags);
    }
    if (!_polling_started) {
        poll_thermal_device_and_algorithm();
    }
}

void common_thermal_manager::timer_expired() {
    _polling_started = true;
    poll_thermal_device_and_algorithm();
}

void common_thermal_manager::load_algorithm_rule(unsigned long) {
    if (_scheduler == nullptr) {
        return;
    }
    LOG::log(log_source, log_mask::result, "common_thermal_manager::%s BEGIN Load algorithm\n", "load_algorithm_rule");
    try {
        common_thermal_algorithm_parser::generate_algorithm_rule(_algorithm_parse_file, _scheduler, _rules);
    } catch (const std::exception& error) {
        LOG::err(log_source, "common_thermal_manager::%s stopped in [%s]: %s; %zu rules in force\n",
                 "load_algorithm_rule", _rules.group.c_str(), error.what(), _rules.rules.size());
        if (holds_no_rule(*_scheduler)) {
            _scheduler->free_all_thermal_algorithm_list();
        }
        _scheduler->add_thermal_algorithm_done();
    }
    if (static_cast<long>(_rules.rules.size()) < _rules.announced) {
        LOG::warn(log_source, log_mask::result, "common_thermal_manager::%s ALGORITHM_COUNT is %d, %zu rules built\n",
                  "load_algorithm_rule", _rules.announced, _rules.rules.size());
    }
    _scheduler->reschedule_talg();
    LOG::log(log_source, log_mask::result, "common_thermal_manager::%s END Load algorithm\n", "load_algorithm_rule");
}
