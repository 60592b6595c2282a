#include "device/port_sensors.hpp"

#include "device/fpga_capabilities.hpp"
#include "tests/device/device_fixture.hpp"

namespace {

using utils = common_thermal_utils;

class port_sensor_test : public device_test {
protected:
    common_thermal_device_event_status status{1};
    common_thermal_device_event_status idle{2};
};

TEST_F(port_sensor_test, presence_waits_for_the_stage_of_its_class) {
    common_thermal_device_pch_presence pch(1);
    common_thermal_device_psu_presence psu(1);
    common_thermal_device_nvidia_ubb_presence ubb(1);
    auto& line = host.ports.add_number(1u, 1);
    const std::pair<presence_sensor*, utils::status_stage_t> rows[] = {
        {&pch, utils::ipmi_ready}, {&psu, utils::ipmi_ready}, {&ubb, utils::dp_ready}};
    for (const auto& [sensor, stage] : rows) {
        status.set_stage(stage, true);
        sensor->set_port_input(1u);
        EXPECT_EQ(reading(*sensor), 0.0f) << sensor->get_name() << ": nobody to ask";
        link(*sensor, {&status, &idle});
        EXPECT_EQ(reading(*sensor), 1.0f) << sensor->get_name() << ": one of two is enough";
        line.fail_reads(1);
        EXPECT_EQ(reading(*sensor), 0.0f) << sensor->get_name();
        status.set_stage(stage, false);
        EXPECT_EQ(reading(*sensor), 0.0f) << sensor->get_name();
    }
}

TEST_F(port_sensor_test, temperature_is_a_reading_of_this_poll_or_nothing) {
    common_thermal_device_retimer_presence retimer(1);
    common_thermal_device_retimer_temp retimer_temp(1);
    common_thermal_device_nvidia_ubb_presence ubb(1);
    common_thermal_device_nvswitch_temperature nvswitch(1);
    const std::tuple<presence_sensor&, integer_temperature_sensor&, float> rows[] = {{retimer, retimer_temp, 45000.0f},
                                                                                     {ubb, nvswitch, 45.0f}};
    status.set_stage(utils::dp_ready, true);
    link(ubb, {&status});
    for (const auto& [presence, sensor, degrees] : rows) {
        auto& present = host.ports.add_number(1u, 1);
        auto& line = host.ports.add_number("temperature", 45000);
        presence.set_port_input(1u);
        sensor.set_port_input("temperature");
        poll(presence);
        EXPECT_EQ(reading(sensor), 0.0f) << "nobody says that the component is there";
        link(sensor, {&presence});
        EXPECT_EQ(reading(sensor), degrees);
        line.fail_reads(1);
        EXPECT_EQ(reading(sensor), 0.0f);
        EXPECT_EQ(reading(sensor), degrees);
        present.set_value(0);
        poll(presence);
        EXPECT_EQ(reading(sensor), 0.0f);
    }
}

TEST_F(port_sensor_test, regulator_keeps_or_drops_a_lost_reading_by_class) {
    auto& capability = host.ports.add_block(1u, std::vector<std::uint8_t>(16, 0x01));
    auto& records = host.ports.add_block(2u, std::vector<std::uint8_t>(16));
    common_thermal_device_fpga_capabilities fpga(1);
    common_thermal_device_cpuvr cpuvr(1);
    common_thermal_device_dimmvr dimmvr(1);
    common_thermal_device_powervr powervr(1);
    fpga.set_port_input(1u);
    const std::pair<regulator_temperature_sensor*, float> rows[] = {{&cpuvr, 60.0f}, {&dimmvr, 0.0f}, {&powervr, 0.0f}};
    for (const auto& [sensor, lost] : rows) {
        sensor->set_port_input(2u);
        sensor->set_adi_offset(3);
        link(*sensor, {&fpga});
        records.bytes()[8] = 0x3C;
        records.bytes()[9] = 0;
        poll(fpga);
        EXPECT_EQ(reading(*sensor), 60.0f) << sensor->get_name();
        records.fail_reads(1);
        EXPECT_EQ(reading(*sensor), lost) << sensor->get_name();
        capability.fail_reads(1);
        poll(fpga);
        EXPECT_EQ(reading(*sensor), lost) << sensor->get_name();
        records.bytes()[9] = 0x08;
        poll(fpga);
        EXPECT_EQ(reading(*sensor), 255.0f) << sensor->get_name() << ": an invalid record is a reading";
    }
}

}  // namespace
