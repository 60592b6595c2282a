#include "algorithm/capping/nvme_device.hpp"

#include "foundation/float_conversion.hpp"
#include "foundation/log_masks.hpp"

namespace {

using p = nvme_capping_parameter;

constexpr float no_level = 65535.0f;

constexpr parameter<p> fields[] = {
    {"\nx_key=", "PARAMETER_X_PREFIX", &p::x_reference, "PARAMETER_X_INST"},
    {"\nminimal_power_threshold=", "PARAMETER_MINIMAL_POWER_THRESHOLD", &p::minimal_power_threshold},
    {"\nmiddle_power_threshold=", "PARAMETER_MIDDLE_POWER_THRESHOLD", &p::middle_power_threshold},
    {"\nhysteresis=", "PARAMETER_HYSTERESIS", &p::hysteresis},
    {"\nr=", nullptr, &p::r},
};
constexpr parameter_layout<p> layout{.fields = fields, .closing = "\nr=capping level"};

}  // namespace

common_thermal_algorithm_sensor_capping_nvme_device::common_thermal_algorithm_sensor_capping_nvme_device(int instance)
    : algorithm_with_parameters(layout, "common_thermal_algorithm_sensor_capping_nvme_device", instance,
                                common_thermal_utils::talg_sensor_capping_nvme_device, action_capping_nvme) {}

std::uint16_t common_thermal_algorithm_sensor_capping_nvme_device::power_val_for_sepcomm(unsigned level) {
    switch (level) {
        case nvme_full_power:
            return 0;
        case nvme_middle_power:
            return 1;
        default:
            return 2;
    }
}

void common_thermal_algorithm_sensor_capping_nvme_device::poll(common_thermal_dao* dao, unsigned long) {
    set_result(no_level);
    for (auto& [number, entry] : records()) {
        if (const float* x = entry.x_reference.find(*dao)) {
            entry.r = nvme_capping_level(entry, *x, _history);
            if (entry.r != 0 && result() > static_cast<float>(entry.r)) {
                set_result(static_cast<float>(entry.r));
            }
        }
        if (LOG::is_enabled(log_mask::calculation)) {
            LOG::log(log_source, log_mask::calculation, "%s::%s - [r %u, result %3.2f]\n", get_name().c_str(),
                     get_key_custom_result().c_str(), entry.r, shown(result()));
        }
    }
}
