#include "device/storage/m2.hpp"

#include "tests/device/device_fixture.hpp"
#include "tests/device/storage/debug_text.hpp"

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

    float air_reading() {
        poll(air_presence);
        return reading(air);
    }

    std::array<float, 3> drive_values() {
        poll(drive_presence);
        poll(drive);
        return {stored("m2_drive_temperature.temperature"), stored("m2_drive_temperature.threshold"),
                stored("m2_drive_temperature.margin")};
    }

    std::array<float, 2> composed() {
        poll(composite);
        EXPECT_EQ(stored("m2_composite.type"), 1.0f);
        return {stored("m2_composite.high_amb_temperature"), stored("m2_composite.high_drive_temperature")};
    }

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
    EXPECT_EQ(drive_presence.debug(), debug_text("m2_drive_presence", 1, {{"presence", 1}}));
}

TEST_F(m2_test, air_reads_its_chip_while_it_is_present) {
    EXPECT_EQ(air_reading(), 30.0f);
    chip.fail_reads(1);
    EXPECT_EQ(air_reading(), 255.0f) << "nothing old stays";
    EXPECT_EQ(air_reading(), 30.0f);
    present.set_value(0);
    EXPECT_EQ(air_reading(), 255.0f);
    present.set_value(1);
    for (const unsigned no_chip : {5u, 9u}) {
        air.set_port_type(no_chip);
        EXPECT_EQ(air_reading(), 255.0f);
    }
    EXPECT_EQ(air.debug(), debug_text("m2_ambient", 1, {{"temperature", 255}, {"port_type", 0}}));
    EXPECT_EQ(lines_with("Thermal Dev - Unknown Port Type : 5\n"), 1);
    EXPECT_EQ(lines_with("Thermal Dev - Unknown Port Type : 0\n"), 1);
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
    EXPECT_EQ(air_reading(), 255.0f) << "the second read failed";
    EXPECT_EQ(air_reading(), 30.0f);
    EXPECT_EQ(transactions, 4u);
    float direct = 0.0f;
    EXPECT_TRUE(air.read_temperature(direct));
    EXPECT_EQ(direct, 30.0f);
}

TEST_F(m2_test, spike_filter_holds_back_readings_but_no_presence) {
    for (const std::string key : {"m2_drive_presence.presence", "m2_drive_temperature.temperature"}) {
        dao.update_dev("1SMC.common_thermal_device_" + key, 1, 2.0f, false);
        dao.update_dev("1SC.common_thermal_device_" + key, 1, 0.5f, false);
    }
    link(composite, {&drive});
    EXPECT_EQ(drive_values(), (std::array<float, 3>{0, 75, 35}));
    EXPECT_EQ(composed(), (std::array<float, 2>{0, 0})) << "what the filter held back";
    EXPECT_EQ(drive_values(), (std::array<float, 3>{40, 75, 35}));
    EXPECT_EQ(composed(), (std::array<float, 2>{0, 40}));
}

TEST_F(m2_test, drive_margin_needs_temperature_and_threshold) {
    const struct {
        std::uint32_t degrees, limit;
        std::array<float, 3> values;
    } rows[] = {{40, 75, {40, 75, 35}},  {40, 0, {40, 70, 30}},   {40, 255, {40, 255, 255}}, {75, 75, {75, 75, 0}},
                {200, 75, {200, 75, 0}}, {0, 75, {255, 75, 255}}, {0, 0, {255, 70, 255}}};
    for (const auto& r : rows) {
        sensor.set_value(r.degrees);
        limit.set_value(r.limit);
        EXPECT_EQ(drive_values(), r.values) << r.degrees << " " << r.limit;
    }
    sensor.set_value(40);
    const std::array<float, 3> nothing{255, 255, 255};
    limit.fail_reads(1);
    EXPECT_EQ(drive_values(), (std::array<float, 3>{40, 255, 255}));
    sensor.fail_reads(1);
    EXPECT_EQ(drive_values(), nothing) << "the threshold is not even asked for";
    present.set_value(0);
    EXPECT_EQ(drive_values(), nothing);
    drive.set_port_input(1u);
    EXPECT_EQ(lines_with("m2_drive_temperature::set_port_input port input assignment exceeded.\n"), 1);
    EXPECT_EQ(drive.debug(),
              debug_text("m2_drive_temperature", 1, {{"temperature", 255}, {"threshold", 255}, {"margin", 255}}));
}

TEST_F(m2_test, an_empty_key_takes_the_place_of_the_temperature) {
    common_thermal_device_m2_drive_temperature other(2);
    other.set_port_input("");
    other.set_port_input(3u);
    link(other, {&drive_presence});
    poll(drive_presence);
    EXPECT_EQ(reading(other), 255.0f);
    EXPECT_EQ(sensor.reads(), 0u);
}

TEST_F(m2_test, composite_takes_the_hottest_valid_reading) {
    using highs = std::array<float, 2>;
    EXPECT_EQ(composed(), (highs{0, 0}));
    drive_values();
    link(composite, {&drive});
    EXPECT_EQ(composed(), (highs{0, 40}));
    common_thermal_device_m2_ambient failed(2);
    poll(failed);
    link(composite, {&air, &failed});
    degrees = 50;
    air_reading();
    EXPECT_EQ(composed(), (highs{50, 50})) << "never below the air beside the drives";
    sensor.set_value(60);
    drive_values();
    EXPECT_EQ(composed(), (highs{50, 60}));
    sensor.set_value(0);
    drive_values();
    EXPECT_EQ(composed(), (highs{50, 50}));
    EXPECT_EQ(
        composite.debug(),
        debug_text("m2_composite", 1, {{"type", 1}, {"high_amb_temperature", 50}, {"high_drive_temperature", 50}}));
}

}  // namespace
