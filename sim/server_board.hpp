#pragma once

#include <deque>

#include "device/airflow.hpp"
#include "device/ambient.hpp"
#include "device/cpu/cpu_agent.hpp"
#include "device/cpu/cpu_channel.hpp"
#include "device/cpu/cpu_info.hpp"
#include "device/cpu/cpu_power.hpp"
#include "device/cpu/cpu_temperature.hpp"
#include "device/cpu/cpu_throttle.hpp"
#include "device/cpu/dimm.hpp"
#include "device/cpu/fpga_cpu.hpp"
#include "device/dummy.hpp"
#include "device/event_status.hpp"
#include "device/exhaust_temperature.hpp"
#include "device/fan/fan.hpp"
#include "device/fan/fan_control.hpp"
#include "device/fan/fan_pwm.hpp"
#include "device/fan/fan_tach.hpp"
#include "device/fan/fpga_fan_info.hpp"
#include "device/fpga_capabilities.hpp"
#include "device/generic_temperature.hpp"
#include "device/platform_info.hpp"
#include "device/port_sensors.hpp"
#include "device/storage/backplane.hpp"
#include "device/storage/booted_drive_temperature.hpp"
#include "device/storage/disk_drive.hpp"
#include "device/storage/m2.hpp"
#include "device/storage/nvme_temperature.hpp"
#include "device/uefi.hpp"
#include "orchestration/common_thermal_manager.hpp"
#include "sensor_map/ipmi_sdr_map.hpp"
#include "sim/server_parts.hpp"
#include "sim/slot_board.hpp"

namespace sim {

// The board code of the simulated server, and an example of what board code does: construct devices with their
// instance numbers, bind their ports, link those that read each other, and hand all of them to the manager.
class server_board {
public:
    // The manager's scheduler and store are set; board and manager live equally long.
    server_board(common_thermal_manager& manager, const machine_plan& plan);
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
    struct power_supply {
        explicit power_supply(int number)
            : presence(number),
              inlet(number),
              fan(static_cast<int>(first_psu_fan) + number - 1),
              tach(number),
              pwm(number) {}

        common_thermal_device_psu_presence presence;
        common_thermal_device_psu_inlet inlet;
        common_thermal_device_fan fan;
        common_thermal_device_fan_tach_psu tach;
        common_thermal_device_fan_pwm_psu pwm;
    };
    struct socket {
        explicit socket(int number)
            : registers(number),
              presence(number),
              disabled(number),
              agent(number),
              channel(number),
              info(number),
              temperature(number),
              power(number),
              throttle(number),
              cpu_vr(number),
              dimm_vr(number) {}

        common_thermal_device_fpga_one_cpu_info registers;
        common_thermal_device_cpu_presence presence;
        common_thermal_device_cpu_disabled disabled;
        common_thermal_device_cpu_agent_intel agent;
        common_thermal_device_cpu_channel channel;
        common_thermal_device_cpu_info info;
        common_thermal_device_cpu_temperature temperature;
        common_thermal_device_cpu_power power;
        common_thermal_device_cpu_throttle throttle;
        common_thermal_device_cpuvr cpu_vr;
        common_thermal_device_dimmvr dimm_vr;
    };
    struct memory_module {
        explicit memory_module(int number) : presence(number), temperature(number), info(number) {}

        common_thermal_device_dimm_presence presence;
        common_thermal_device_dimm_temperature temperature;
        common_thermal_device_dimm_info info;
    };
    struct drive_bay {
        explicit drive_bay(int number) : presence(number), info(number) {}

        common_thermal_device_disk_drive_presence presence;
        common_thermal_device_disk_drive_info info;
    };
    struct m2_drive {
        explicit m2_drive(int number) : presence(number), temperature(number) {}

        common_thermal_device_m2_drive_presence presence;
        common_thermal_device_m2_drive_temperature temperature;
    };

    void add(common_thermal_device& device) { _manager.add_thermal_device(&device); }
    void add_platform();
    void add_processors();
    void add_processor(socket& parts);
    void add_memory();
    void add_drives();
    void add_main_zone();
    void add_air();
    void add_power_zone();
    void add_storage_zone();
    void add_slots(std::size_t count);
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
    void add_fpga_record(Sensor& sensor, unsigned block, int offset) {
        sensor.set_port_input(block);
        sensor.set_adi_offset(offset);
        sensor.add_depend(&_fpga);
        add(sensor);
    }
    void add_chip(common_thermal_device_generic_temperature& sensor, unsigned port, temperature_chip chip);

    common_thermal_manager& _manager;

    common_thermal_device_event_status _stages{1};
    common_thermal_device_uefi _uefi{1};
    common_thermal_device_fpga_capabilities _fpga{1};
    common_thermal_device_platform_info _platform{1};
    common_thermal_device_dummy _constant{1};

    common_thermal_device_ambient _ambient{1};
    common_thermal_device_pch_presence _pch_presence{1};
    common_thermal_device_pch_temperature _pch{1};
    common_thermal_device_retimer_presence _retimer_presence{1};
    common_thermal_device_retimer_temp _retimer{1};
    common_thermal_device_generic_temperature _adapter{1};
    common_thermal_device_nvidia_ubb_presence _baseboard_presence{1};
    common_thermal_device_nvswitch_temperature _switch{1};

    common_thermal_device_airflow _airflow{1};
    common_thermal_device_exhaust_temperature _exhaust{1};

    std::deque<socket> _sockets;
    std::deque<common_thermal_device_dimm_channel> _memory_channels;
    std::deque<memory_module> _modules;

    common_thermal_device_disk_drive_backplane_presence _backplane_presence{1};
    common_thermal_device_disk_drive_backplane_info _backplane{1};
    common_thermal_device_disk_drive_quantity _drive_count{1};
    common_thermal_device_disk_drive_quantity_mask_30 _drive_mask{1};
    std::deque<drive_bay> _bays;
    std::deque<common_thermal_device_disk_drive_temp> _sata;
    std::deque<common_thermal_device_nvme_temperature> _nvme;

    std::deque<power_supply> _supplies;
    common_thermal_device_powervr _power_vr{1};

    common_thermal_device_raidcard_presence _raid_presence{1};
    common_thermal_device_raidcard_temp _raid{1};
    common_thermal_device_raidcard_battery _battery{1};
    common_thermal_device_generic_temperature _storage{2};
    common_thermal_device_m2_ambient_presence _m2_air_presence{1};
    common_thermal_device_m2_ambient _m2_air{1};
    std::deque<m2_drive> _m2;
    common_thermal_device_m2_composite _m2_composite{1};
    common_thermal_device_booted_drive_temperature _boot_drive{1};

    std::deque<slot_board> _slots;

    common_thermal_device_fpga_fan_info _fan_info{1};
    std::deque<fpga_fan> _fpga_fans;
    common_thermal_device_fan _storage_fan{static_cast<int>(storage_fan)};
    common_thermal_device_fanmax_tach _storage_tach{1};
    common_thermal_device_fanmax_pwm _storage_pwm{1};
    common_thermal_device_fan_control _fan_control{1};
    common_thermal_device_ipmi_sdr_map _sensors{1};
    std::vector<common_thermal_device_fan*> _fans;  // by number - 1
};

}  // namespace sim
