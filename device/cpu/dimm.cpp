#include "device/cpu/dimm.hpp"

#include "foundation/float_conversion.hpp"
#include "foundation/log_masks.hpp"
#include "platform/host_cpu.hpp"

using utils = common_thermal_utils;

namespace {

constexpr const char* channel_class = "common_thermal_device_dimm_channel";
constexpr const char* temperature_class = "common_thermal_device_dimm_temperature";
constexpr const char* info_class = "common_thermal_device_dimm_info";

enum channel_word : std::size_t { channel, active, index_size };
enum temperature_word : std::size_t { temperature, channel_index };
enum info_word : std::size_t { type, capacity };

constexpr presence_sensor::row presence_row{
    {"common_thermal_device_dimm_presence", utils::tdev_dimm_presence, "presence", "PORT_DIMM_PRESENCE"},
    presence_sensor::gate::none,
    false,
    common_thermal_dao::spike_going_high};

bool is_present(const presence_sensor& module) { return module.is_presence(); }

}  // namespace

common_thermal_device_dimm_presence::common_thermal_device_dimm_presence(int instance)
    : presence_sensor(presence_row, instance) {}

common_thermal_device_dimm_channel::common_thermal_device_dimm_channel(int instance)
    : common_thermal_device(channel_class, channel_class, instance, utils::tdev_dimm_channel),
      _values(channel_class, instance, {{"channel"}, {"active"}, {"index_size"}}) {}

bool common_thermal_device_dimm_channel::is_actived() const { return _values[active] >= 1.0f; }

float common_thermal_device_dimm_channel::get_temperature_by_index(unsigned place) const {
    return place == 0 || place > _temperatures.size() ? no_such_module : _temperatures[place - 1];
}

bool common_thermal_device_dimm_channel::look_for_modules() {
    bool any_present = false;
    _places = 0;
    for_each_depend<presence_sensor>(utils::tdev_dimm_presence, [&](const presence_sensor& module) {
        any_present = is_present(module) || any_present;
        ++_places;
    });
    if (_places > _temperatures.size()) {
        _temperatures.resize(_places, 0.0f);
    }
    return any_present;
}

void common_thermal_device_dimm_channel::read_modules(const cpu_connection& processor) {
    const std::uint8_t number = saturate_to_byte(_values[channel]);
    const auto count = static_cast<std::uint8_t>(_places);
    LOG::log(log_source, log_mask::memory, "common_thermal_device_dimm_channel::poll() read: 0x%02x-%d@%d\n",
             processor.address, number, count);
    if (processor.channel->read_all_dimms_temp(processor.address, number, count) == 0) {
        return;
    }
    std::uint8_t index = 0;
    for_each_depend<presence_sensor>(utils::tdev_dimm_presence, [&](const presence_sensor& module) {
        if (is_present(module)) {
            _temperatures[index] = static_cast<float>(processor.channel->get_dimm_temp(number, index));
            LOG::log(log_source, log_mask::memory,
                     "common_thermal_device_dimm_channel::poll() show: 0x%02x-%d-%d=%3.2f\n", processor.address, number,
                     index, shown(_temperatures[index]));
        }
        ++index;
    });
}

void common_thermal_device_dimm_channel::poll(common_thermal_dao* dao, unsigned long) {
    const cpu_connection processor = last_cpu_connection(*this);
    const bool is_read = look_for_modules() && processor.active;
    if (is_read) {
        read_modules(processor);
    }
    _values[index_size] = static_cast<float>(_places);
    _values[active] = is_read ? 1.0f : 0.0f;
    _values.publish(dao, common_thermal_dao::spike_going_high);
}

common_thermal_device_dimm_temperature::common_thermal_device_dimm_temperature(int instance)
    : common_thermal_device(temperature_class, temperature_class, instance, utils::tdev_dimm_temperature),
      _values(temperature_class, instance, {{"temperature"}, {"channel_index"}}) {}

void common_thermal_device_dimm_temperature::poll(common_thermal_dao* dao, unsigned long) {
    float degrees = 0.0f;
    for_each_depend<common_thermal_device_dimm_channel>(utils::tdev_dimm_channel,
                                                        [&](const common_thermal_device_dimm_channel& owner) {
                                                            if (owner.is_actived()) {
                                                                degrees = owner.get_temperature_by_index(_place);
                                                            }
                                                        });
    _values[temperature] = degrees;
    _values[channel_index] = static_cast<float>(_place);
    _values.publish(dao, common_thermal_dao::spike_going_high);
}

common_thermal_device_dimm_info::common_thermal_device_dimm_info(int instance)
    : common_thermal_device(info_class, info_class, instance, utils::tdev_dimm_info),
      _values(info_class, instance, {{"type"}, {"capacity"}}),
      _spd(dynamic_cast<const dimm_spd_logical_device*>(
          DM::find_logical_device_instance(dimm_spd_logical_device::path))) {}

void common_thermal_device_dimm_info::poll(common_thermal_dao* dao, unsigned long) {
    const int number = get_instance();
    std::uint32_t module_type = 0;
    std::uint32_t module_size = 0;
    if (_spd != nullptr && number > 0 && any_depend<presence_sensor>(utils::tdev_dimm_presence, is_present)) {
        const auto index = static_cast<unsigned>(number - 1);
        LOG::log(log_source, log_mask::memory, "common_thermal_device_dimm_info::poll() %d@%d\n", number,
                 static_cast<int>(index));
        module_size = _spd->get_dimm_size(index);
        module_type = _spd->get_dimm_type_detail(index);
    }
    _values[type] = static_cast<float>(module_type);
    _values[capacity] = static_cast<float>(module_size);
    _values.publish(dao, common_thermal_dao::spike_going_high);
}
