#include "device/ambient.hpp"

#include "device/fpga_capabilities.hpp"
#include "foundation/float_conversion.hpp"
#include "foundation/log_masks.hpp"

using utils = common_thermal_utils;

namespace {
constexpr const char* class_name = "common_thermal_device_ambient";
enum word : std::size_t { temperature, avg_temperature };
}  // namespace

common_thermal_device_ambient::common_thermal_device_ambient(int instance)
    : common_thermal_device(class_name, class_name, instance, utils::tdev_ambient),
      _values(class_name, instance, {{"temperature"}, {"avg_temperature"}}),
      _port(*this, device_port::kind::block, "PORT_AMB") {}

void common_thermal_device_ambient::get_temperature(float* destination) const { *destination = _values[temperature]; }

void common_thermal_device_ambient::poll(common_thermal_dao* dao, unsigned long) {
    float value = utils::invalid_temperature;
    for_each_depend<common_thermal_device_fpga_capabilities>(
        utils::tdev_fpga_capabilities, [&](const common_thermal_device_fpga_capabilities& fpga) {
            std::uint32_t got = 0;
            const auto block = fpga.is_adi_support() ? _port.read_record(got) : std::nullopt;
            if (block) {
                value = utils::convert_fpga_ambient_raw_data_to_temp(block->data(), _adi_offset);
            }
        });
    _polled = true;
    _values[temperature] = value;
    if (value != utils::invalid_temperature) {
        _average.add(value, _values[avg_temperature]);
    }
    LOG::log(log_source, log_mask::bus, "common_thermal_device_ambient::%s - val(%f), val_avg(%f), avg_cnt(%d)\n",
             "poll", shown(value), shown(_average.value), _average.count);
    _values.publish(dao, common_thermal_dao::spike_going_high);
}
