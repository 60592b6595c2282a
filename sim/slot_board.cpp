#include "sim/slot_board.hpp"

#include "sim/server_slots.hpp"

namespace sim {

// clang-format off
slot_board::slot_board(unsigned number)
    : _number(number),
      _slot(static_cast<int>(number)), _list(_slot.get_instance()), _presence(_slot.get_instance()),
      _brake(_slot.get_instance()),
      _mailbox(_slot.get_instance()), _capability(_slot.get_instance()), _die(_slot.get_instance()),
      _memory(_slot.get_instance()), _headroom(_slot.get_instance()), _power(_slot.get_instance()),
      _limit(_slot.get_instance()),
      _other(_slot.get_instance()), _other_die(_slot.get_instance()), _other_memory(_slot.get_instance()),
      _other_power(_slot.get_instance()),
      _drive(_slot.get_instance()), _drive_temperature(_slot.get_instance()),
      _network(_slot.get_instance()), _network_temperature(_slot.get_instance()),
      _managed(_slot.get_instance()), _managed_temperature(_slot.get_instance()),
      _module(_slot.get_instance()), _module_temperature(_slot.get_instance()) {}
// clang-format on

void slot_board::link(common_thermal_device& request, common_thermal_device& agent) {
    request.add_depend(&_list);
    request.add_depend(&agent);
    request.add_depend(&_slot);
}

void slot_board::link_mailbox() {
    _mailbox.set_num(_number, 1);
    _capability.add_depend(&_list);
    _capability.add_depend(&_mailbox);
    for (common_thermal_device* reader :
         std::initializer_list<common_thermal_device*>{&_die, &_memory, &_headroom, &_power, &_limit}) {
        reader->add_depend(&_capability);
        link(*reader, _mailbox);
    }
}

void slot_board::add_to(common_thermal_manager& manager, common_thermal_device_event_status& stages,
                        common_thermal_device_uefi& inventory) {
    _slot.set_num(slot_location, _number);
    // By number: a pin bound by key would never fall again.
    _presence.set_port_input(slot_present_bits + _number);
    _brake.set_port_input(slot_brake_bits + _number);
    for (common_thermal_device* source :
         std::initializer_list<common_thermal_device*>{&inventory, &_list, &_presence, &_brake}) {
        _slot.add_depend(source);
    }
    _list.add_depend(&stages);

    const unsigned bus = slot_bus_blocks + _number;
    _mailbox.set_port_input(bus);
    _other.set_port_input(bus);
    _drive.set_port_input(bus);
    _network.set_port_input(bus);
    _managed.set_num(manager_bus_of(_number), manager_device);
    _module.set_num(_number, _number);
    link_mailbox();
    for (common_thermal_device* reader :
         std::initializer_list<common_thermal_device*>{&_other_die, &_other_memory, &_other_power}) {
        link(*reader, _other);
    }
    link(_drive_temperature, _drive);
    link(_network_temperature, _network);
    link(_managed_temperature, _managed);
    link(_module_temperature, _module);

    for (common_thermal_device* device : std::initializer_list<common_thermal_device*>{&_presence,
                                                                                       &_slot,
                                                                                       &_list,
                                                                                       &_brake,
                                                                                       &_mailbox,
                                                                                       &_capability,
                                                                                       &_die,
                                                                                       &_memory,
                                                                                       &_headroom,
                                                                                       &_power,
                                                                                       &_limit,
                                                                                       &_other,
                                                                                       &_other_die,
                                                                                       &_other_memory,
                                                                                       &_other_power,
                                                                                       &_drive,
                                                                                       &_drive_temperature,
                                                                                       &_network,
                                                                                       &_network_temperature,
                                                                                       &_managed,
                                                                                       &_managed_temperature,
                                                                                       &_module,
                                                                                       &_module_temperature}) {
        manager.add_thermal_device(device);
    }
}

}  // namespace sim
