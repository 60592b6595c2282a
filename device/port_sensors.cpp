#include "device/port_sensors.hpp"

#include <optional>

#include "device/event_status.hpp"
#include "device/fpga_capabilities.hpp"
#include "foundation/float_conversion.hpp"
#include "foundation/log_masks.hpp"

using utils = common_thermal_utils;

namespace {

using gate = presence_sensor::gate;

// What a poll leaves in the log.
enum class trace { none, success, reading };

}  // namespace

struct integer_temperature_sensor::row {
    identity sensor;
    utils::tdev_type_t presence;
    float divisor;
    trace log;
};

struct regulator_temperature_sensor::row {
    identity sensor;
    bool keeps_last_value;
    bool logs_reads;
};

namespace {

using presence = presence_sensor::row;
using temperature = integer_temperature_sensor::row;
using regulator = regulator_temperature_sensor::row;

constexpr presence pch_presence{
    {"common_thermal_device_pch_presence", utils::tdev_pch_presence, "presence", "PORT_PCH_PRESENCE"},
    gate::ipmi_ready,
    false};
constexpr presence psu_presence{
    {"common_thermal_device_psu_presence", utils::tdev_psu_presence, "presence", "PORT_PSU_PRESENCE"},
    gate::ipmi_ready,
    true};
constexpr presence nvidia_ubb_presence{{"common_thermal_device_nvidia_ubb_presence", utils::tdev_nvidia_ubb_presence,
                                        "presence", "PORT_NVIDIA_UBB_PRESENCE"},
                                       gate::dp_ready,
                                       false};
constexpr presence retimer_presence{
    {"common_thermal_device_retimer_presence", utils::tdev_retimer_presence, "presence", "PORT_RETIMER_PRESENCE"},
    gate::none,
    false};
constexpr presence raidcard_presence{
    {"common_thermal_device_raidcard_presence", utils::tdev_raidcard_presence, "presence", "PORT_RAIDCARD_PRESENCE"},
    gate::none,
    false};

constexpr temperature pch_temperature{
    {"common_thermal_device_pch_temperature", utils::tdev_pch_temperature, "temperature", "PORT_PCH_TEMPERATURE"},
    utils::tdev_pch_presence,
    1.0f,
    trace::success};
constexpr temperature psu_inlet{{"common_thermal_device_psu_inlet", utils::tdev_psu_inlet, "inlet", "PORT_INLET"},
                                utils::tdev_psu_presence,
                                1.0f,
                                trace::none};
constexpr temperature retimer_temp{
    {"common_thermal_device_retimer_temp", utils::tdev_retimer_temp, "temperature", "PORT_RETIMER_TEMPERATURE"},
    utils::tdev_retimer_presence,
    1.0f,
    trace::reading};
constexpr temperature raidcard_temp{
    {"common_thermal_device_raidcard_temp", utils::tdev_raidcard, "temperature", "PORT_RAIDCARD_TEMPERATURE"},
    utils::tdev_raidcard_presence,
    1.0f,
    trace::reading};
constexpr temperature raidcard_battery{
    {"common_thermal_device_raidcard_battery", utils::tdev_raidcard, "temperature", "PORT_RAIDCARD_TEMPERATURE"},
    utils::tdev_raidcard_presence,
    1.0f,
    trace::reading};
constexpr temperature nvswitch_temperature{
    {"common_thermal_device_nvswitch_temperature", utils::tdev_nvswitch_temperature, "temperature",
     "PORT_NVSWITCH_TEMPERATURE"},
    utils::tdev_nvidia_ubb_presence,
    1000.0f,
    trace::success};

constexpr regulator cpuvr{{"common_thermal_device_cpuvr", utils::tdev_cpuvr, "temperature", "PORT_CPUVR"}, true, false};
constexpr regulator dimmvr{
    {"common_thermal_device_dimmvr", utils::tdev_dimmvr, "temperature", "PORT_DIMMVR"}, false, false};
constexpr regulator powervr{
    {"common_thermal_device_powervr", utils::tdev_powervr, "temperature", "PORT_POWERVR"}, false, true};

}  // namespace

port_sensor::port_sensor(const identity& sensor, device_port::kind port_kind, int instance)
    : common_thermal_device(sensor.class_name, sensor.class_name, instance, sensor.type),
      _values(sensor.class_name, instance, {{sensor.word}}),
      _port(*this, port_kind, sensor.port_name) {}

presence_sensor::presence_sensor(const row& kind, int instance)
    : port_sensor(kind.sensor, device_port::kind::bit, instance), _row(kind) {}

void presence_sensor::poll(common_thermal_dao* dao, unsigned long) {
    const auto stage = _row.opened_by == gate::dp_ready ? utils::dp_ready : utils::ipmi_ready;
    const auto has_stage = [stage](const common_thermal_device_event_status& status) {
        return status.get_stage(stage);
    };
    const bool open = _row.opened_by == gate::none ||
                      any_depend<common_thermal_device_event_status>(utils::tdev_event_status, has_stage);
    const bool bound = open && _port.is_bound();
    std::uint8_t bit = 0;
    const bool read = bound && read_bit(bit);
    if (read || !_row.keeps_last_value) {
        _values[0] = read && bit != 0 ? 1.0f : 0.0f;
    }
    if (_row.outcome_name != nullptr) {
        LOG::log(log_source, log_mask::outcome, "%s::%s - isbound(%d), read(%d), val(%d)\n", _row.outcome_name, "poll",
                 bound ? 1 : 0, read ? 1 : 0, +bit);
    }
    _values.publish(dao, _row.spike);
}

bool presence_sensor::read_bit(std::uint8_t& bit) {
    if (_row.logs_reads) {
        LOG::log(log_source, log_mask::life_cycle, "%s::%s(%d) \n", get_name().c_str(), "poll", get_instance());
    }
    const bool read = _port.read_port_bit(&bit);
    if (read && _row.logs_reads) {
        LOG::log(log_source, log_mask::life_cycle, "%s::%s(%d) - %x\n", get_name().c_str(), "poll", get_instance(),
                 static_cast<unsigned>(bit));
    }
    return read;
}

integer_temperature_sensor::integer_temperature_sensor(const row& kind, int instance)
    : port_sensor(kind.sensor, device_port::kind::integer, instance), _row(kind) {}

void integer_temperature_sensor::poll(common_thermal_dao* dao, unsigned long) {
    std::uint32_t reading = 0;
    bool read = false;
    for_each_depend<presence_sensor>(_row.presence, [&](const presence_sensor& component) {
        if (component.is_presence() && _port.is_bound()) {
            read = _port.read_port_integer(&reading) || read;
        }
    });
    _values[0] = read ? static_cast<float>(reading) / _row.divisor : 0.0f;
    if (_row.log == trace::success) {
        LOG::log(log_source, log_mask::bus, "%s::%s - succ(%d)\n", get_name().c_str(), "poll", read ? 1 : 0);
    } else if (_row.log == trace::reading) {
        LOG::log(log_source, log_mask::bus, "%s::%s - val(%d), val_temperature(%f), succ(%d)\n", get_name().c_str(),
                 "poll", static_cast<int>(reading), shown(_values[0]), read ? 1 : 0);
    }
    _values.publish(dao, common_thermal_dao::spike_going_high);
}

regulator_temperature_sensor::regulator_temperature_sensor(const row& kind, int instance)
    : port_sensor(kind.sensor, device_port::kind::block, instance), _row(kind) {}

void regulator_temperature_sensor::poll(common_thermal_dao* dao, unsigned long) {
    std::optional<device_port::record> last_read;
    std::uint32_t got = 0;
    for_each_depend<common_thermal_device_fpga_capabilities>(
        utils::tdev_fpga_capabilities, [&](const common_thermal_device_fpga_capabilities& fpga) {
            const auto record = fpga.is_adi_support() ? _port.read_record(got) : std::nullopt;
            last_read = record ? record : last_read;
        });
    if (last_read) {
        _values[0] = utils::convert_fpga_ambient_raw_data_to_temp(last_read->data(), _adi_offset);
    } else if (!_row.keeps_last_value) {
        _values[0] = 0.0f;
    }
    if (_row.logs_reads) {
        LOG::log(log_source, log_mask::bus, "%s::%s - len(%d), ret_len(%d), succ(%d)\n", get_name().c_str(), "poll",
                 static_cast<int>(sizeof(device_port::record)), static_cast<int>(got), last_read ? 1 : 0);
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

#undef THERMAL_PORT_SENSOR
