#include "device/event_status.hpp"

namespace {
constexpr const char* class_name = "common_thermal_device_event_status";
constexpr std::uint32_t stage_count = 6;
}  // namespace

common_thermal_device_event_status::common_thermal_device_event_status(int instance)
    : common_thermal_device(class_name, class_name, instance, common_thermal_utils::tdev_event_status),
      _values(class_name, instance,
              {{"ipmi_ready"}, {"post_init"}, {"post_completed"}, {"power_good"}, {"dp_ready"}, {"cpu_feh"}}) {}

bool common_thermal_device_event_status::get_stage(status_stage_t stage) const {
    return stage < stage_count && _values[stage] > 0.0f;
}

void common_thermal_device_event_status::set_stage(status_stage_t stage, bool value) {
    if (stage < stage_count) {
        _values[stage] = value ? 1.0f : 0.0f;
    }
}

void common_thermal_device_event_status::poll(common_thermal_dao* dao, unsigned long) {
    _values.publish(dao, common_thermal_dao::spike_none);
}
