#include "device/cpu/dimm.hpp"

#include "device/cpu/cpu_agent.hpp"
#include "device/cpu/cpu_channel.hpp"
#include "tests/device/device_fixture.hpp"

namespace {

using utils = common_thermal_utils;

constexpr std::uint8_t first_processor = 0x30;

// A channel of three places behind a running processor, the second place empty.
class dimm_test : public device_test {
protected:
    dimm_test() {
        memory.modules = {40, std::nullopt, 42};
        status.set_stage(utils::dp_ready, true);
        link(processor, {&agent, &status});
        link(channel, {&processor, &places[0], &places[1], &places[2]});
        channel.set_num(3);
        fit({true, false, true});
    }

    void fit(std::initializer_list<bool> fitted) {
        unsigned port = 0;
        for (const bool is_fitted : fitted) {
            host.ports.add_number(port, is_fitted ? 1 : 0);
            places[port].set_port_input(port);
            poll(places[port++]);
        }
    }
    // The channel's `active` after a poll of everything in front of it.
    float poll_channel() {
        poll(agent);
        poll(processor);
        poll(channel);
        return stored("dimm_channel.active");
    }
    std::vector<float> temperatures() const {
        std::vector<float> all;
        for (unsigned place = 0; place <= 4; ++place) all.push_back(channel.get_temperature_by_index(place));
        return all;
    }
    static std::vector<float> between_the_ends(float first, float second, float third) {
        return {-999.0f, first, second, third, -999.0f};
    }

    thermal_host::processor_socket& socket = host.processors.add(host_cpu_vendor::intel, first_processor);
    thermal_host::memory_channel& memory = socket.memory[2];
    common_thermal_device_event_status status{1};
    common_thermal_device_cpu_agent_intel agent{1};
    common_thermal_device_cpu_channel processor{1};
    common_thermal_device_dimm_presence places[3] = {common_thermal_device_dimm_presence(1),
                                                     common_thermal_device_dimm_presence(2),
                                                     common_thermal_device_dimm_presence(3)};
    common_thermal_device_dimm_channel channel{1};
};

TEST_F(dimm_test, channel_asks_for_every_place_and_keeps_the_fitted_ones) {
    EXPECT_EQ(channel.get_temperature_by_index(1), -999.0f) << "no place is known ahead of the first poll";
    EXPECT_EQ(poll_channel(), 1.0f);
    EXPECT_EQ(memory.last_count, 3) << "places, not modules";
    EXPECT_EQ(temperatures(), between_the_ends(40.0f, 0.0f, 42.0f));
    EXPECT_EQ(stored("dimm_channel.channel"), 2.0f);
    EXPECT_EQ(stored("dimm_channel.index_size"), 3.0f);
    EXPECT_EQ(lines_with("dimm_channel::poll() read: 0x30-2@3\n"), 1);
    EXPECT_EQ(lines_with("dimm_channel::poll() show: 0x30-2-"), 2);
    EXPECT_EQ(lines_with("dimm_channel::poll() show: 0x30-2-2=42.00\n"), 1);

    memory.modules = {50, 51, 52};
    fit({false, true, true});
    EXPECT_EQ(poll_channel(), 1.0f);
    EXPECT_EQ(temperatures(), between_the_ends(40.0f, 51.0f, 52.0f)) << "a module that was taken out leaves its last";
}

TEST_F(dimm_test, failing_bus_leaves_the_temperatures_of_an_active_channel) {
    poll_channel();
    memory.modules = {60, 61, 62};
    memory.fail_reads(1);
    EXPECT_EQ(poll_channel(), 1.0f);
    socket.fail_reads(1);
    EXPECT_EQ(poll_channel(), 1.0f);
    EXPECT_EQ(temperatures(), between_the_ends(40.0f, 0.0f, 42.0f));
    EXPECT_EQ(poll_channel(), 1.0f);
    EXPECT_EQ(temperatures(), between_the_ends(60.0f, 0.0f, 62.0f));
}

TEST_F(dimm_test, channel_needs_a_module_and_a_processor) {
    poll_channel();
    status.set_stage(utils::dp_ready, false);
    EXPECT_EQ(poll_channel(), 0.0f);
    EXPECT_EQ(temperatures(), between_the_ends(40.0f, 0.0f, 42.0f));
    status.set_stage(utils::dp_ready, true);
    fit({false, false, false});
    EXPECT_EQ(poll_channel(), 0.0f);
    EXPECT_EQ(memory.reads(), 1u);

    common_thermal_device_dimm_channel alone(2);
    common_thermal_device_cpu_channel agentless(2);
    alone.set_num(0);
    EXPECT_EQ(reading(alone), 0.0f) << "channel 0, without places";
    link(agentless, {&status});
    link(alone, {&agentless, &places[0], &places[1]});
    fit({true, true, true});
    poll(agentless);
    poll(alone);
    EXPECT_EQ(named_values(alone), "channel=0 active=0 index_size=2");
    link(alone, {&processor});
    alone.set_num(1);
    poll(alone);
    EXPECT_EQ(lines_with("read: 0x30-0@2\n"), 1) << "the last processor counts";
}

TEST_F(dimm_test, module_takes_its_place_from_the_last_active_channel) {
    common_thermal_device_dimm_temperature module(7);
    common_thermal_device_dimm_channel idle(2);
    EXPECT_EQ(reading(module), 0.0f);
    link(module, {&channel, &idle});
    EXPECT_EQ(reading(module), 0.0f) << "not polled yet";
    poll_channel();
    EXPECT_EQ(reading(module), -999.0f) << "place 0";
    for (const auto& [place, degrees] : {std::pair{1u, 40.0f}, {2u, 0.0f}, {3u, 42.0f}, {4u, -999.0f}}) {
        module.set_num(place);
        EXPECT_EQ(reading(module), degrees) << place;
    }
    EXPECT_EQ(named_values(module), "temperature=-999 channel_index=4");
    common_thermal_device_dimm_channel later(3);
    socket.memory[3].modules = {77};
    link(later, {&processor, &places[0]});
    later.set_num(4);
    link(module, {&later});
    EXPECT_EQ(told(later, module), "-999 4") << "the last has one place";
    module.set_num(1);
    EXPECT_EQ(told(module), "77 1");
    status.set_stage(utils::dp_ready, false);
    poll_channel();
    EXPECT_EQ(told(later, module), "0 1");
}

TEST_F(dimm_test, channel_that_the_spike_filter_holds_back_is_not_active_for_its_modules) {
    filter("dimm_channel.active", 1);
    EXPECT_EQ(poll_channel(), 0.0f);
    EXPECT_FALSE(channel.is_actived());
    EXPECT_EQ(channel.get_temperature_by_index(1), 40.0f);
    EXPECT_EQ(poll_channel(), 1.0f);
}

TEST_F(dimm_test, info_tells_what_the_firmware_knows_of_a_fitted_module) {
    host.spd.modules[1] = {.size = 32, .type_detail = 0x80};
    common_thermal_device_dimm_info info(2), unknown(3), unnumbered(0);
    EXPECT_EQ(told(info), "0 0") << "nobody says that it is there";
    for (auto* each : {&info, &unknown, &unnumbered}) link(*each, {&places[1], &places[0]});
    EXPECT_EQ(told(info), "128 32");
    EXPECT_EQ(lines_with("common_thermal_device_dimm_info::poll() 2@1\n"), 1);
    EXPECT_EQ(told(unknown), "0 0");
    EXPECT_EQ(told(unnumbered), "0 0");
    fit({false, false, true});
    EXPECT_EQ(told(info), "0 0");

    host.device_paths[dimm_spd_logical_device::path] = &agent;
    common_thermal_device_dimm_info elsewhere(2);
    host.device_paths.clear();
    common_thermal_device_dimm_info without(2);
    fit({true, true, true});
    for (auto* each : {&elsewhere, &without}) {
        link(*each, {&places[1]});
        EXPECT_EQ(told(*each), "0 0");
    }
}

}  // namespace
