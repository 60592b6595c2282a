#include "device/cpu/cpu_power.hpp"

#include <cmath>

#include "device/cpu/channel_walk.hpp"
#include "device/cpu/cpu_info.hpp"
#include "foundation/float_conversion.hpp"
#include "foundation/log_masks.hpp"

namespace {

constexpr const char* class_name = "common_thermal_device_cpu_power";
enum word : std::size_t { average_power, average_power_ratio, average_power_avg_ratio };

// Stands in where the board links nobody who knows the TDP: keeps the share small.
constexpr float tdp_nobody_knows = 999.0f;

}  // namespace

common_thermal_device_cpu_power::common_thermal_device_cpu_power(int instance)
    : common_thermal_device(class_name, class_name, instance, common_thermal_utils::tdev_cpu_power),
      _values(class_name, instance, {{"average_power"}, {"average_power_ratio"}, {"average_power_avg_ratio"}}) {}

float common_thermal_device_cpu_power::tdp_power() const {
    float tdp = tdp_nobody_knows;
    for_each_depend<common_thermal_device_cpu_info>(common_thermal_utils::tdev_cpu_info,
                                                    [&tdp](const auto& processor) { tdp = processor.get_tdp_power(); });
    return tdp;
}

std::optional<float> common_thermal_device_cpu_power::read_power() const {
    const auto [processor, address, active] = last_cpu_connection(*this);
    if (!active || processor->read_average_power(address) == 0) {
        return {};
    }
    const float power = processor->get_average_power();
    return std::isfinite(power) ? std::optional(power) : std::nullopt;
}

void common_thermal_device_cpu_power::poll(common_thermal_dao* dao, unsigned long) {
    const std::optional<float> power = read_power();
    const float tdp = tdp_power();
    _values[average_power] = power.value_or(0.0f);
    _values[average_power_ratio] = 0.0f;
    if (power && tdp > 0.0f) {
        _values[average_power_ratio] = *power / tdp;
        _average.add(_values[average_power_ratio], _values[average_power_avg_ratio]);
    }
    LOG::log(log_source, log_mask::bus, "common_thermal_device_cpu_power::%s - val(%f), val_avg(%f), avg_cnt(%d)\n",
             "poll", shown(_values[average_power_ratio]), shown(_average.value), _average.count);
    _values.publish(dao, common_thermal_dao::spike_going_high);
}
