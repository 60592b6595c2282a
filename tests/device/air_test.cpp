#include "device/airflow.hpp"
#include "device/ambient.hpp"
#include "device/exhaust_temperature.hpp"
#include "device/fan/fan_control.hpp"
#include "device/fpga_capabilities.hpp"
#include "tests/device/device_fixture.hpp"

namespace {

class exhaust_test : public device_test {
protected:
    thermal_host::number_line& power = host.ports.add_number(1u, 300);
    thermal_host::number_line& volume = host.ports.add_number(2u, 100);
    thermal_host::number_line& factor = host.ports.add_number(3u, 1760);
    common_thermal_device_exhaust_temperature exhaust{1};
};

TEST_F(exhaust_test, adds_the_rise_to_the_last_inlet_that_was_polled) {
    auto& capability = host.ports.add_block("fpga", {0x01});
    auto& records = host.ports.add_block(9u, std::vector<std::uint8_t>(16));
    common_thermal_device_fpga_capabilities fpga(1);
    common_thermal_device_ambient warm(1), cold(2), unpolled(3);
    fpga.set_port_input("fpga");
    for (common_thermal_device_ambient* inlet : {&warm, &cold}) {
        link(*inlet, {&fpga});
        inlet->set_port_input(9u);
    }
    for (const unsigned port : {1u, 2u, 3u}) exhaust.set_port_input(port);
    const auto reading_behind = [&](common_thermal_device_ambient& inlet, std::uint8_t degrees) {
        records.bytes()[5] = degrees;
        poll(fpga);
        poll(inlet);
        return reading(exhaust);
    };
    EXPECT_EQ(reading(exhaust), 300.0f * 1760.0f / 100000.0f) << "the rise alone";
    link(exhaust, {&cold, &warm, &unpolled});
    EXPECT_FLOAT_EQ(reading_behind(cold, 10), 15.28f);
    EXPECT_EQ(reading_behind(warm, 25), 300.0f * 1760.0f / 100000.0f + 25.0f);
    capability.fail_reads(1);
    EXPECT_FLOAT_EQ(reading_behind(warm, 25), 260.28f) << "a lost inlet errs on the hot side";
}

TEST_F(exhaust_test, needs_all_three_ports_but_forgives_a_failed_read) {
    exhaust.set_port_input(1u);
    exhaust.set_port_input("");
    exhaust.set_port_input(3u);
    EXPECT_EQ(reading(exhaust), 255.0f) << "an empty key takes the place of the air volume";
    exhaust.set_port_input(2u);
    EXPECT_EQ(lines_with("exhaust_temperature::set_port_input port input assignment exceeded.\n"), 1);
    EXPECT_EQ(reading(exhaust), 255.0f);

    common_thermal_device_exhaust_temperature working(2);
    for (const unsigned port : {2u, 2u, 3u}) working.set_port_input(port);
    EXPECT_FLOAT_EQ(reading(working), 1.76f);
    volume.set_value(0);
    EXPECT_EQ(reading(working), 0.0f);
    EXPECT_EQ(stored("exhaust_temperature.cfm", 2), 1.0f);
    volume.set_value(100);
    factor.fail_reads(1);
    EXPECT_EQ(reading(working), 0.0f) << "not the factor of the poll before";
    EXPECT_FLOAT_EQ(reading(working), 1.76f);
    host.ports.remove(2u);
    EXPECT_EQ(reading(working), 255.0f);
    EXPECT_EQ(stored("exhaust_temperature.system_power", 2), 100.0f) << "what the last estimate stood on";
}

class airflow_test : public device_test {
protected:
    airflow_test() {
        sensor.set_script([this](const std::uint8_t*, std::uint32_t size, std::uint8_t* in, std::uint32_t max,
                                 int&) -> std::uint32_t {
            EXPECT_TRUE(size == 0 && max == 3);
            in[0] = 0xAB;
            in[1] = static_cast<std::uint8_t>(raw >> 8);
            in[2] = static_cast<std::uint8_t>(raw);
            return 3;
        });
        airflow.set_port_input(1u);
        link(airflow, {&fans, &more_fans});
    }

    // Lets whole seconds pass, each with a poll, until the device reads again; returns how many that took.
    int seconds_to_next_reading() {
        const unsigned before = sensor.reads();
        for (int seconds = 1;; ++seconds) {
            host.clock.advance_to(host.clock.now() + std::chrono::seconds(1));
            poll(airflow);
            if (sensor.reads() != before || seconds > 60) return seconds;
        }
    }
    float after(unsigned new_raw) {
        raw = new_raw;
        seconds_to_next_reading();
        return stored("airflow.windspeed");
    }
    float step() const { return stored("airflow.dusk_filter_check"); }
    bool all_calibrating(bool on) {
        poll(fans);
        poll(more_fans);
        const float expected = on ? 1.0f : 0.0f;
        return stored("fan_control.calibration_mode") == expected &&
               stored("fan_control.calibration_mode", 2) == expected;
    }

    unsigned raw = 1400;
    thermal_host::block_line& sensor = host.ports.add_block(1u, {});
    thermal_host::number_line& requester = host.ports.add_number("CIO_AIRFLOW_MEASUREMENT_STATUS", 0);
    common_thermal_device_fan_control fans{1}, more_fans{2};
    common_thermal_device_airflow airflow{1};
};

TEST_F(airflow_test, reads_every_fourth_second_and_keeps_the_last_speed_outside_the_curve) {
    poll(airflow);
    EXPECT_EQ(stored("airflow.windspeed"), 2.5f);
    EXPECT_EQ(stored("airflow.avg_raw"), 1400.0f) << "the first reading is the average";
    EXPECT_EQ(lines_with("request_airflow_raw RESP[578][0xab, 0x5, 0x78]\n"), 1);
    EXPECT_EQ(lines_with("LowerBound:[02][1203]\n") + lines_with("UpperBound:[03][1597]\n"), 2);
    EXPECT_EQ(lines_with("Windspeed[2.5000] Raw[1400.00]\n"), 1);
    EXPECT_EQ(seconds_to_next_reading(), 4);

    EXPECT_EQ(after(3006), 9.0f);
    EXPECT_FLOAT_EQ(stored("airflow.avg_windspeed"), (9.0f + 9 * 2.5f) / 10);
    const float lfm = stored("airflow.lfm");
    for (const unsigned kept : {408u, 409u, 3686u, 65535u, 0u}) {
        const float average = stored("airflow.avg_raw");
        EXPECT_EQ(after(kept), 9.0f) << kept;
        EXPECT_EQ(stored("airflow.raw"), static_cast<float>(kept));
        EXPECT_EQ(stored("airflow.avg_raw") != average, kept != 0) << kept;
        EXPECT_EQ(stored("airflow.lfm"), lfm);
    }
    EXPECT_EQ(lines_with("convert_to_windspeed Raw[408.000000] out of range!\n"), 1);
}

TEST_F(airflow_test, turns_speed_into_feet_in_double_precision) {
    EXPECT_EQ(after(411), 2.0f * 2.0f / 794.0f);
    EXPECT_EQ(stored("airflow.lfm"), 0.991687596f);
    EXPECT_EQ(stored("airflow.avg_lfm"), 0.991687596f);
    for (const auto& [count, speed] : {std::pair{1203u, 2.0f}, {3309u, 11.0f}, {3436u, 12.0f}, {3685u, 14.983740f}}) {
        EXPECT_FLOAT_EQ(after(count), speed) << count;
    }
}

TEST_F(airflow_test, failed_read_shows_in_the_count_alone) {
    poll(airflow);
    sensor.fail_reads(1);
    EXPECT_EQ(after(1597), 2.5f);
    EXPECT_EQ(stored("airflow.raw"), 255.0f);
    EXPECT_EQ(stored("airflow.avg_raw"), 1400.0f);
    common_thermal_device_airflow unbound(2);
    EXPECT_EQ(reading(unbound), 0.0f);
    EXPECT_EQ(stored("airflow.avg_raw", 2), 0.0f);
}

TEST_F(airflow_test, dust_filter_measurement_runs_poll_by_poll) {
    poll(airflow);
    const auto expect_reading = [this](int seconds, float next_step) {
        EXPECT_EQ(seconds_to_next_reading(), seconds);
        EXPECT_EQ(step(), next_step);
    };
    requester.set_value(0x10);
    expect_reading(4, 1);
    EXPECT_EQ(requester.value(), 0x11u);
    EXPECT_TRUE(all_calibrating(true));
    raw = 2000;
    expect_reading(31, 2);  // the fans settle
    EXPECT_EQ(stored("airflow.avg_raw"), 2000.0f) << "the average starts from this sample";

    raw = 3000;
    expect_reading(4, 2);
    EXPECT_EQ(stored("airflow.avg_raw"), 2100.0f) << "weighed with ten again";
    for (int polls = 2; polls <= 10; ++polls) expect_reading(4, 2);
    for (int polls = 0; polls <= 5; ++polls) {
        EXPECT_EQ(requester.value(), 0x11u);
        seconds_to_next_reading();
        EXPECT_EQ(step(), 3.0f) << polls;
    }
    for (int polls = 0; polls < 2; ++polls) {
        requester.set_value(0x11);
        expect_reading(4, 3);
        EXPECT_EQ(requester.value(), 0x80u) << "told again for as long as the request stands";
    }
    EXPECT_TRUE(all_calibrating(true));

    requester.set_value(0);
    expect_reading(4, 0);
    EXPECT_TRUE(all_calibrating(false));
    EXPECT_EQ(seconds_to_next_reading(), 11);
    const float average = stored("airflow.avg_raw");
    after(1000);
    EXPECT_FLOAT_EQ(stored("airflow.avg_raw"), (1000.0f + 9 * average) / 10);
    EXPECT_EQ(lines_with("poll SEQ[0x2.000000]\n"), 11);
}

TEST_F(airflow_test, measurement_holds_while_its_requester_cannot_be_read) {
    requester.set_value(0x10);
    poll(airflow);
    EXPECT_EQ(seconds_to_next_reading(), 31);
    requester.fail_reads(1);
    EXPECT_EQ(seconds_to_next_reading(), 4);
    requester.set_value(0x12);
    seconds_to_next_reading();
    host.ports.remove("CIO_AIRFLOW_MEASUREMENT_STATUS");
    seconds_to_next_reading();
    EXPECT_EQ(step(), 2.0f);
    EXPECT_TRUE(all_calibrating(true));
    host.ports.add_number("CIO_AIRFLOW_MEASUREMENT_STATUS", 0);
    seconds_to_next_reading();
    EXPECT_EQ(step(), 0.0f);
    EXPECT_TRUE(all_calibrating(false));
    EXPECT_EQ(seconds_to_next_reading(), 11);
    after(3000);
    EXPECT_EQ(stored("airflow.avg_raw"), 3000.0f) << "ended before the average had its weight back";
}

TEST_F(airflow_test, only_a_request_starts_a_measurement) {
    for (const unsigned status : {0x00u, 0x01u, 0x12u, 0x81u, 0x10u, 0x11u, 0x80u}) {
        requester.set_value(status);
        seconds_to_next_reading();
        const bool is_request = status == 0x10 || status == 0x11 || status == 0x80;
        EXPECT_EQ(step(), is_request ? 1.0f : 0.0f) << status;
        EXPECT_EQ(requester.value(), is_request ? 0x11u : status);
        requester.set_value(0);
        seconds_to_next_reading();
    }
    dust_filter_state lost{.step = 7};
    EXPECT_EQ(advance_dust_filter(lost, 0x11).answer, 0x81u);
    EXPECT_EQ(lost.step, 0u);
}

TEST_F(airflow_test, reading_is_never_taken_for_a_spike) {
    filter("airflow.windspeed", 1);
    EXPECT_EQ(after(1400), 2.5f);
}

}  // namespace
