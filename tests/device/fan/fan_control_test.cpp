#include "device/fan/fan_control.hpp"

#include "device/fan/fpga_fan_info.hpp"
#include "tests/device/device_fixture.hpp"

namespace {

constexpr std::size_t first_output = 64;

// A fan with an FPGA tachometer at `index` + 1 and an FPGA output at `index` in the second half of the area.
struct fpga_fan {
    fpga_fan(common_thermal_device_fan_control& control, int instance, unsigned index) : fan(instance) {
        tach.set_adi_offset(0, index, 0);
        pwm.set_adi_offset(0, index + first_output, 0);
        fan.add_depend(&tach);
        fan.add_depend(&pwm);
        control.add_depend(&fan);
    }

    common_thermal_device_fan fan;
    common_thermal_device_fan_tach_fpga tach{1};
    common_thermal_device_fan_pwm_fpga pwm{1};
};

class fan_control_test : public device_test {
protected:
    fan_control_test() { control.set_port_input(1u); }

    void fill(std::uint8_t value) { std::fill(area.bytes().begin(), area.bytes().end(), value); }
    void ask(common_thermal_device_fan& fan, int duty) {
        fan.set_value_pwm_output(static_cast<std::uint8_t>(duty));
        fan.apply_value_pwm_output();
        poll(control);
    }
    // What reaches the FPGA for a duty of the rules.
    int raw_for(int duty) {
        ask(first.fan, duty);
        return area.bytes()[first_output];
    }
    float tach_of(common_thermal_device_fan& fan) {
        poll(fan);
        return stored("fan.tach", fan.get_instance());
    }
    void limit_to(float duty) { dao.update_dev("4FMP.common_thermal_device_fan_control.max_pwm", 1, duty, false); }

    // A position counts 16 bytes, so that positions 0 and 4 are the two halves.
    thermal_host::block_line& area = host.ports.add_block(1u, std::vector<std::uint8_t>(128), 16);
    common_thermal_device_fan_control control{1};
    fpga_fan first{control, 1, 0};
};

TEST_F(fan_control_test, leaves_a_fan_alone_until_it_has_been_polled) {
    fill(1);
    ask(first.fan, 80);
    EXPECT_TRUE(first.fan.is_writing_pwm_output());
    EXPECT_EQ(area.writes() + fan_bits("max_fans_bitmap"), 0u);
    EXPECT_EQ(tach_of(first.fan), 0.0f);
    poll(control);
    EXPECT_EQ(tach_of(first.fan), 257.0f);
    EXPECT_EQ(area.bytes()[first_output], 204);
    EXPECT_FALSE(first.fan.is_writing_pwm_output());
    poll(control);
    EXPECT_EQ(area.writes(), 2u) << "two halves, and only where a duty was applied";
}

TEST_F(fan_control_test, limits_what_the_rules_ask_for_but_not_an_operator) {
    poll(first.fan);
    for (const auto& [duty, raw] : {std::pair{0, 0}, {1, 3}, {50, 128}, {90, 230}, {100, 255}, {255, 255}}) {
        EXPECT_EQ(raw_for(duty), raw) << duty << ": rounded in single precision";
    }
    limit_to(60.9f);
    EXPECT_EQ(raw_for(80), 153) << "60 %";
    EXPECT_EQ(stored("fan.pwm"), 60.0f) << "committed at once";
    EXPECT_EQ(lines_with("common_thermal_device_fan_control: fan-01: 60%[60%]\n"), 1);
    first.fan.set_manual_speed(true, 80);
    EXPECT_EQ(raw_for(80), 204);
    first.fan.set_manual_speed(false, 0);
    control.set_calibration_mode(true);
    EXPECT_EQ(raw_for(80), 255);
    EXPECT_EQ(first.fan.get_value_pwm_output(), 60) << "the limit ran first; calibration leaves the output value";
    control.set_calibration_mode(false);
    limit_to(0.0f);
    EXPECT_EQ(raw_for(80), 0);
    EXPECT_EQ(stored("fan_control.max_pwm"), 0.0f);
}

TEST_F(fan_control_test, marks_the_fans_that_turn) {
    fpga_fan last_of_first(control, 32, 2), first_of_second(control, 33, 4), none(control, 0, 6);
    for (fpga_fan* each : {&first, &last_of_first, &first_of_second, &none}) poll(each->fan);
    fill(1);
    poll(control);
    EXPECT_EQ(fan_bits("active_fans_bitmap"), 0x80000001u);
    EXPECT_EQ(fan_bits("active_fans_bitmap2"), 1u);
    area.bytes()[3] = area.bytes()[4] = 0;
    poll(control);
    EXPECT_EQ(fan_bits("active_fans_bitmap"), 1u);
    EXPECT_EQ(fan_bits("max_fans_bitmap"), 0x80000001u);
    common_thermal_device_fan_control::populate_property_active_fans(2, 900);
    common_thermal_device_fan_control::populate_property_active_fans(65, 900);
    EXPECT_EQ(fan_bits("active_fans_bitmap"), 3u);
}

TEST_F(fan_control_test, keeps_the_last_speeds_when_a_block_is_lost_or_short) {
    fpga_fan second(control, 2, 59);
    poll(first.fan);
    poll(second.fan);
    const auto speeds_after = [&](std::uint8_t value) {
        fill(value);
        poll(control);
        return std::pair(tach_of(first.fan), tach_of(second.fan));
    };
    EXPECT_EQ(speeds_after(1), std::pair(257.0f, 257.0f));
    area.fail_reads(1);
    EXPECT_EQ(speeds_after(2), std::pair(257.0f, 257.0f));
    area.bytes().resize(60);
    EXPECT_EQ(speeds_after(3), std::pair(771.0f, 257.0f)) << "the block ends ahead of the second fan";
    ask(second.fan, 50);
    EXPECT_FALSE(second.fan.is_writing_pwm_output()) << "a failing write is not repeated";
}

TEST_F(fan_control_test, ignores_places_outside_the_fpga_areas) {
    fpga_fan edge(control, 2, 63), wild(control, 3, 126);
    edge.tach.set_adi_offset(20, 23, 1);
    wild.pwm.set_adi_offset(0x33333334u, 0, 0);
    for (fpga_fan* each : {&edge, &wild}) {
        poll(each->fan);
        fill(1);
        ask(each->fan, 50);
    }
    EXPECT_EQ(tach_of(edge.fan), 257.0f) << "bytes 126 and 127";
    EXPECT_EQ(tach_of(wild.fan), 0.0f);
    EXPECT_EQ(fan_bits("active_fans_bitmap"), 2u);
    EXPECT_EQ(area.writes(), 2u);
}

TEST_F(fan_control_test, outputs_behind_a_limited_one_get_the_limited_duty) {
    host.enclosure.answer = 0;
    auto& port = host.ports.add_number("fanmax", 0);
    common_thermal_device_fan mixed(2);
    common_thermal_device_fanmax_pwm ahead(1);
    common_thermal_device_fan_pwm_fpga fpga(1);
    common_thermal_device_fan_pwm_kpl behind(1);
    common_thermal_device_fan_pwm_psu psu(1);
    ahead.set_port_output("fanmax");
    link(mixed, {&ahead, &fpga, &behind, &psu});
    link(control, {&mixed});
    poll(mixed);
    limit_to(40.0f);
    ask(mixed, 70);
    EXPECT_EQ(port.value(), 70u);
    EXPECT_EQ(host.enclosure.cooling_values.entries(), std::vector<std::uint8_t>{40});
    EXPECT_EQ(lines_with("::poll(PSU)[2,pwm=40.000000]\n"), 1);
}

TEST_F(fan_control_test, fan_info_splits_the_board_value) {
    auto& line = host.ports.add_number("info", 0x31);
    common_thermal_device_fpga_fan_info info(1);
    info.set_port_input("info");
    EXPECT_EQ(told(info), "3 0 2 6");
    EXPECT_EQ(named_values(info), "num_of_fanzone=3 fans_per_pwm=0 tachs_per_fan=2 total_fans=6");
    line.set_value(0xFFFFFFFE);
    EXPECT_EQ(told(info), "15 7 1 15");
    line.fail_reads();
    EXPECT_EQ(told(info), "0 0 0 0");
}

}  // namespace
