#include "device/storage/m2.hpp"

#include "tests/device/device_fixture.hpp"

namespace {

class m2_test : public device_test {
protected:
    m2_test() {
        chip.set_script([this](const std::uint8_t*, std::uint32_t, std::uint8_t* in, std::uint32_t, int&) {
            in[0] = degrees;
            return 2u;
        });
        air_presence.set_port_input(1u);
        drive_presence.set_port_input(1u);
        air.set_port_input(2u);
        air.set_port_type(4);
        drive.set_port_input(3u);
        drive.set_port_input("limit");
        link(air, {&air_presence});
        link(drive, {&drive_presence});
    }

    std::string air_values() { return told(air_presence, air); }
    std::string drive_values() { return told(drive_presence, drive); }

    std::uint8_t degrees = 30;
    thermal_host::number_line& present = host.ports.add_number(1u, 1);
    thermal_host::block_line& chip = host.ports.add_block(2u, {});
    thermal_host::number_line& sensor = host.ports.add_number(3u, 40);
    thermal_host::number_line& limit = host.ports.add_number("limit", 75);
    common_thermal_device_m2_ambient_presence air_presence{1};
    common_thermal_device_m2_drive_presence drive_presence{1};
    common_thermal_device_m2_ambient air{1};
    common_thermal_device_m2_drive_temperature drive{1};
    common_thermal_device_m2_composite composite{1};
};

TEST_F(m2_test, presence_logs_what_came_of_its_port) {
    common_thermal_device_m2_ambient_presence unbound(2);
    poll(unbound);
    poll(drive_presence);
    EXPECT_TRUE(drive_presence.is_presence() && !unbound.is_presence());
    EXPECT_EQ(lines_with("common_thermal_device_m2_ambient_presence::poll - isbound(0), read(0), val(0)\n"), 1);
    EXPECT_EQ(lines_with("common_thermal_device_m2_driver_presence::poll - isbound(1), read(1), val(1)\n"), 1);
}

TEST_F(m2_test, air_reads_its_chip_while_it_is_present) {
    EXPECT_EQ(air_values(), "30 4");
    chip.fail_reads(1);
    EXPECT_EQ(air_values(), "255 4") << "nothing old stays";
    EXPECT_EQ(air_values(), "30 4");
    present.set_value(0);
    EXPECT_EQ(air_values(), "255 4");
    present.set_value(1);
    air.set_port_type(5);
    EXPECT_EQ(air_values(), "255 5");
    air.set_port_type(9);
    EXPECT_EQ(air_values(), "255 0");
}

TEST_F(m2_test, the_last_of_several_present_sensors_stands) {
    common_thermal_device_m2_ambient_presence second(2);
    second.set_port_input(1u);
    poll(second);
    link(air, {&second});
    unsigned transactions = 0;
    chip.set_script([&](const std::uint8_t*, std::uint32_t, std::uint8_t* in, std::uint32_t, int& status) {
        in[0] = degrees;
        status = ++transactions == 2 ? 1 : 0;
        return 2u;
    });
    EXPECT_EQ(air_values(), "255 4") << "the second read failed";
    EXPECT_EQ(air_values(), "30 4");
    EXPECT_EQ(transactions, 4u);
}

TEST_F(m2_test, drive_margin_needs_temperature_and_threshold) {
    const std::tuple<std::uint32_t, std::uint32_t, const char*> rows[] = {
        {40, 75, "40 75 35"},  {40, 0, "40 70 30"},   {40, 255, "40 255 255"}, {75, 75, "75 75 0"},
        {200, 75, "200 75 0"}, {0, 75, "255 75 255"}, {0, 0, "255 70 255"}};
    for (const auto& [degrees_now, limit_now, expected] : rows) {
        sensor.set_value(degrees_now);
        limit.set_value(limit_now);
        EXPECT_EQ(drive_values(), expected) << degrees_now << " " << limit_now;
    }
    sensor.set_value(40);
    limit.fail_reads(1);
    EXPECT_EQ(drive_values(), "40 255 255");
    sensor.fail_reads(1);
    EXPECT_EQ(drive_values(), "255 255 255") << "the threshold is not even asked for";
    present.set_value(0);
    EXPECT_EQ(drive_values(), "255 255 255");
    drive.set_port_input(1u);
    EXPECT_EQ(lines_with("m2_drive_temperature::set_port_input port input assignment exceeded.\n"), 1);
}

TEST_F(m2_test, composite_takes_the_hottest_valid_reading) {
    EXPECT_EQ(told(composite), "1 0 0");
    link(composite, {&drive});
    EXPECT_EQ(told(drive_presence, drive, composite), "1 0 40");
    common_thermal_device_m2_ambient failed(2);
    poll(failed);
    link(composite, {&air, &failed});
    degrees = 50;
    EXPECT_EQ(told(air_presence, air, composite), "1 50 50") << "never below the air beside the drives";
    sensor.set_value(60);
    EXPECT_EQ(told(drive, composite), "1 50 60");
    sensor.set_value(0);
    EXPECT_EQ(told(drive, composite), "1 50 50");
}

}  // namespace
