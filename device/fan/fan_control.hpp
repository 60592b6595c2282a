#pragma once

#include <array>
#include <optional>

#include "device/common_thermal_device.hpp"
#include "device/fan/fan.hpp"

// Carries out, once a poll, what was asked of all fans: fetches the FPGA's tachometers, gives each polled fan its
// speed, and drives the outputs of the fans that have a duty to apply, limited where a cap on the fans is in force.
// Without a port the FPGA's fans read 0.
class THERMAL_API common_thermal_device_fan_control : public common_thermal_device {
public:
    // The store value that caps the duty of the FPGA's fans, in percent; no cap while there is none.
    static constexpr const char* fan_maximum_name = "4FMP.common_thermal_device_fan_control.max_pwm";

    explicit common_thermal_device_fan_control(int instance);

    // For machines whose fans are not in the FPGA.
    void set_port_input() {}
    void set_port_input(unsigned port) { _port.bind(port); }
    void set_port_input(const std::string& key) { _port.bind(key); }

    // While on, every FPGA output that is written runs at full speed. Always accepted.
    bool set_calibration_mode(bool on);

    // The area keeps what the last successful read of each half brought.
    void read_tach_from_fpga();
    void write_pwm_to_fpga();
    static float convert_fpga_fan_raw_data_to_tach_duty(std::uint8_t high, std::uint8_t low);
    // Notes in the active-fan bitmaps whether fan number `fan` (1 to 64, others are ignored) turns.
    static void populate_property_active_fans(unsigned fan, unsigned tach);

    void poll(common_thermal_dao* dao, unsigned long now) override;
    std::string debug() override { return _values.debug_text(); }

private:
    using fpga_area = std::array<std::uint8_t, 128>;

    // What one poll learns about the fans of one bitmap.
    struct active_fans {
        std::uint32_t seen = 0;
        std::uint32_t turning = 0;
    };
    using active_fan_pair = std::array<active_fans, 2>;

    static void note_active_fan(active_fan_pair& active, unsigned fan, unsigned tach);
    static void publish_active_fans(const active_fan_pair& active);

    std::optional<float> fpga_tach(common_thermal_device_fan_tach& sensor) const;
    void read_tach(common_thermal_device_fan& fan, common_thermal_device_fan_tach& sensor, active_fan_pair& active);
    // True if the FPGA area changed hands and has to be written.
    bool drive(common_thermal_device_fan& fan, common_thermal_device_fan_pwm& output, common_thermal_dao* dao);
    bool drive_fpga(common_thermal_device_fan& fan, common_thermal_device_fan_pwm& output, std::uint8_t duty,
                    common_thermal_dao* dao);

    published_values _values;
    device_port _port;
    store_reference _fan_maximum;
    fpga_area _tach_raw{};
    fpga_area _pwm_raw{};
};
