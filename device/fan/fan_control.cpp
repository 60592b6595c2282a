#include "device/fan/fan_control.hpp"

#include <algorithm>

#include "device/fan/fan_bitmap.hpp"
#include "foundation/float_conversion.hpp"
#include "foundation/log_masks.hpp"

using utils = common_thermal_utils;

namespace {

constexpr const char* class_name = "common_thermal_device_fan_control";

// An FPGA area travels as two blocks; positions count in the port's own units.
constexpr std::uint32_t block_size = 64;
constexpr std::array<std::uint32_t, 2> block_positions{0, 4};

constexpr std::array<const char*, 2> active_fans_bitmaps{
    "/v2/zorm/dm/planar/active_fans_bitmap",
    "/v2/zorm/dm/planar/active_fans_bitmap2",
};

enum word : std::size_t { calibration_mode, max_pwm };

constexpr std::uint8_t raw_duty(std::uint8_t duty) {
    return saturate_to_byte(std::min(static_cast<float>(duty) * 2.55f + 0.5f, 255.0f));
}

void log_output(const char* place, int fan, std::uint8_t value) {
    LOG::log(log_source, log_mask::result, "common_thermal_device_fan_control::%s(%s)[%d,pwm=%f]\n", "poll", place, fan,
             static_cast<double>(value));
}

}  // namespace

common_thermal_device_fan_control::common_thermal_device_fan_control(int instance)
    : common_thermal_device(class_name, class_name, instance, utils::tdev_fan_control),
      _values(class_name, instance, {{"calibration_mode"}, {"max_pwm", 100.0f}}),
      _port(*this, device_port::kind::block, "PORT_FAN_CONTROL"),
      _fan_maximum(fan_maximum_name, instance) {}

bool common_thermal_device_fan_control::set_calibration_mode(bool on) {
    _values[calibration_mode] = on ? 1.0f : 0.0f;
    return true;
}

void common_thermal_device_fan_control::read_tach_from_fpga() {
    if (!_port.is_bound()) {
        return;
    }
    std::uint8_t* half = _tach_raw.data();
    for (const std::uint32_t position : block_positions) {
        std::array<std::uint8_t, block_size> block{};
        std::uint32_t got = 0;
        _port.seek_port_block(position);
        if (_port.read_port_block(block.data(), &got, block_size)) {
            std::copy_n(block.begin(), std::min(got, block_size), half);
        }
        half += block_size;
    }
}

void common_thermal_device_fan_control::write_pwm_to_fpga() {
    if (!_port.is_bound()) {
        return;
    }
    const std::uint8_t* half = _pwm_raw.data();
    for (const std::uint32_t position : block_positions) {
        _port.seek_port_block(position);
        _port.write_port_block(half, block_size);
        half += block_size;
    }
}

float common_thermal_device_fan_control::convert_fpga_fan_raw_data_to_tach_duty(std::uint8_t high, std::uint8_t low) {
    return static_cast<float>(high << 8 | low);
}

void common_thermal_device_fan_control::note_active_fan(active_fan_pair& active, unsigned fan, unsigned tach) {
    const fan_bit bit = fan_bit_of(fan);
    active_fans& fans = active[bit.bitmap];
    fans.seen |= bit.mask;
    fans.turning = tach != 0 ? fans.turning | bit.mask : fans.turning & ~bit.mask;
}

void common_thermal_device_fan_control::publish_active_fans(const active_fan_pair& active) {
    for (std::size_t i = 0; i < active.size(); ++i) {
        if (active[i].seen != 0) {
            std::uint32_t bits = 0;
            utils::get_ipmi_property(active_fans_bitmaps[i], bits);
            utils::set_ipmi_property(active_fans_bitmaps[i], (bits & ~active[i].seen) | active[i].turning);
        }
    }
}

void common_thermal_device_fan_control::populate_property_active_fans(unsigned fan, unsigned tach) {
    active_fan_pair active;
    note_active_fan(active, fan, tach);
    publish_active_fans(active);
}

// Nothing for a sensor that lies outside the area.
std::optional<float> common_thermal_device_fan_control::fpga_tach(common_thermal_device_fan_tach& sensor) const {
    const std::uint32_t offset = sensor.get_adi_offset();
    if (offset >= _tach_raw.size() - 1) {
        return {};
    }
    return convert_fpga_fan_raw_data_to_tach_duty(_tach_raw[offset], _tach_raw[offset + 1]);
}

void common_thermal_device_fan_control::read_tach(common_thermal_device_fan& fan,
                                                  common_thermal_device_fan_tach& sensor, active_fan_pair& active) {
    const fan_source source = sensor.get_source_type();
    const auto value = source == fan_source_fpga ? fpga_tach(sensor) : sensor.get_value_tach();
    if (!value) {
        return;
    }
    fan.set_value_tach(*value);
    if (source == fan_source_fpga || source == fan_source_nrv) {
        sensor.attach_to(fan.get_instance());
        note_active_fan(active, static_cast<unsigned>(fan.get_instance()), saturate_to_unsigned(*value));
    }
}

bool common_thermal_device_fan_control::drive_fpga(common_thermal_device_fan& fan,
                                                   common_thermal_device_fan_pwm& output, std::uint8_t duty,
                                                   common_thermal_dao* dao) {
    const std::uint32_t offset = output.get_adi_offset();
    if (offset >= _pwm_raw.size()) {
        return false;
    }
    if (!fan.is_manual_speed() && static_cast<float>(duty) > _values[max_pwm]) {
        duty = saturate_to_byte(_values[max_pwm]);
        fan.set_value_pwm_output(duty);
        fan.commit_pwm_to_dao(dao);
        LOG::log(log_source, log_mask::result, "common_thermal_device_fan_control: fan-%02d: %02d%%[%02d%%]\n",
                 fan.get_instance(), duty, static_cast<int>(saturate_to_byte(_values[max_pwm])));
    }
    const bool calibrating = _values[calibration_mode] != 0.0f;
    _pwm_raw[offset] = raw_duty(calibrating ? std::uint8_t{100} : duty);
    log_output("FPGA", fan.get_instance(), _pwm_raw[offset]);
    return true;
}

bool common_thermal_device_fan_control::drive(common_thermal_device_fan& fan, common_thermal_device_fan_pwm& output,
                                              common_thermal_dao* dao) {
    // A limit on an FPGA output reaches the fan's outputs behind it, so each asks anew.
    const std::uint8_t duty = fan.get_value_pwm_output();
    switch (output.get_source_type()) {
        case fan_source_fpga:
            return drive_fpga(fan, output, duty, dao);
        case fan_source_psu:
            log_output("PSU", fan.get_instance(), duty);
            break;
        case fan_source_kpl:
            output.set_pwm_to_hw(duty);
            log_output("KPL", fan.get_instance(), duty);
            break;
        case fan_source_fanmax:
            output.set_pwm_to_hw(duty);
            break;
        case fan_source_nrv:
            break;
    }
    return false;
}

void common_thermal_device_fan_control::poll(common_thermal_dao* dao, unsigned long) {
    read_tach_from_fpga();
    if (dao == nullptr || !_fan_maximum.fetch(*dao, &_values[max_pwm])) {
        _values[max_pwm] = 100.0f;
    }
    active_fan_pair active;
    bool fpga_changed = false;
    for_each_depend<common_thermal_device_fan>(utils::tdev_fan, [&](common_thermal_device_fan& fan) {
        if (!fan.is_actived()) {
            return;
        }
        fan.for_each_tach([&](common_thermal_device_fan_tach& sensor) { read_tach(fan, sensor, active); });
        if (fan.is_writing_pwm_output()) {
            fan.for_each_pwm(
                [&](common_thermal_device_fan_pwm& output) { fpga_changed = drive(fan, output, dao) || fpga_changed; });
        }
        fan.done_pwm_output();
    });
    publish_active_fans(active);
    if (fpga_changed) {
        write_pwm_to_fpga();
    }
    _values.publish(dao, common_thermal_dao::spike_none);
}
