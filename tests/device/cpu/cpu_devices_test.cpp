#include <functional>

#include "device/cpu/cpu_agent.hpp"
#include "device/cpu/cpu_channel.hpp"
#include "device/cpu/cpu_info.hpp"
#include "device/cpu/cpu_power.hpp"
#include "device/cpu/cpu_temperature.hpp"
#include "device/cpu/cpu_throttle.hpp"
#include "device/cpu/fpga_cpu.hpp"
#include "foundation/log_masks.hpp"
#include "tests/device/device_fixture.hpp"

namespace {

using utils = common_thermal_utils;

// FPGA register of a socket; both bits are low-active.
constexpr std::uint32_t enabled = 0x10, gone = 0x18, disabled_in_setup = 0x00;

// One socket with all its devices, on a running host.
class processor_test : public device_test {
protected:
    processor_test() {
        host.loop.recorded_events().set_capacity(64);
        fpga.set_port_input(1u);
        throttle.set_port_input(2u);
        throttle.set_port_output(3u);
        link(presence, {&fpga});
        link(disabled, {&fpga});
        link(channel, {&agent, &presence, &disabled, &stages});
        link(info, {&channel});
        link(temperature, {&channel});
        link(throttle, {&channel});
        link(power, {&channel, &info});
        stages.set_stage(utils::dp_ready, true);
    }

    void cycle(int times = 1) {
        for (int i = 0; i < times; ++i) {
            for (common_thermal_device* device : all) poll(*device);
            host.loop.run_pending();
        }
    }

    // Signals published since the last call: "85 95(200)" for a presence and a TDP of 200 W.
    std::string signals() {
        std::string text;
        for (const auto& entry : host.loop.recorded_events().entries()) {
            text += (text.empty() ? "" : " ") + std::to_string(entry.event.sig);
            text += entry.event.sig == 95 ? "(" + std::to_string(entry.event.data_word) + ")" : "";
        }
        host.loop.recorded_events().clear();
        return text;
    }

    float info_value(const std::string& word) const { return stored("cpu_info." + word); }

    thermal_host::processor_socket& socket = host.processors.add(host_cpu_vendor::intel, 0x30);
    logical_device& tree_device = host.devices.add(3, 1, 0xCAFE0001);
    thermal_host::number_line& fpga_register = host.ports.add_number(1u, enabled);
    thermal_host::number_line& throttle_pin = host.ports.add_number(2u);
    thermal_host::number_line& event_pin = host.ports.add_number(3u);
    common_thermal_device_event_status stages{1};
    common_thermal_device_fpga_one_cpu_info fpga{1};
    common_thermal_device_cpu_presence presence{1};
    common_thermal_device_cpu_disabled disabled{1};
    common_thermal_device_cpu_agent_intel agent{1};
    common_thermal_device_cpu_channel channel{1};
    common_thermal_device_cpu_info info{1};
    common_thermal_device_cpu_temperature temperature{1};
    common_thermal_device_cpu_power power{1};
    common_thermal_device_cpu_throttle throttle{1};
    const std::vector<common_thermal_device*> all{&stages,  &fpga, &presence,    &disabled, &agent,
                                                  &channel, &info, &temperature, &power,    &throttle};
};

TEST_F(processor_test, boot_is_followed_stage_by_stage) {
    stages.set_stage(utils::dp_ready, false);
    fpga_register.set_value(gone);
    // What changes, then: channel active, absolute temperature, TDP, presence and the signals sent.
    const std::tuple<const char*, std::function<void()>, float, float, float, float, const char*> steps[] = {
        {"cold, no processor", [] {}, 0, 30, 0, 0, "84"},
        {"fitted", [&] { fpga_register.set_value(enabled); }, 0, 30, 0, 1, "85"},
        {"data path up", [&] { stages.set_stage(utils::dp_ready, true); }, 1, 50, 200, 1, "95(200)"},
        {"disabled", [&] { fpga_register.set_value(disabled_in_setup); }, 0, 30, 200, 1, ""},
        {"enabled", [&] { fpga_register.set_value(enabled); }, 1, 50, 200, 1, ""},
        {"host error", [&] { stages.set_stage(utils::cpu_feh, true); }, 0, 30, 200, 1, ""},
        {"cleared", [&] { stages.set_stage(utils::cpu_feh, false); }, 1, 50, 200, 1, ""},
        {"pulled", [&] { fpga_register.set_value(gone); }, 0, 30, 200, 0, "84"},
        {"fitted again", [&] { fpga_register.set_value(enabled); }, 1, 50, 200, 1, "85"},
    };
    for (const auto& [name, change, actived, absolute, tdp, present, sent] : steps) {
        change();
        cycle(3);
        EXPECT_EQ(stored("cpu_channel.actived"), actived) << name;
        EXPECT_EQ(stored("cpu_temperature.absolute"), absolute) << name;
        EXPECT_EQ(info_value("tdp"), tdp) << name;
        EXPECT_EQ(stored("cpu_presence.presence"), present) << name;
        EXPECT_EQ(signals(), sent) << name;
    }
}

TEST_F(processor_test, signals_carry_what_the_firmware_looks_for) {
    cycle();
    const auto entries = host.loop.recorded_events().entries();
    ASSERT_EQ(entries.size(), 2u);
    const bmc_event& present = entries[0].event;
    EXPECT_EQ(present.data_dword0, 1u);
    EXPECT_EQ(present.data_dword1, 0xCAFE0001u);
    EXPECT_EQ(present.data_word, 0u);
    EXPECT_EQ(present.data_byte0, 3u);
    EXPECT_EQ(present.data_byte1, 1u);
    const bmc_event& tdp = entries[1].event;
    EXPECT_EQ(tdp.data_dword0 + tdp.data_dword1 + tdp.data_byte0 + tdp.data_byte1, 0u);
    EXPECT_EQ(take_lines(log_mask::processor),
              (text_lines{"common_thermal_device_cpu_channel::send_CPU_presence_signal[1][1]\n",
                          "common_thermal_device_cpu_info::send_CPU_tdp_ready_signal[1]\n",
                          "common_thermal_device_cpu_temperature::poll() cpu: 0x30  rel_temp=-45.00\n",
                          "common_thermal_device_cpu_temperature::poll() cpu: 0x30  abs_temp=50.00\n"}));
}

TEST_F(processor_test, presence_change_without_a_tree_device_is_lost) {
    host.devices.remove(3, 1);
    cycle();
    EXPECT_EQ(signals(), "95(200)");
    host.devices.add(3, 1, 7);
    cycle();
    EXPECT_EQ(signals(), "");
    channel.send_CPU_presence_signal(false);
    EXPECT_EQ(signals(), "84");
}

TEST_F(processor_test, channel_signals_after_each_presence_what_holds_so_far) {
    common_thermal_device_cpu_presence empty(2);
    link(channel, {&empty});
    cycle(2);
    EXPECT_EQ(signals(), "85 84 85 84");
    common_thermal_device_cpu_channel other(2);
    host.devices.add(3, 2, 8);
    link(other, {&agent, &empty, &presence, &stages});
    poll(other, 2);
    EXPECT_EQ(signals(), "84");
    EXPECT_FALSE(other.is_actived());
}

TEST_F(processor_test, channel_and_its_live_answer_can_differ) {
    cycle();
    EXPECT_TRUE(channel.is_actived());
    stages.set_stage(utils::dp_ready, false);
    EXPECT_FALSE(channel.is_actived()) << "at once";
    EXPECT_EQ(channel.debug(), "\ncommon_thermal_device_cpu_channel.actived.1=1.000000") << "with the next poll";

    common_thermal_device_cpu_channel blind(2), lost(3);
    link(blind, {&agent});
    EXPECT_EQ(reading(blind), 1.0f);
    EXPECT_FALSE(blind.is_actived()) << "no boot stages to ask";
    link(lost, {&stages, &presence});
    EXPECT_EQ(reading(lost), 0.0f) << "no agent";
    EXPECT_EQ(lost.get_host_cpu_channel(), nullptr);
}

TEST_F(processor_test, last_channel_decides_alone) {
    common_thermal_device_cpu_channel idle(2);
    common_thermal_device_cpu_temperature both(2);
    link(both, {&channel, &idle});
    cycle();
    EXPECT_EQ(reading(both), -68.0f);
    link(both, {&channel});
    EXPECT_EQ(reading(both), -45.0f);
}

TEST_F(processor_test, agents_find_their_address_once) {
    // Instance, port and its value, reads that fail; the address.
    const std::tuple<int, std::uint32_t, std::uint32_t, unsigned, int> rows[] = {
        {2, 8, 0x0B, 0, 0x31},  // unbound
        {2, 9, 0x0B, 0, 0x33},
        {4, 9, 0xFFFFFFF8, 0, 0x30},
        {3, 9, 0x0B, 1, 0x32}};  // failing once is final
    for (const auto& [instance, port, value, failing, address] : rows) {
        common_thermal_device_cpu_agent_intel each(instance);
        auto& line = host.ports.add_number(port, value);
        line.fail_reads(failing);
        each.set_port_input(9u);
        EXPECT_EQ(each.get_host_cpu_address(), 0);
        poll(each);
        line.set_value(5);
        poll(each);
        EXPECT_EQ(each.get_host_cpu_address(), address) << instance << " at " << port;
    }
    EXPECT_EQ(common_thermal_device_cpu_agent_amd(2).get_host_cpu_address(), 1);
    EXPECT_EQ(agent.get_host_cpu_channel()->vendor(), host_cpu_vendor::intel);
}

TEST_F(processor_test, second_vendor_takes_the_channel_over_in_either_order) {
    host.processors.add(host_cpu_vendor::amd, 0).answers.relative_temperature = -12.0f;
    common_thermal_device_cpu_agent_amd other(1);
    link(channel, {&other});
    cycle();
    EXPECT_EQ(stored("cpu_temperature.relative"), -12.0f);
    common_thermal_device_cpu_channel turned(2);
    link(turned, {&other, &agent});
    poll(turned);
    EXPECT_EQ(turned.get_host_cpu_channel(), other.get_host_cpu_channel());
    EXPECT_EQ(turned.get_host_cpu_address(), 0);
}

TEST_F(processor_test, facts_are_read_until_they_are_known) {
    socket.fail_reads(6);
    socket.tjmax_zero_reads = 2;
    cycle();
    EXPECT_EQ(info_value("family"), 255.0f);
    EXPECT_EQ(info_value("bus_fail_count"), 6.0f);
    socket.fail_reads(1);
    cycle();
    EXPECT_EQ(info_value("family"), 255.0f);
    EXPECT_EQ(info_value("type"), 143.0f) << "does not wait for the family";
    EXPECT_EQ(info_value("tjmax"), 0.0f);
    cycle(2);
    EXPECT_EQ(named_values(info), "family=6 type=143 power=3 energy=14 tjmax=95 tdp=200 cores=32 bus_fail_count=7");
    const unsigned accesses = socket.reads();
    poll(info, 3);
    EXPECT_EQ(socket.reads(), accesses) << "nothing is left to ask";
}

TEST_F(processor_test, next_boot_rereads_all_but_the_cores) {
    auto& tdp_line = host.ports.add_number("CPU1_TDP");
    socket.tdp_of_next_boots = {200, 165, 0};
    cycle();
    EXPECT_EQ(tdp_line.value(), 200u);
    EXPECT_EQ(signals(), "85 95(200)");
    const std::tuple<const char*, std::uint32_t, float> boots[] = {{"", 200, 200}, {"95(165)", 165, 165}, {"", 165, 0}};
    for (const auto& [signal, written, tdp] : boots) {
        socket.hold();
        stages.set_stage(utils::dp_ready, false);
        cycle(2);
        EXPECT_EQ(info_value("tjmax"), 95.0f) << "kept";
        socket.release();
        socket.answers.cores = 16;
        stages.set_stage(utils::dp_ready, true);
        cycle(2);
        EXPECT_EQ(signals(), signal);
        EXPECT_EQ(tdp_line.value(), written);
        EXPECT_EQ(info_value("tdp"), tdp);
        EXPECT_EQ(info_value("cores"), 32.0f);
    }
}

TEST_F(processor_test, a_silent_processor_keeps_its_temperatures_and_loses_its_power) {
    cycle();
    socket.answers = {.relative_temperature = -5.0f, .absolute_temperature = 90.0f, .margin = 4.0f};
    const std::function<void()> silences[] = {[&] { socket.fail_reads(); }, [&] { socket.hold(); },
                                              [&] { socket.is_present = false; }};
    for (const auto& silence : silences) {
        silence();
        cycle();
        EXPECT_EQ(named_values(temperature), "relative=-45 absolute=50 margin=45");
        EXPECT_EQ(stored("cpu_power.average_power"), 0.0f);
        socket.recover();
        socket.release();
        socket.is_present = true;
    }
    const auto relative_after = [this](float relative) {
        socket.answers.relative_temperature = relative;
        cycle();
        return temperature.get_relative();
    };
    EXPECT_EQ(relative_after(0.0f), 0.0f);
    EXPECT_EQ(temperature.get_absolute(), 90.0f);
    EXPECT_EQ(relative_after(-5.0f), -5.0f);
    agent.set_ignore_dts_zero_reads();
    EXPECT_EQ(relative_after(0.0f), -5.0f);
}

TEST_F(processor_test, power_is_a_share_of_the_tdp) {
    const auto average_after = [this](float watts) {
        socket.answers.average_power = watts;
        cycle();
        return stored("cpu_power.average_power_avg_ratio");
    };
    EXPECT_EQ(average_after(100.0f), 0.0f) << "the first only seeds";
    EXPECT_EQ(stored("cpu_power.average_power_ratio"), 0.5f);
    EXPECT_EQ(average_after(180.0f), (0.9f + 19.0f * 0.5f) / 20.0f);
    socket.fail_reads();
    EXPECT_EQ(average_after(20.0f), 0.52f);
    socket.recover();
    EXPECT_EQ(average_after(std::nanf("")), 0.52f);
    EXPECT_EQ(stored("cpu_power.average_power_ratio"), 0.0f);
    power.set_avg_count(0);
    EXPECT_EQ(average_after(40.0f), 0.2f);
    EXPECT_EQ(lines_with("common_thermal_device_cpu_power::poll - val(0.200000), val_avg(0.200000), avg_cnt(1)\n"), 1);

    common_thermal_device_cpu_power alone(2);
    link(alone, {&channel});
    poll(alone);
    EXPECT_EQ(stored("cpu_power.average_power_ratio", 2), 40.0f / 999.0f);
}

TEST_F(processor_test, power_without_a_tdp_has_no_share) {
    socket.answers.tdp = 0;
    cycle(2);
    EXPECT_EQ(stored("cpu_power.average_power"), 100.0f);
    EXPECT_EQ(stored("cpu_power.average_power_ratio"), 0.0f);
    EXPECT_EQ(stored("cpu_power.average_power_avg_ratio"), 0.0f);
    EXPECT_EQ(signals(), "85");
}

TEST_F(processor_test, throttling_drives_the_event_pin_while_the_processor_can_be_asked) {
    // Active, throttle pin, status of the processor, whether it answers; the event pin and the reason kept.
    const std::tuple<bool, bool, std::uint32_t, bool, bool, float> rows[] = {
        {true, false, 0, true, false, 0},  {true, true, 0, true, true, 0},   {true, false, 3, true, true, 3},
        {true, false, 9, false, false, 3}, {true, true, 9, false, true, 3},  {true, true, 9, true, true, 9},
        {false, true, 9, true, false, 9},  {true, false, 8, true, false, 8}, {true, false, 5, true, true, 5},
        {true, false, 5, true, true, 5},   {true, false, 4, true, false, 4}};
    cycle();
    int row = 0;
    for (const auto& [active, pin, status, answers, event, reason] : rows) {
        stages.set_stage(utils::dp_ready, active);
        throttle_pin.set_value(pin ? 1 : 0);
        poll(channel);
        socket.answers.throttle_status = status;
        socket.fail_reads(answers ? 0 : 1);
        poll(throttle);
        EXPECT_EQ(event_pin.value() != 0, event) << row;
        EXPECT_EQ(stored("cpu_throttle.fpga_data"), pin ? 1.0f : 0.0f) << row;
        EXPECT_EQ(stored("cpu_throttle.throttle_reason"), reason) << row++;
    }
    const auto* last = host.properties.find("/dc/zorm/dm/planar/0/cpu/1/last_throttle_event_peci_status");
    ASSERT_NE(last, nullptr);
    EXPECT_EQ(last->get_dword(), 5u) << "a quiet status leaves the last event";
}

TEST_F(processor_test, throttle_edges_are_errors_told_once) {
    const auto edges = [this](std::uint32_t status, std::uint32_t pin) {
        socket.answers.throttle_status = status;
        throttle_pin.set_value(pin);
        take_lines(0);
        cycle(3);
        return take_lines(0);
    };
    const std::string cpu = "common_thermal_device_cpu_throttle: CPU throttle";
    const std::string pin = "common_thermal_device_cpu_throttle: FPGA throttle";
    EXPECT_EQ(edges(0x1F, 1), (text_lines{pin + "[1]\n", cpu + "[1F]\n"}));
    EXPECT_EQ(edges(0x1E, 1), (text_lines{cpu + "[1E]\n"}));
    EXPECT_EQ(edges(0x1F, 0), (text_lines{pin + "[0]\n", cpu + "[1F]\n"}));
    stages.set_stage(utils::dp_ready, false);
    EXPECT_EQ(edges(0x1F, 0), text_lines()) << "forgotten without a word";
    stages.set_stage(utils::dp_ready, true);
    EXPECT_EQ(edges(0x1F, 0), (text_lines{cpu + "[1F]\n"}));
    socket.fail_reads();
    EXPECT_EQ(edges(0x1F, 0), text_lines());
    cycle();
    EXPECT_EQ(take_lines(log_mask::life_cycle), (text_lines{"common_thermal_device_cpu_throttle::poll - 1, 0x0\n"}));
    socket.recover();
    EXPECT_EQ(edges(0x1F, 0), text_lines()) << "silence is no edge";
    cycle();
    EXPECT_EQ(take_lines(log_mask::life_cycle), (text_lines{"common_thermal_device_cpu_throttle::poll - 1, 0x1f\n"}));
}

TEST_F(processor_test, keyed_throttle_pin_that_falls_leaves_only_the_published_value) {
    auto& keyed = host.ports.add_number("THROTTLE_N", 1);
    throttle.set_port_input("THROTTLE_N");
    cycle();
    EXPECT_EQ(event_pin.value(), 1u);
    keyed.set_value(0);
    cycle();
    EXPECT_EQ(event_pin.value(), 0u);
    EXPECT_EQ(stored("cpu_throttle.fpga_data"), 1.0f);
}

TEST_F(processor_test, filters_hold_first_jumps_back_except_from_the_fpga) {
    fpga_register.set_value(gone);
    cycle();
    const auto holds = [this](common_thermal_device& device, const std::string& name) {
        filter(name, 0.5f);
        poll(device);
        const float first = stored(name);
        poll(device);
        return stored(name) != first;
    };
    fpga_register.set_value(enabled);
    EXPECT_FALSE(holds(fpga, "fpga_one_cpu_info.fpga_cpu_present"));
    EXPECT_TRUE(holds(presence, "cpu_presence.presence"));
    poll(disabled);
    EXPECT_TRUE(holds(channel, "cpu_channel.actived"));
    EXPECT_TRUE(holds(temperature, "cpu_temperature.absolute"));
    EXPECT_TRUE(holds(power, "cpu_power.average_power"));
    throttle_pin.set_value(1);
    EXPECT_TRUE(holds(throttle, "cpu_throttle.fpga_data"));
    throttle_pin.set_value(0);
    stages.set_stage(utils::dp_ready, false);
    poll(throttle);
    throttle_pin.set_value(1);
    EXPECT_FALSE(holds(throttle, "cpu_throttle.fpga_data")) << "not while the processor cannot be asked";
}

TEST_F(processor_test, fpga_that_does_not_answer_says_present_and_disabled) {
    common_thermal_device_fpga_one_cpu_info unbound(2);
    poll(unbound);
    EXPECT_TRUE(std::isnan(stored("fpga_one_cpu_info.fpga_cpu_present", 2)));
    EXPECT_TRUE(disabled.is_disabled()) << "until the first poll";
    cycle();
    EXPECT_FALSE(disabled.is_disabled());
    fpga_register.fail_reads(1);
    cycle();
    EXPECT_EQ(named_values(fpga), "fpga_cpu_info=0 fpga_cpu_present=1 fpga_cpu_disable=1");
    EXPECT_TRUE(presence.is_presence() && disabled.is_disabled());
}

TEST_F(processor_test, devices_that_nothing_is_linked_to_publish_their_rest) {
    common_thermal_device_cpu_presence lone_presence(7);
    common_thermal_device_cpu_disabled lone_disabled(7);
    common_thermal_device_cpu_info lone_info(7);
    common_thermal_device_cpu_temperature lone_temperature(7);
    common_thermal_device_cpu_power lone_power(7);
    common_thermal_device_cpu_throttle lone_throttle(7);
    const std::pair<common_thermal_device*, float> rows[] = {{&lone_presence, 0.0f},
                                                             {&lone_disabled, 0.0f},
                                                             {&lone_info, 255.0f},
                                                             {&lone_power, 0.0f},
                                                             {&lone_throttle, 0.0f}};
    for (const auto& [device, rest] : rows) EXPECT_EQ(reading(*device), rest) << device->get_name();
    poll(lone_temperature);
    EXPECT_EQ(named_values(lone_temperature), "relative=-68 absolute=30 margin=68");
}

}  // namespace
