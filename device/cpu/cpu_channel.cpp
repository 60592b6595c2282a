#include "device/cpu/cpu_channel.hpp"

#include "device/cpu/cpu_agent.hpp"
#include "device/cpu/fpga_cpu.hpp"
#include "device/event_status.hpp"
#include "foundation/firmware_event.hpp"
#include "foundation/log_masks.hpp"

using utils = common_thermal_utils;

namespace {

constexpr const char* class_name = "common_thermal_device_cpu_channel";
enum word : std::size_t { actived };

constexpr QSignal processor_absent_signal = 84;
constexpr QSignal processor_present_signal = 85;
constexpr std::uint8_t processor_entity = 3;

}  // namespace

common_thermal_device_cpu_channel::common_thermal_device_cpu_channel(int instance)
    : common_thermal_device(class_name, class_name, instance, utils::tdev_cpu_channel),
      _values(class_name, instance, {{"actived"}}) {}

bool common_thermal_device_cpu_channel::is_actived() const {
    const auto has_data_path = [](const common_thermal_device_event_status& status) {
        return status.get_stage(utils::dp_ready);
    };
    return _values[actived] > 0.0f &&
           any_depend<common_thermal_device_event_status>(utils::tdev_event_status, has_data_path);
}

void common_thermal_device_cpu_channel::find_agent() {
    const auto take = [this](cpu_agent& agent) {
        _host_cpu_channel = agent.get_host_cpu_channel();
        _host_cpu_address = agent.get_host_cpu_address();
    };
    for_each_depend<cpu_agent>(utils::tdev_cpu_agent_intel, take);
    for_each_depend<cpu_agent>(utils::tdev_cpu_agent_amd, take);
}

bool common_thermal_device_cpu_channel::check_processor() {
    bool active = true;
    for_each_depend<common_thermal_device_cpu_presence>(utils::tdev_cpu_presence, [&](const auto& presence) {
        active = active && presence.is_presence();
        send_CPU_presence_signal(active);
    });
    for_each_depend<common_thermal_device_cpu_disabled>(
        utils::tdev_cpu_disabled, [&](const auto& disabled) { active = active && !disabled.is_disabled(); });
    for_each_depend<common_thermal_device_event_status>(utils::tdev_event_status, [&](const auto& status) {
        active = active && status.get_stage(utils::dp_ready) && !status.get_stage(utils::cpu_feh);
    });
    return active;
}

void common_thermal_device_cpu_channel::poll(common_thermal_dao* dao, unsigned long) {
    find_agent();
    const bool active = _host_cpu_channel != nullptr ? check_processor() : _values[actived] > 0.0f;
    _values[actived] = active ? 1.0f : 0.0f;
    _values.publish(dao, common_thermal_dao::spike_going_high);
}

void common_thermal_device_cpu_channel::send_CPU_presence_signal(bool present) {
    if (!(present ? _present_signal_armed : _absent_signal_armed)) {
        return;
    }
    const auto instance = static_cast<std::uint8_t>(get_instance());
    if (const logical_device* processor = DM::find_logical_device(processor_entity, instance)) {
        bmc_event* event = new_firmware_event(present ? processor_present_signal : processor_absent_signal,
                                              "common_thermal_device_cpu_channel: no storage for an event");
        event->data_dword0 = 1;
        event->data_dword1 = processor->record_id();
        event->data_byte0 = processor_entity;
        event->data_byte1 = instance;
        QF::publish_(event, "void common_thermal_device_cpu_channel::send_CPU_presence_signal(bool)");
    }
    _present_signal_armed = !present;
    _absent_signal_armed = present;
    LOG::log(log_source, log_mask::processor, "common_thermal_device_cpu_channel::%s[%d][%d]\n",
             "send_CPU_presence_signal", get_instance(), present ? 1 : 0);
}
