#include "device/dummy.hpp"

namespace {
constexpr const char* class_name = "common_thermal_device_dummy";
}  // namespace

common_thermal_device_dummy::common_thermal_device_dummy(int instance)
    : common_thermal_device(class_name, class_name, instance, common_thermal_utils::tdev_dummy),
      _values(class_name, instance, {{"dummy"}}) {}

void common_thermal_device_dummy::poll(common_thermal_dao* dao, unsigned long) {
    _values.publish(dao, common_thermal_dao::spike_none);
}
