#include "device/port_sensors.hpp"

#include <array>

#include "device/event_status.hpp"
#include "device/fpga_capabilities.hpp"
#include "foundation/log_masks.hpp"

using utils = common_thermal_utils;

// What opens a presence sensor's gate.
enum class stage_gate { none, ipmi_ready, dp_ready };

struct presence_sensor::row {
    const char* class_name;
    utils::tdev_type_t type;
    const char* port_name;
    stage_gate gate;
    bool logs_reads = false;
};

struct integer_temperature_sensor::row {
    const char* class_name;
    utils::tdev_type_t type;
    const char* word;
    const char* port_name;
    utils::tdev_type_t presence;
    float divisor;
    enum class trace { none, success, reading } log;
};

struct regulator_temperature_sensor::row {
    const char* class_name;
    utils::tdev_type_t type;
    const char* port_name;
    bool keeps_last_value;
    bool logs_reads = false;
};

namespace {

using presence_row = presence_sensor::row;
using temperature_row = integer_temperature_sensor::row;
using regulator_row = regulator_temperature_sensor::row;
using trace = temperature_row::trace;

// clang-format off
constexpr presence_row pch_presence{"common_thermal_device_pch_presence", utils::tdev_pch_presence, "PORT_PCH_PRESENCE", stage_gate::ipmi_ready};
constexpr presence_row psu_presence{"common_thermal_device_psu_presence", utils::tdev_psu_presence, "PORT_PSU_PRESENCE", stage_gate::ipmi_ready, true};
constexpr presence_row nvidia_ubb_presence{"common_thermal_device_nvidia_ubb_presence", utils::tdev_nvidia_ubb_presence, "PORT_NVIDIA_UBB_PRESENCE", stage_gate::dp_ready};
constexpr presence_row retimer_presence{"common_thermal_device_retimer_presence", utils::tdev_retimer_presence, "PORT_RETIMER_PRESENCE", stage_gate::none};
constexpr presence_row raidcard_presence{"common_thermal_device_raidcard_presence", utils::tdev_raidcard_presence, "PORT_RAIDCARD_PRESENCE", stage_gate::none};

constexpr temperature_row pch_temperature{"common_thermal_device_pch_temperature", utils::tdev_pch_temperature, "temperature", "PORT_PCH_TEMPERATURE", utils::tdev_pch_presence, 1.0f, trace::success};
constexpr temperature_row psu_inlet{"common_thermal_device_psu_inlet", utils::tdev_psu_inlet, "inlet", "PORT_INLET", utils::tdev_psu_presence, 1.0f, trace::none};
constexpr temperature_row retimer_temp{"common_thermal_device_retimer_temp", utils::tdev_retimer_temp, "temperature", "PORT_RETIMER_TEMPERATURE", utils::tdev_retimer_presence, 1.0f, trace::reading};
constexpr temperature_row raidcard_temp{"common_thermal_device_raidcard_temp", utils::tdev_raidcard, "temperature", "PORT_RAIDCARD_TEMPERATURE", utils::tdev_raidcard_presence, 1.0f, trace::reading};
constexpr temperature_row raidcard_battery{"common_thermal_device_raidcard_battery", utils::tdev_raidcard, "temperature", "PORT_RAIDCARD_TEMPERATURE", utils::tdev_raidcard_presence, 1.0f, trace::reading};
constexpr temperature_row nvswitch_temperature{"common_thermal_device_nvswitch_temperature", utils::tdev_nvswitch_temperature, "temperature", "PORT_NVSWITCH_TEMPERATURE", utils::tdev_nvidia_ubb_presence, 1000.0f, trace::success};

constexpr regulator_row cpuvr{"common_thermal_device_cpuvr", utils::tdev_cpuvr, "PORT_CPUVR", true};
constexpr regulator_row dimmvr{"common_thermal_device_dimmvr", utils::tdev_dimmvr, "PORT_DIMMVR", false};
constexpr regulator_row powervr{"common_thermal_device_powervr", utils::tdev_powervr, "PORT_POWERVR", false, true};
// clang-format on

}  // namespace

presence_sensor::presence_sensor(const row& kind, int instance)
    : common_thermal_device(kind.class_name, kind.class_name, instance, kind.type),
      _row(kind),
      _values(kind.class_name, instance, {{"presence"}}),
      _port(*this, device_port::kind::bit, kind.port_name) {}

void presence_sensor::poll(common_thermal_dao* dao, unsigned long) {
    const auto stage = _row.gate == stage_gate::dp_ready ? utils::dp_ready : utils::ipmi_ready;
    const bool open = _row.gate == stage_gate::none ||
                      any_depend<common_thermal_device_event_status>(
                          utils::tdev_event_status, [stage](const common_thermal_device_event_status& status) {
                              return status.get_stage(stage);
                          });
    float present = 0.0f;
    if (open && _port.is_bound()) {
        std::uint8_t bit = 0;
        if (_row.logs_reads) {
            LOG::log(log_source, log_mask::life_cycle, "common_thermal_device_psu_presence::%s(%d) \n", "poll",
                     get_instance());
        }
        const bool read = _port.read_port_bit(&bit);
        if (read && _row.logs_reads) {
            LOG::log(log_source, log_mask::life_cycle, "common_thermal_device_psu_presence::%s(%d) - %x\n", "poll",
                     get_instance(), static_cast<unsigned>(bit));
        }
        present = read && bit != 0 ? 1.0f : 0.0f;
    }
    _values[0] = present;
    _values.publish(dao, common_thermal_dao::spike_none);
}

integer_temperature_sensor::integer_temperature_sensor(const row& kind, int instance)
    : common_thermal_device(kind.class_name, kind.class_name, instance, kind.type),
      _row(kind),
      _values(kind.class_name, instance, {{kind.word}}),
      _port(*this, device_port::kind::integer, kind.port_name) {}

void integer_temperature_sensor::poll(common_thermal_dao* dao, unsigned long) {
    std::uint32_t reading = 0;
    bool read = false;
    for_each_depend<presence_sensor>(_row.presence, [&](const presence_sensor& component) {
        if (component.is_presence() && _port.is_bound()) {
            read = _port.read_port_integer(&reading) || read;
        }
    });
    _values[0] = read ? static_cast<float>(reading) / _row.divisor : 0.0f;
    if (_row.log == row::trace::success) {
        LOG::log(log_source, log_mask::bus, "%s::%s - succ(%d)\n", _row.class_name, "poll", read ? 1 : 0);
    } else if (_row.log == row::trace::reading) {
        LOG::log(log_source, log_mask::bus, "%s::%s - val(%d), val_temperature(%f), succ(%d)\n", _row.class_name,
                 "poll", static_cast<int>(reading), static_cast<double>(_values[0]), read ? 1 : 0);
    }
    _values.publish(dao, common_thermal_dao::spike_going_high);
}

regulator_temperature_sensor::regulator_temperature_sensor(const row& kind, int instance)
    : common_thermal_device(kind.class_name, kind.class_name, instance, kind.type),
      _row(kind),
      _values(kind.class_name, instance, {{"temperature"}}),
      _port(*this, device_port::kind::block, kind.port_name) {}

void regulator_temperature_sensor::poll(common_thermal_dao* dao, unsigned long) {
    std::array<std::uint8_t, 16> block{};
    std::uint32_t got = 0;
    bool read = false;
    for_each_depend<common_thermal_device_fpga_capabilities>(
        utils::tdev_fpga_capabilities, [&](const common_thermal_device_fpga_capabilities& fpga) {
            if (fpga.is_adi_support() && _port.is_bound()) {
                block.fill(0);
                _port.seek_port_block(0);
                read = _port.read_port_block(block.data(), &got, block.size()) || read;
            }
        });
    if (read) {
        _values[0] = utils::convert_fpga_ambient_raw_data_to_temp(block.data(), _adi_offset);
    } else if (!_row.keeps_last_value) {
        _values[0] = 0.0f;
    }
    if (_row.logs_reads) {
        LOG::log(log_source, log_mask::bus, "common_thermal_device_powervr::%s - len(%d), ret_len(%d), succ(%d)\n",
                 "poll", static_cast<int>(block.size()), static_cast<int>(got), read ? 1 : 0);
    }
    _values.publish(dao, common_thermal_dao::spike_going_high);
}

#define THERMAL_PORT_SENSOR(base, name) \
    common_thermal_device_##name::common_thermal_device_##name(int instance) : base(name, instance) {}

THERMAL_PORT_SENSOR(presence_sensor, pch_presence)
THERMAL_PORT_SENSOR(presence_sensor, psu_presence)
THERMAL_PORT_SENSOR(presence_sensor, nvidia_ubb_presence)
THERMAL_PORT_SENSOR(presence_sensor, retimer_presence)
THERMAL_PORT_SENSOR(presence_sensor, raidcard_presence)
THERMAL_PORT_SENSOR(integer_temperature_sensor, pch_temperature)
THERMAL_PORT_SENSOR(integer_temperature_sensor, psu_inlet)
THERMAL_PORT_SENSOR(integer_temperature_sensor, retimer_temp)
THERMAL_PORT_SENSOR(integer_temperature_sensor, raidcard_temp)
THERMAL_PORT_SENSOR(integer_temperature_sensor, raidcard_battery)
THERMAL_PORT_SENSOR(integer_temperature_sensor, nvswitch_temperature)
THERMAL_PORT_SENSOR(regulator_temperature_sensor, cpuvr)
THERMAL_PORT_SENSOR(regulator_temperature_sensor, dimmvr)
THERMAL_PORT_SENSOR(regulator_temperature_sensor, powervr)
