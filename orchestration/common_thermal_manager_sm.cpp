#include "orchestration/common_thermal_manager_sm.hpp"

#include "foundation/log_masks.hpp"
#include "orchestration/common_thermal_manager.hpp"

namespace {

using utils = common_thermal_utils;

constexpr QSignal persistent_settings_signal = 149;
constexpr QSignal data_path_signal = 304;
constexpr std::uint8_t data_path_ready = 11;

struct stage_write {
    utils::status_stage_t stage;
    bool value;
};

struct stage_event {
    QSignal signal;
    unsigned count;
    stage_write writes[4];
};

// What the firmware's events say of the boot stages, in the order of the writes.
constexpr stage_event stage_events[] = {
    // host power came up
    {128,
     4,
     {{utils::power_good, true}, {utils::post_init, false}, {utils::post_completed, false}, {utils::dp_ready, false}}},
    // host power went down
    {129,
     4,
     {{utils::power_good, false}, {utils::post_init, false}, {utils::post_completed, false}, {utils::dp_ready, false}}},
    // host boot restarted
    {132, 3, {{utils::post_init, false}, {utils::post_completed, false}, {utils::dp_ready, false}}},
    // boot entered POST
    {134, 3, {{utils::post_init, true}, {utils::post_completed, false}, {utils::dp_ready, false}}},
    // POST completed
    {135, 2, {{utils::post_init, true}, {utils::post_completed, true}}},
    // IPMI service ready
    {225, 1, {{utils::ipmi_ready, true}}},
    {230, 1, {{utils::cpu_feh, false}}},
    {239, 1, {{utils::cpu_feh, true}}},
    {data_path_signal, 3, {{utils::post_init, true}, {utils::post_completed, true}, {utils::dp_ready, true}}},
};

// Signal 304 tells of other paths too.
bool is_about_stages(const QEvent& event) {
    if (event.sig != data_path_signal) {
        return true;
    }
    const auto& payload = static_cast<const bmc_event&>(event);
    return payload.data_byte0 == data_path_ready && payload.data_word == 0;
}

void set_stages(common_thermal_manager& manager, const QEvent& event) {
    for (const stage_event& row : stage_events) {
        if (row.signal != event.sig || !is_about_stages(event)) {
            continue;
        }
        for (unsigned i = 0; i < row.count; ++i) {
            manager.set_stage(row.writes[i].stage, row.writes[i].value);
        }
    }
}

}  // namespace

template <>
const state_row Tstate_table<common_thermal_manager_sm>::table[] = {
    {static_cast<QState::handler>(&common_thermal_manager_sm::running), "running"},
    {nullptr, nullptr},
};

common_thermal_manager_sm::common_thermal_manager_sm(common_thermal_manager& manager)
    : QHsm(static_cast<QState::handler>(&common_thermal_manager_sm::initial)),
      _manager(manager),
      _table("common_thermal_manager", *this) {}

QState common_thermal_manager_sm::initial(const QEvent*) {
    EM::register_state_table(&_table);
    LOG::log(log_source, log_mask::life_cycle, "common_thermal_manager_sm::%s \n", "initial");
    enter(static_cast<QState::handler>(&common_thermal_manager_sm::running));
    return {};
}

QState common_thermal_manager_sm::running(const QEvent* event) {
    if (event != nullptr) {
        LOG::log(log_source, log_mask::life_cycle, "common_thermal_manager_sm::%s - %d\n", "running", event->sig);
        handle(*event);
    }
    return {static_cast<QState::handler>(&QHsm::top)};
}

void common_thermal_manager_sm::handle(const QEvent& event) {
    if (_manager.is_timer_signal(event.sig)) {
        _manager.timer_expired();
        return;
    }
    switch (event.sig) {
        case state_entry_signal:
            LOG::log(log_source, log_mask::life_cycle, "common_thermal_manager::%s \n", "running");
            _state_signature = "QState common_thermal_manager_sm::running(const QEvent*)";
            _manager.poll_thermal_device_and_algorithm();
            break;
        case common_thermal_manager::overloaded_signal: {
            const auto& payload = static_cast<const bmc_event&>(event);
            LOG::log(log_source, log_mask::life_cycle, "common_thermal_manager::%s [%x, %x, %x]\n", "running",
                     static_cast<unsigned>(payload.data_word), static_cast<unsigned>(payload.data_byte0),
                     static_cast<unsigned>(payload.data_byte1));
            _manager.set_uefi_event(payload.data_word, payload.data_byte0, payload.data_byte1);
            break;
        }
        case persistent_settings_signal:
            _manager.persistent_settings_available();
            break;
        default:
            set_stages(_manager, event);
            break;
    }
}
