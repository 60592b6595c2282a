#include "sim/server_sensors.hpp"

#include <gmock/gmock.h>

#include "sim/bundled_files.hpp"
#include "sim/simulated_server.hpp"

namespace {

using namespace sim;
using thermal_host::sensor_state;

TEST(server_sensors, follow_the_machine_from_cold_start_through_faults) {
    const temporary_file rules(bundled_rules);
    simulated_server server({.rules = rules.path(), .log_mask = 0});
    server.host().log.set_file(nullptr);
    const auto sensor = [&](std::string_view key) {
        const auto row = std::ranges::find(server_sensors(), key, &server_sensor::map_key);
        return server.host().sensors.find({0, row->number}).value();
    };
    server.run_until(4.0);
    EXPECT_EQ(sensor("INLET").state, sensor_state::no_reading) << "IPMI is not ready";
    server.run_until(100.0);
    for (const auto& each : server.host().sensors.list()) EXPECT_EQ(each.state, sensor_state::ok) << each.name;
    EXPECT_EQ(server.host().sensors.requests().total(), 10u) << "each sensor that takes thresholds was told once";
    EXPECT_EQ(sensor("INLET").value, 25.0f);
    EXPECT_EQ(sensor("INLET").thresholds[3], 38);
    EXPECT_NEAR(sensor("FAN_1").value.value(), server.physics().rpm(1), 100.0);

    server.physics().set_fan(3, false);
    server.physics().set_inlet(43.0);
    server.physics().set_power(server.plan().part("battery"), 30.0);
    server.run_for(120.0);
    EXPECT_EQ(sensor("FAN_3").state, sensor_state::critical);
    EXPECT_EQ(sensor("INLET").state, sensor_state::critical) << "by the thresholds it was given";
    EXPECT_EQ(sensor("RAID_BATTERY").state, sensor_state::non_recoverable) << "by its event ports";
}

}  // namespace
