#include "device/pci/slot_pins.hpp"

#include "foundation/log_masks.hpp"

using utils = common_thermal_utils;

namespace {

constexpr presence_sensor::row presence_row{
    {"common_thermal_device_pci_slot_presence", utils::tdev_pci_slot_presence, "presence", "PORT_PCI_SLOT_PRESENCE"},
    presence_sensor::gate::none,
    false,
    common_thermal_dao::spike_none,
    nullptr,
    true};

constexpr const char* stop_class = "common_thermal_device_pci_slot_stop_polling";

enum stop_word : std::size_t { stop_polling, start_polling };

}  // namespace

common_thermal_device_pci_slot_presence::common_thermal_device_pci_slot_presence(int instance)
    : presence_sensor(presence_row, instance) {}

common_thermal_device_pci_slot_stop_polling::common_thermal_device_pci_slot_stop_polling(int instance)
    : common_thermal_device(stop_class, stop_class, instance, utils::tdev_pci_slot_stop_polling),
      _values(stop_class, instance, {{"stop_polling"}, {"start_polling"}}),
      _port(*this, device_port::kind::bit, "PORT_PCI_SLOT_START_POLLING") {}

bool common_thermal_device_pci_slot_stop_polling::is_stop() const { return _values[stop_polling] > 0.0f; }

void common_thermal_device_pci_slot_stop_polling::poll(common_thermal_dao* dao, unsigned long) {
    std::uint8_t bit = 0;
    bool read = false;
    if (_port.is_bound()) {
        read = _port.read_port_bit(&bit);
        LOG::log(log_source, log_mask::outcome,
                 "common_thermal_device_pci_slot_stop_polling::%s - isbound(%d), read(%d), val(%d)\n", "poll", 1,
                 read ? 1 : 0, +bit);
    }
    const bool start = read && bit != 0;
    _values[stop_polling] = start ? 0.0f : 1.0f;
    _values[start_polling] = start ? 1.0f : 0.0f;
    _values.publish(dao, common_thermal_dao::spike_none);
}
