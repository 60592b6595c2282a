#include <gmock/gmock.h>

#include <functional>

#include "bench/allocation_counter.hpp"
#include "tests/sim/machine.hpp"

// Processors, memory, drives and air of the simulated server, under the rules that are bundled with it.
namespace {

using namespace sim;

constexpr QSignal processor_absent = 84, processor_present = 85, tdp_ready = 95;

struct two_sockets : testing::Test {
    machine m;

    server_readings& readings() { return m.server.physics().readings(); }
    thermal_host::number_line& number(unsigned port) {
        return dynamic_cast<thermal_host::number_line&>(*m.server.host().ports.find(port));
    }
    // Of published events, as instance or watts.
    std::vector<unsigned> sent(QSignal signal) {
        std::vector<unsigned> details;
        for (const auto& entry : m.server.host().loop.recorded_events().entries()) {
            if (entry.event.sig == signal) {
                details.push_back(signal == tdp_ready ? entry.event.data_word : entry.event.data_byte1);
            }
        }
        return details;
    }
};

TEST_F(two_sockets, boot_from_cold_with_each_signal_sent_once) {
    m.server.host().loop.recorded_events().set_capacity(1000);
    m.server.run_until(7.0);
    EXPECT_EQ(m.server.physics().power(), 0.0) << "the host has no power yet";
    EXPECT_EQ(m.stored("cpu_presence.presence", 2), 1.0f);
    m.server.run_until(54.0);
    EXPECT_EQ(m.stored("cpu_channel.actived"), 0.0f) << "processors answer, but the host may still reset them";
    EXPECT_EQ(m.stored("cpu_temperature.margin"), 68.0f);
    EXPECT_EQ(m.stored("cpu_info.tjmax"), 0.0f);
    EXPECT_EQ(m.stored("dimm_temperature.temperature", 9), 0.0f);
    m.server.run_until(100.0);
    for (const int socket : {1, 2}) {
        EXPECT_EQ(m.stored("cpu_channel.actived", socket), 1.0f);
        EXPECT_EQ(m.stored("cpu_info.tdp", socket), 250.0f);
        EXPECT_NEAR(m.stored("cpu_temperature.absolute", socket),
                    m.server.physics().temperature(m.part(socket == 1 ? "cpu1" : "cpu2")), 0.5);
        EXPECT_NEAR(m.stored("cpu_power.average_power_ratio", socket), 55.0f / 250.0f, 0.01f);
    }
    EXPECT_NEAR(m.stored("dimm_temperature.temperature", 9), m.server.physics().temperature(m.part("dimm9")), 1.0);
    EXPECT_EQ(m.stored("disk_drive_quantity.quentity"), 24.0f);
    EXPECT_EQ(m.stored("disk_drive_quantity_mask_30.quentity_mask"), 16777215.0f);
    EXPECT_EQ(m.stored("disk_drive_backplane_info.vpdid"), 536.0f);
    EXPECT_EQ(m.stored("disk_drive_info.type", 24), 3.0f) << "an NVMe drive, by its record";
    EXPECT_NEAR(m.stored("exhaust_temperature.temperature"), m.server.physics().outlet(), 12.0)
        << "parts still warm up";
    EXPECT_GT(m.stored("airflow.windspeed"), 1.0f);
    EXPECT_THAT(sent(processor_absent), testing::IsEmpty());
    EXPECT_THAT(sent(processor_present), testing::UnorderedElementsAre(1, 2));
    EXPECT_THAT(sent(tdp_ready), testing::ElementsAre(250, 250));
    EXPECT_EQ(number(socket_throttle_outputs + 1).value(), 0u);
}

TEST_F(two_sockets, show_defined_values_under_every_fault_and_recover_from_it) {
    const auto set = [this](const char* part, bool works) { m.server.physics().set_sensor(m.part(part), works); };
    const struct {
        const char* fault;
        std::function<void(bool)> works;  // false brings the fault
        std::vector<std::tuple<const char*, int, float>> values;
    } rows[] = {
        {"socket 2 is empty",
         [this](bool works) { readings().set_socket(2, works, true); },
         {{"cpu_presence.presence", 2, 0.0f},
          {"cpu_channel.actived", 2, 0.0f},
          {"cpu_temperature.relative", 2, -68.0f},
          {"cpu_temperature.absolute", 2, 30.0f},
          {"cpu_power.average_power", 2, 0.0f},
          {"dimm_channel.active", 5, 0.0f},
          {"dimm_temperature.temperature", 9, 0.0f}}},
        {"processor 2 is disabled",
         [this](bool works) { readings().set_socket(2, true, works); },
         {{"cpu_presence.presence", 2, 1.0f}, {"cpu_disabled.disabled", 2, 1.0f}, {"cpu_channel.actived", 2, 0.0f}}},
        {"the bus of processor 2 fails",
         [&](bool works) { set("cpu2", works); },
         {{"cpu_channel.actived", 2, 1.0f}, {"cpu_power.average_power", 2, 0.0f}, {"dimm_channel.active", 5, 1.0f}}},
        {"bay 3 is empty",
         [this](bool works) { m.server.physics().set_drive(3, works); },
         {{"disk_drive_presence.presence", 3, 0.0f},
          {"disk_drive_quantity.quentity", 1, 23.0f},
          {"disk_drive_quantity_mask_30.quentity_mask", 1, 16777211.0f}}},
        {"bay 20 is empty",
         [this](bool works) { m.server.physics().set_drive(20, works); },
         {{"nvme_temperature.temperature", 12, 255.0f}, {"nvme_temperature.interface", 12, 0.0f}}},
        {"a drive shows 255",
         [&](bool works) { set("nvme4", works); },
         {{"nvme_temperature.temperature", 4, 255.0f},
          {"nvme_temperature.margin", 4, 255.0f},
          {"disk_drive_info.high_temperature", 12, 255.0f}}},
        {"the boot drive shows 255",
         [&](bool works) { set("boot", works); },
         {{"booted_drive_temperature.temperature", 1, 255.0f}, {"booted_drive_temperature.margin", 1, 0.0f}}},
        {"an M.2 drive is not read",
         [&](bool works) { set("m2_2", works); },
         {{"m2_drive_temperature.temperature", 2, 255.0f}, {"m2_drive_temperature.margin", 2, 255.0f}}},
        {"the backplane is pulled",
         [this](bool works) { number(backplane_present_bit).set_value(works ? 1 : 0); },
         {{"disk_drive_backplane_presence.presence", 1, 0.0f}, {"disk_drive_backplane_info.vpdid", 1, 0.0f}}},
        {"a memory module is missing",
         [this](bool works) { number(module_present_bits + 4).set_value(works ? 1 : 0); },
         {{"dimm_presence.presence", 4, 0.0f}, {"dimm_info.capacity", 4, 0.0f}, {"dimm_channel.active", 2, 1.0f}}},
        {"the air speed sensor is silent",
         [this](bool works) {
             port_line& line = *m.server.host().ports.find(airflow_block);
             works ? line.recover() : line.fail_reads();
         },
         {{"airflow.raw", 1, 255.0f}}},
    };
    m.server.run_until(100.0);
    for (const auto& row : rows) {
        SCOPED_TRACE(row.fault);
        std::vector<float> before;
        for (const auto& [key, instance, value] : row.values) {
            before.push_back(m.stored(key, instance));
        }
        const unsigned cycles = m.server.cycles();
        row.works(false);
        m.server.run_for(20 * cycle_s);
        for (const auto& [key, instance, value] : row.values) {
            EXPECT_EQ(m.stored(key, instance), value) << key;
        }
        EXPECT_EQ(m.server.cycles(), cycles + 20) << "no device holds up the others";
        EXPECT_NEAR(m.stored("cpu_temperature.absolute"), m.server.physics().temperature(m.part("cpu1")), 1.0);
        EXPECT_NEAR(m.stored("nvme_temperature.temperature", 1), m.server.physics().temperature(m.part("nvme1")), 1.5);
        row.works(true);
        m.server.run_for(60.0);
        for (std::size_t i = 0; i < row.values.size(); ++i) {
            const auto& [key, instance, value] = row.values[i];
            EXPECT_NEAR(m.stored(key, instance), before[i], 8.0f) << key;
            EXPECT_EQ(m.stored(key, instance) == value, before[i] == value) << key;
        }
    }
    EXPECT_GT(m.stored("cpu_info.bus_fail_count", 2), 0.0f) << "the interface counts what failed";
}

TEST_F(two_sockets, tell_the_power_of_another_processor_once_it_is_read) {
    m.server.run_until(100.0);
    m.server.host().loop.recorded_events().set_capacity(1000);
    const auto reboot = [this](std::uint16_t tdp) {
        readings().set_socket(2, false, true);
        m.server.run_for(5.0);
        readings().socket(2).answers.tdp = tdp;
        readings().set_socket(2, true, true);
        m.server.run_for(10.0);
    };
    reboot(205);
    reboot(205);
    EXPECT_THAT(sent(tdp_ready), testing::ElementsAre(205)) << "the same again is no news";
    EXPECT_THAT(sent(processor_absent), testing::ElementsAre(2, 2));
    EXPECT_THAT(sent(processor_present), testing::ElementsAre(2, 2));
    EXPECT_EQ(m.stored("cpu_info.tdp", 2), 205.0f);
}

TEST_F(two_sockets, drive_the_throttle_pin_while_a_processor_slows_itself_down) {
    m.server.run_until(100.0);
    readings().show_throttle(2, true);
    number(socket_throttle_bits + 2).set_value(0);
    readings().socket(2).answers.throttle_status = 3;
    m.server.physics().set_power(m.part("cpu2"), 900.0);  // hot at once, whatever the fans do
    m.server.run_for(30.0);
    EXPECT_TRUE(m.server.physics().throttles(2));
    EXPECT_EQ(number(socket_throttle_outputs + 2).value(), 1u);
    EXPECT_EQ(number(socket_throttle_outputs + 1).value(), 0u);
    EXPECT_EQ(m.stored("cpu_throttle.fpga_data", 2), 1.0f);
    m.server.physics().set_power(m.part("cpu2"), 55.0);
    m.server.run_for(120.0);
    EXPECT_EQ(number(socket_throttle_outputs + 2).value(), 0u);
    EXPECT_EQ(
        m.server.host().properties.find("/dc/zorm/dm/planar/0/cpu/2/last_throttle_event_peci_status")->get_dword(), 1u);
}

TEST_F(two_sockets, hold_a_fan_calibration_for_the_dust_filter_and_go_back) {
    m.server.run_until(100.0);
    dust_filter_requester& requester = readings().dust_filter();
    requester.request();
    m.server.run_for(25.0);
    EXPECT_EQ(m.stored("airflow.dusk_filter_check"), 1.0f);
    EXPECT_NEAR(m.server.physics().duty(1), 100.0, 0.3);
    m.server.run_for(120.0);
    EXPECT_EQ(requester.measurements(), 1u);
    EXPECT_FALSE(requester.is_waiting());
    EXPECT_EQ(m.stored("airflow.dusk_filter_check"), 0.0f);
    EXPECT_LT(m.server.physics().duty(1), 50.0);
}

TEST_F(two_sockets, grow_nothing_over_an_hour_of_flapping_presence) {
    const auto flap = [this](bool is_there) {
        readings().set_socket(2, is_there, true);
        number(module_present_bits + 4).set_value(is_there ? 1 : 0);
        number(backplane_present_bit).set_value(is_there ? 1 : 0);
        for (const unsigned bay : {3u, 20u}) {
            m.server.physics().set_drive(bay, is_there);
        }
    };
    const auto run = [&](unsigned times) {
        for (unsigned i = 0; i < 2 * times; ++i) {
            flap(i % 2 == 1);
            m.server.run_for(5.0);
        }
    };
    m.server.run_until(100.0);
    run(6);
    const std::size_t keys = m.server.store().key_count();
    const std::size_t events = m.server.host().loop.free_events();
    const allocation_counter allocations;
    run(360);
    EXPECT_EQ(m.server.store().key_count(), keys);
    EXPECT_EQ(m.server.host().loop.free_events(), events);
    EXPECT_EQ(m.server.host().loop.overflows(), 0u);
    EXPECT_EQ(allocations.growth(), 0);
    EXPECT_EQ(m.stored("disk_drive_quantity.quentity"), 24.0f);
}

}  // namespace
