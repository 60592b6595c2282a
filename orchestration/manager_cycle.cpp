#include <utility>

#include "foundation/log_masks.hpp"
#include "orchestration/common_thermal_manager.hpp"
#include "platform/clock.hpp"

// The tick: one slot of the ring, and after slot 31 the end of the cycle.
namespace {

constexpr long long nanoseconds_per_second = 1000000000;
constexpr unsigned longest_wait = 13;  // platform ticks; of the first tick, and while there is nothing to run

// Idle values are eighths of a platform tick.
constexpr unsigned ticks_of(std::uint32_t idle_time) { return (idle_time + 7) >> 3; }

}  // namespace

void common_thermal_manager::poll_thermal_device_and_algorithm() {
    if (_timer == nullptr) {
        return;
    }
    _timer->disarm();
    const long long begun = platform_clock::wall_nanoseconds();
    const auto now = static_cast<unsigned long>(begun / nanoseconds_per_second);
    if (_scheduler == nullptr) {
        arm_timer(longest_wait);
        return;
    }
    if (!_first_tick_done) {
        start(now);
        arm_timer(longest_wait);
        return;
    }
    const auto counter = static_cast<int>(_scheduler->get_poll_counter());
    const auto shown_now = static_cast<long>(now);
    const bool traced = LOG::is_enabled(log_mask::tick);
    if (traced) {
        LOG::log(log_source, log_mask::tick, "common_thermal_manager::%s [%ld]BEGIN Schedule [%d]\n",
                 "poll_thermal_device_and_algorithm", shown_now, counter);
    }
    const unsigned wait = run_slot(now);
    if (traced) {
        const double seconds = static_cast<double>(platform_clock::wall_nanoseconds() - begun) / 1e9;
        LOG::log(log_source, log_mask::tick, "common_thermal_manager::%s [%ld]END Schedule [%d]%d-%d[%2.3f]\n",
                 "poll_thermal_device_and_algorithm", shown_now, counter, _scheduler->is_running_tdev_list() ? 1 : 0,
                 _scheduler->is_running_algorithm_list() ? 1 : 0, seconds);
    }
    arm_timer(wait);
}

// The first tick polls nothing: it brings back what was stored and loads the rules.
void common_thermal_manager::start(unsigned long now) {
    handle_power_permission(true);
    load_fan_override_tbl();
    load_ipmiprop_pci_tgp_user();
    load_ipmiprop_pci_edpp_user();
    if (!_algorithm_loaded) {
        load_algorithm_rule(now);
        _algorithm_loaded = true;
    }
    _first_tick_done = true;
}

unsigned common_thermal_manager::run_slot(unsigned long now) {
    _scheduler->run(_dao);
    if (_scheduler->is_running_tdev_list()) {
        poll_thermal_device(now);
    } else if (_scheduler->is_running_algorithm_list()) {
        poll_thermal_algorithm(now);
    }
    const std::uint32_t idle_time = _scheduler->get_idle_time();
    if (_scheduler->last_schedule()) {
        end_cycle(now);
    }
    return ticks_of(idle_time);
}

void common_thermal_manager::arm_timer(unsigned ticks) {
    _timer->interval = 0;
    _timer->arm_(DM::get_controller(thermal_controller), ticks);
}

// Requests and results need the store; the steps between them do not.
void common_thermal_manager::end_cycle(unsigned long now) {
    count_dp_ready_cycle();
    if (_dao != nullptr) {
        serve_one_request(now);
    }
    if (!_pci_maxwatt_published) {
        _pci_maxwatt_published = update_ipmiprop_pci_maxwatt() != 0;
        LOG::log(log_source, log_mask::tick, "common_thermal_manager:: update_ipmiprop_pci_maxwatt[%02X][%02X].\n",
                 _pci_maxwatt_published ? 1u : 0u, static_cast<unsigned>(_dp_ready_cycles));
    }
    if (_dao != nullptr) {
        reset_thermal_algorithm_status(now);
    }
}

void common_thermal_manager::count_dp_ready_cycle() {
    if (!get_stage(common_thermal_utils::dp_ready)) {
        _dp_ready_cycles = 0;
        _pci_maxwatt_published = false;
    } else if (_dp_ready_cycles < settled_cycles) {
        ++_dp_ready_cycles;
    }
}

// One request a cycle, so that a tick stays short; what is not served waits. A reload comes last.
void common_thermal_manager::serve_one_request(unsigned long now) {
    if (std::exchange(_debug_on_request, false)) {
        create_debug_tdev_information(now);
        create_debug_talg_information(now);
        create_debug_dao_information(now);
        create_debug_mapping_information(now);
    } else if (std::exchange(_log_alg_request, false)) {
        create_log_alg_information(now);
    } else if (std::exchange(_fan_alg_request, false)) {
        create_debug_fan_alg_information(now);
        create_debug_cap_alg_information(now);
        create_debug_pwrlmt_alg_information(now);
    } else if (std::exchange(_scheduler_request, false)) {
        create_debug_scheduler_information(now);
    } else if (!_algorithm_loaded) {
        load_fan_override_tbl();
        load_algorithm_rule(now);
        _algorithm_loaded = true;
    }
}

void common_thermal_manager::poll_thermal_device(unsigned long now) {
    if (_scheduler == nullptr || _dao == nullptr) {
        return;
    }
    LOG::log(log_source, log_mask::tick, "common_thermal_manager::%s BEGIN Device\n", "poll_thermal_device");
    const std::uint32_t* list = _scheduler->get_current_scheduler_list();
    const std::uint32_t size = _scheduler->get_current_scheduler_list_size();
    const bool traced = LOG::is_enabled(log_mask::polled);
    for (std::uint32_t i = 0; i < size; ++i) {
        common_thermal_device* device = _scheduler->get_thermal_device_by_index(list[i]);
        if (device->is_activated()) {
            device->polling(_dao, now);
        }
        if (traced) {
            LOG::log(log_source, log_mask::polled, "common_thermal_manager::%s:%s.%d\n", "poll_thermal_device",
                     device->get_name().c_str(), device->get_instance());
        }
    }
    LOG::log(log_source, log_mask::tick, "common_thermal_manager::%s END Device\n", "poll_thermal_device");
}

void common_thermal_manager::poll_thermal_algorithm(unsigned long now) {
    if (_scheduler == nullptr || _dao == nullptr) {
        return;
    }
    LOG::log(log_source, log_mask::tick, "common_thermal_manager::%s BEGIN Algorithm\n", "poll_thermal_algorithm");
    const index_list& fans = _scheduler->fan_indices();
    _dao->reserve_fan_alg(static_cast<unsigned>(fans.size()));
    begin_claims(fans);
    const std::uint32_t* list = _scheduler->get_current_scheduler_list();
    const std::uint32_t size = _scheduler->get_current_scheduler_list_size();
    for (std::uint32_t i = 0; i < size; ++i) {
        if (common_thermal_algorithm* rule = _scheduler->get_thermal_algorithm_by_index(list[i])) {
            poll_rule(*rule, list[i], now);
        }
    }
    LOG::log(log_source, log_mask::tick, "common_thermal_manager::%s END Algorithm\n", "poll_thermal_algorithm");
}

void common_thermal_manager::poll_rule(common_thermal_algorithm& rule, unsigned long index, unsigned long now) {
    if (rule.is_asserted()) {
        rule.deasserted();
    }
    const auto number = static_cast<long>(index + 1);
    if (rule.are_conditions_asserted(_dao)) {
        if (!rule.get_last_state()) {
            LOG::log(log_source, log_mask::change, "OBV - tmgr:: algo[%4ld]    asserted [%s]\n", number,
                     rule.get_key_custom_result().c_str());
        }
        rule.polling(_dao, now);
        if (LOG::is_enabled(log_mask::polled)) {
            LOG::log(log_source, log_mask::polled, "common_thermal_manager::%s:%s.%d\n", "poll_thermal_algorithm",
                     rule.get_name().c_str(), rule.get_instance());
        }
        rule.asserted();
    } else if (rule.get_last_state()) {
        LOG::log(log_source, log_mask::change, "OBV - tmgr:: algo[%4ld] de-asserted [%s]\n", number,
                 rule.get_key_custom_result().c_str());
    }
    rule.update_last_state();
    if (rule.is_asserted()) {
        compare_asserted_rule(rule);
    }
    if (rule.supports_more_than_fans()) {
        compare_slot_wishes(rule);
    }
    if (rule.is_supported_reassertion_deferment() && rule.has_first_assertion() &&
        !get_stage(common_thermal_utils::post_init)) {
        rule.set_first_assertion(false);
    }
    rule.update_pre_asserted();
}
