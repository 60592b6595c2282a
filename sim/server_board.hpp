#pragma once

#include <deque>

#include "device/ambient.hpp"
#include "device/dummy.hpp"
#include "device/event_status.hpp"
#include "device/fan/fan.hpp"
#include "device/fan/fan_control.hpp"
#include "device/fan/fan_pwm.hpp"
#include "device/fan/fan_tach.hpp"
#include "device/fan/fpga_fan_info.hpp"
#include "device/fpga_capabilities.hpp"
#include "device/generic_temperature.hpp"
#include "device/platform_info.hpp"
#include "device/port_sensors.hpp"
#include "device/uefi.hpp"
#include "orchestration/common_thermal_manager.hpp"
#include "sensor_map/ipmi_sdr_map.hpp"
#include "sim/server_parts.hpp"

namespace sim {

// The board code of the simulated server, and an example of what board code does: construct devices with their
// instance numbers, bind their ports, link those that read each other, and hand all of them to the manager.
class server_board {
public:
    // The manager's scheduler and store are set; board and manager live equally long.
    explicit server_board(common_thermal_manager& manager);
    server_board(const server_board&) = delete;
    server_board& operator=(const server_board&) = delete;

    // Gives the manager its line to vote on host power; the manager logs that as an error.
    void bind_power_vote() { _manager.set_power_permission_voter(power_permission_bit); }

    const common_thermal_device_fan& fan(unsigned number) const { return *_fans.at(number - 1); }

private:
    struct fpga_fan {
        explicit fpga_fan(int number) : fan(number), tach(number), pwm(number) {}

        common_thermal_device_fan fan;
        common_thermal_device_fan_tach_fpga tach;
        common_thermal_device_fan_pwm_fpga pwm;
    };

    void add(common_thermal_device& device) { _manager.add_thermal_device(&device); }
    void add_platform();
    void add_main_zone();
    void add_power_zone();
    void add_storage_zone();
    void add_sensors();
    void add_fan(common_thermal_device_fan& fan, common_thermal_device_fan_tach& tach,
                 common_thermal_device_fan_pwm& pwm);

    // A sensor that is read while its component is there.
    template <class Presence, class Sensor>
    void add_component(Presence& presence, unsigned presence_port, Sensor& sensor, unsigned sensor_port) {
        presence.set_port_input(presence_port);
        presence.add_depend(&_stages);
        add(presence);
        add_sensor_of(presence, sensor, sensor_port);
    }
    template <class Presence, class Sensor>
    void add_sensor_of(Presence& presence, Sensor& sensor, unsigned port) {
        sensor.set_port_input(port);
        sensor.add_depend(&presence);
        add(sensor);
    }
    template <class Sensor>
    void add_fpga_record(Sensor& sensor, int offset) {
        sensor.set_port_input(fpga_records());
        sensor.set_adi_offset(offset);
        sensor.add_depend(&_fpga);
        add(sensor);
    }
    static unsigned fpga_records();
    void add_chip(common_thermal_device_generic_temperature& sensor, unsigned port, temperature_chip chip);

    common_thermal_manager& _manager;

    common_thermal_device_event_status _stages{1};
    common_thermal_device_uefi _uefi{1};
    common_thermal_device_fpga_capabilities _fpga{1};
    common_thermal_device_platform_info _platform{1};
    common_thermal_device_dummy _constant{1};

    common_thermal_device_ambient _ambient{1};
    common_thermal_device_cpuvr _cpu_vr{1};
    common_thermal_device_dimmvr _dimm_vr{1};
    common_thermal_device_pch_presence _pch_presence{1};
    common_thermal_device_pch_temperature _pch{1};
    common_thermal_device_retimer_presence _retimer_presence{1};
    common_thermal_device_retimer_temp _retimer{1};
    common_thermal_device_generic_temperature _adapter{1};
    common_thermal_device_nvidia_ubb_presence _baseboard_presence{1};
    common_thermal_device_nvswitch_temperature _switch{1};

    common_thermal_device_psu_presence _psu_presence{1};
    common_thermal_device_psu_inlet _psu_inlet{1};
    common_thermal_device_powervr _power_vr{1};

    common_thermal_device_raidcard_presence _raid_presence{1};
    common_thermal_device_raidcard_temp _raid{1};
    common_thermal_device_raidcard_battery _battery{1};
    common_thermal_device_generic_temperature _storage{2};

    common_thermal_device_fpga_fan_info _fan_info{1};
    std::deque<fpga_fan> _fpga_fans;
    common_thermal_device_fan _psu_fan;
    common_thermal_device_fan_tach_psu _psu_tach{1};
    common_thermal_device_fan_pwm_psu _psu_pwm{1};
    common_thermal_device_fan _storage_fan;
    common_thermal_device_fanmax_tach _storage_tach{1};
    common_thermal_device_fanmax_pwm _storage_pwm{1};
    common_thermal_device_fan_control _fan_control{1};
    common_thermal_device_ipmi_sdr_map _sensors{1};
    std::vector<common_thermal_device_fan*> _fans;  // by number - 1
};

}  // namespace sim
