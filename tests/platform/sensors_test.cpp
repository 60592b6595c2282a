#include "platform/host/sensors.hpp"

#include "platform/host/host.hpp"
#include "platform/ipmi.hpp"
#include "tests/support/host_fixture.hpp"

namespace {

using namespace thermal_host;
using bytes = std::vector<std::uint8_t>;

class sensors_test : public host_fixture {
protected:
    static int send(bytes request) {
        const auto length = static_cast<std::uint32_t>(request.size());
        std::uint8_t response[52];
        std::uint32_t response_length = 0;
        return send_ipmi_cmd(request.data(), &length, response, &response_length);
    }
    sensor_report sensor() { return host.sensors.find({1, 5}).value(); }
};

TEST_F(sensors_test, shows_reading_and_state_once_its_port_was_written) {
    host.sensors.add({1, 5}, {.name = "fan", .unit = "rpm", .m = 50, .b = -100, .k2 = 0.5f, .output = "out"});
    EXPECT_EQ(sensor().state, sensor_state::no_reading) << "no port";
    auto& line = host.ports.add_number("out");
    EXPECT_FALSE(sensor().value.has_value());
    ASSERT_TRUE(line.store(0) && line.writes() == 1);
    EXPECT_EQ(sensor().value, -200.0f);
    EXPECT_EQ(send({0x20, 4, 1, 0x26, 5, 0x3F, 20, 10, 5, 80, 90, 100}), 0);
    const std::pair<std::uint32_t, sensor_state> rows[] = {
        {5, sensor_state::non_recoverable},  {6, sensor_state::critical},
        {20, sensor_state::non_critical},    {21, sensor_state::ok},
        {80, sensor_state::non_critical},    {99, sensor_state::critical},
        {100, sensor_state::non_recoverable}};
    for (const auto& [raw, state] : rows) {
        line.set_value(raw);
        EXPECT_EQ(sensor().state, state) << raw;
    }
    EXPECT_EQ(sensor().value, 9800.0f);
    EXPECT_EQ(send({0x20, 4, 1, 0x26, 5, 0x20, 1, 2, 3, 4, 5, 200}), 0);
    EXPECT_EQ(sensor().state, sensor_state::critical) << "the mask names one threshold";
    host.sensors.add({1, 5}, {.name = "fan", .unit = "", .output = "out", .events = {1, "critical", 3}});
    host.ports.add_number("critical", 1);
    EXPECT_EQ(sensor().state, sensor_state::critical) << "by its event port";
}

TEST_F(sensors_test, refuses_what_is_no_threshold_command_for_a_known_sensor) {
    host.sensors.add({1, 5}, {.name = "fan", .unit = "rpm", .output = "out"});
    const std::pair<bytes, int> rows[] = {
        {{0x20}, ipmi_invalid_length},
        {{0x20, 4, 1, 0x26, 5, 0x3F, 1, 2, 3, 4, 5}, ipmi_invalid_length},
        {{0x20, 4, 1, 0x26, 5, 0x3F, 1, 2, 3, 4, 5, 6, 7}, ipmi_invalid_length},
        {{0x22, 4, 1, 0x26, 5, 0x3F, 1, 2, 3, 4, 5, 6}, 0xC1},
        {{0x20, 6, 1, 0x26, 5, 0x3F, 1, 2, 3, 4, 5, 6}, 0xC1},
        {{0x20, 4, 1, 0x27, 5, 0x3F, 1, 2, 3, 4, 5, 6}, 0xC1},
        {{0x20, 4, 0, 0x26, 5, 0x3F, 1, 2, 3, 4, 5, 6}, ipmi_unknown_sensor},
        {{0x20, 4, 1, 0x26, 6, 0x3F, 1, 2, 3, 4, 5, 6}, ipmi_unknown_sensor},
    };
    for (const auto& [request, code] : rows) {
        EXPECT_EQ(send(request), code) << request.size();
    }
    EXPECT_NE(send_ipmi_cmd(nullptr, nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(sensor().thresholds, sensor_thresholds{});
    EXPECT_EQ(host.sensors.requests().total(), std::size(rows));
}

}  // namespace
