#include <cstring>

#include "device/fan/fan.hpp"
#include "tests/device/device_fixture.hpp"

namespace {

using fan_devices_test = device_test;

TEST_F(fan_devices_test, fpga_tachometers_enter_the_maximum_bitmaps_once) {
    constexpr std::uint32_t top = 1u << 31;
    // Fan number and both bitmaps.
    const std::tuple<int, std::uint32_t, std::uint32_t> rows[] = {
        {-7, 1, 0}, {32, top | 1, 0}, {33, top | 1, 1}, {64, top | 1, top | 1}, {65, top | 1, top | 1}};
    for (const auto& [fan, first, second] : rows) {
        common_thermal_device_fan_tach_fpga tach(1);
        tach.attach_to(fan);
        tach.attach_to(5);
        EXPECT_EQ(fan_bits("max_fans_bitmap"), first) << fan;
        EXPECT_EQ(fan_bits("max_fans_bitmap2"), second) << fan;
    }
}

TEST_F(fan_devices_test, controller_tachometer_configures_its_port_once) {
    auto& line = host.ports.add_number(3u, 4200);
    common_thermal_device_fan_tach_nrv tach(1);
    tach.set_num(9, 3, 1, 2, 3, 4);
    tach.set_port_input(3u);
    EXPECT_EQ(reading(tach), 0.0f) << "not attached yet";
    tach.attach_to(12);
    tach.attach_to(13);
    EXPECT_EQ(line.writes(), 1u);
    EXPECT_EQ(fan_bits("max_fans_bitmap"), 1u << 11);
    const unsigned char record[46] = {0, 11, 'f', 'a', 'n', '_', '1', '1', 0,   0, 0, 0, 0, 0, 0, 0,
                                      0, 0,  0,   0,   0,   0,   9,   1,   3,   1, 2, 1, 0, 3, 4, 1,
                                      0, 0,  0,   0,   0,   2,   1,   0,   255, 0, 0, 0, 0, 1};
    EXPECT_EQ(std::memcmp(&line.tachometer(), record, sizeof record), 0);
    EXPECT_EQ(reading(tach), 4200.0f);
    line.fail_reads();
    EXPECT_EQ(reading(tach), 4200.0f) << "the record keeps the last speed";
    EXPECT_EQ(stored("fan_tach_nrv.gpio_pin_2"), 4.0f);
}

TEST_F(fan_devices_test, multiplexer_kind_follows_the_number_of_select_lines) {
    auto& line = host.ports.add_number(3u);
    const std::tuple<bool, std::uint8_t, int> rows[] = {{false, 3, 1}, {false, 4, 0}, {true, 7, 2}, {true, 8, 0}};
    for (const auto& [three, mux, kind] : rows) {
        common_thermal_device_fan_tach_nrv tach(1);
        tach.set_port_input(3u);
        three ? tach.set_num(1, mux, 1, 2, 3, 4, 5, 6) : tach.set_num(1, mux, 1, 2, 3, 4);
        tach.attach_to(40);
        EXPECT_EQ(line.tachometer().mux_kind, kind) << +mux;
        EXPECT_EQ(line.tachometer().gpio_pin_3, three ? 6 : 0);
    }
}

TEST_F(fan_devices_test, fanmax_tachometer_publishes_only_a_change) {
    auto& line = host.ports.add_number("tach", 3000);
    common_thermal_device_fanmax_tach fanmax(1);
    fanmax.set_port_input("tach");
    EXPECT_EQ(reading(fanmax), 3000.0f);
    dao.update_dev("common_thermal_device_fanmax_tach.tach", 1, 1.0f, false);
    poll(fanmax);
    EXPECT_EQ(stored("fanmax_tach.tach"), 1.0f) << "an equal reading";
    line.fail_reads();
    EXPECT_EQ(reading(fanmax), 3000.0f) << "a lost reading";
}

TEST_F(fan_devices_test, enclosure_hears_a_duty_until_it_accepts_it) {
    host.ports.add_number(4u, 61);
    common_thermal_device_fan_pwm_kpl pwm(1);
    common_thermal_device_fan fan(1);
    link(fan, {&pwm});
    // 0 counts as sent; a refused duty is asked for again.
    const std::tuple<std::uint8_t, int, unsigned> steps[] = {{0, 1, 0}, {50, 1, 1}, {50, 1, 2}, {50, 0, 3}, {50, 0, 3}};
    for (const auto& [duty, answer, requests] : steps) {
        host.enclosure.answer = answer;
        pwm.set_pwm_to_hw(duty);
        EXPECT_EQ(host.enclosure.cooling_values.total(), requests);
    }
    EXPECT_EQ(reading(pwm), 45.0f) << "unbound";
    EXPECT_EQ(stored("fan_pwm_kpl.pwm_output"), 50.0f);
    pwm.set_port_input(4u);
    poll(pwm);
    fan.commit_pwm_to_dao(&dao);
    EXPECT_EQ(stored("fan.pwm"), 61.0f) << "a fan of the enclosure shows what it runs with";
}

TEST_F(fan_devices_test, fanmax_output_follows_the_store_once_there_is_a_value) {
    auto& line = host.ports.add_number("pwm", 30);
    common_thermal_device_fanmax_pwm pwm(2);
    pwm.set_port_output("pwm");
    poll(pwm);
    EXPECT_EQ(line.writes(), 0u) << "no value, no write";
    dao.update_dev("common_thermal_device_fanmax_pwm.pwm", 2, 55.9f, false);
    poll(pwm, 2);
    EXPECT_EQ(line.value(), 55u);
    EXPECT_EQ(line.writes(), 1u);
    EXPECT_EQ(lines_with("fanmax_pwm::poll() zone 2 changed from 30% to 55%\n"), 1);
    line.fail_writes();
    pwm.set_pwm_to_hw(71);
    EXPECT_EQ(lines_with("[common_thermal_device_fanmax_pwm2] failed setting pwm!n"), 1);
}

TEST_F(fan_devices_test, fan_shows_its_last_device_of_each_kind) {
    common_thermal_device_fan fan(1);
    common_thermal_device_fan_tach_fpga tach(1);
    common_thermal_device_fan_tach_psu psu_tach(1);
    common_thermal_device_fan_pwm_fpga pwm(1);
    common_thermal_device_fan_pwm_psu psu_pwm(1);
    EXPECT_EQ(fan.get_value_pwm_output(), 0);
    link(fan, {&tach, &psu_tach, &pwm, &psu_pwm});
    fan.set_value_pwm_output(40);
    psu_pwm.set_output_value(172);
    fan.set_value_tach(1234.5f);
    fan.set_value_tach(1234.5f);
    EXPECT_EQ(lines_with("OBV - tdev_fan[ 1] val_tach      0.00 -> 1234.50\n"), 1);
    EXPECT_EQ(reading(fan), 1234.5f);
    EXPECT_EQ(stored("fan.pwm"), 172.0f);
    EXPECT_EQ(stored("fan.tach_type") + 10 * stored("fan.pwm_type"), 33.0f);
}

}  // namespace
