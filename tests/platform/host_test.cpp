#include "platform/host/host.hpp"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/clock.hpp"
#include "platform/devices.hpp"
#include "platform/enclosure.hpp"
#include "platform/host_settings.hpp"
#include "platform/inventory.hpp"
#include "platform/log.hpp"
#include "platform/software_events.hpp"

namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;
namespace files = std::filesystem;

class host : public testing::Test {
public:
    host() : _directory(files::temp_directory_path() / ("thermal_host_test." + std::to_string(::getpid()))) {
        files::create_directories(_directory);
        quiet(_host);
    }
    ~host() override { files::remove_all(_directory); }

protected:
    static void quiet(thermal_host::platform& platform) {
        platform.log.set_file(nullptr);
        platform.log.captured().set_capacity(16);
    }
    std::string file(const std::string& name) const { return _directory / name; }
    std::string write_file(const std::string& name, const std::string& content) const {
        std::ofstream(file(name)) << content;
        return file(name);
    }
    static std::string read_file(const std::string& path) {
        std::ostringstream content;
        content << std::ifstream(path).rdbuf();
        return content.str();
    }

    files::path _directory;
    thermal_host::platform _host{{.virtual_time = true}};
};

TEST_F(host, virtual_time_moves_from_one_due_time_to_the_next_and_equal_times_keep_their_order) {
    std::vector<std::string> order;
    const auto note = [&](const char* name) {
        return [this, &order, name] { order.push_back(name + std::to_string(_host.clock.now() / 1ms)); };
    };
    _host.loop.at(30ms, note("once "));
    const unsigned heat = _host.loop.call_every(20ms, note("heat "));
    _host.loop.call_every(40ms, [&] { _host.loop.cancel(heat); });
    _host.loop.at(20ms, note("second "));
    EXPECT_TRUE(_host.loop.step());
    EXPECT_THAT(order, ElementsAre("heat 20", "second 20"));
    EXPECT_TRUE(_host.loop.run_until(1h));
    EXPECT_EQ(_host.clock.now(), 1h);
    EXPECT_THAT(order, ElementsAre("heat 20", "second 20", "once 30", "heat 40"));
}

TEST_F(host, clocks_can_be_set_back_and_made_to_fail) {
    std::uint64_t seconds = 5;
    const std::int64_t wall = platform_clock::wall_nanoseconds();
    _host.clock.set_wall_nanoseconds(wall - 3'600'000'000'000);
    _host.clock.fail_monotonic(1);
    EXPECT_FALSE(platform_clock::monotonic_seconds(seconds));
    EXPECT_EQ(seconds, 5u);
    EXPECT_TRUE(platform_clock::monotonic_seconds(seconds));
    _host.loop.run_for(10s);
    EXPECT_EQ(platform_clock::wall_nanoseconds(), wall - 3'590'000'000'000);
}

TEST_F(host, events_that_do_not_fit_are_dropped_and_counted_and_strays_refused) {
    EXPECT_EQ(QF::new_(33, 1), nullptr);
    EXPECT_EQ(QF::new_(3, 1), nullptr);
    thermal_host::platform small({.virtual_time = true, .event_pool = 3, .event_queue = 2});
    quiet(small);
    small.loop.recorded_events().set_capacity(8);
    for (int i = 0; i < 3; ++i) {
        EM::postFIFO(storage_controller, QF::new_(20, 317));
    }
    EXPECT_EQ(small.loop.overflows(), 1u);
    EXPECT_EQ(small.loop.free_events(), 1u);
    bmc_event stray;
    QF::publish_(&stray, "stray");
    QEvent* twice = QF::new_(20, 317);
    small.loop.run_pending();
    QF::publish_(twice, "sender");
    small.loop.run_pending();
    QF::publish_(twice, "sender");
    QF::publish_(nullptr, nullptr);
    EXPECT_EQ(small.loop.free_events(), 3u);
    const auto events = small.loop.recorded_events().entries();
    ASSERT_EQ(events.size(), 4u);
    EXPECT_EQ(events[0].receiver, storage_controller);
    EXPECT_EQ(events[3].receiver, thermal_host::recorded_event::published);
    EXPECT_STREQ(events[3].sender, "sender");
}

TEST_F(host, real_time_sleeps_wakes_for_other_threads_and_stops_on_a_signal) {
    static thermal_host::event_loop* loop = nullptr;
    thermal_host::platform real;
    quiet(real);
    loop = &real.loop;
    std::signal(SIGUSR1, [](int) { loop->stop(); });
    const std::thread::id loop_thread = std::this_thread::get_id();
    std::thread::id handler_thread;
    IPMI::register_command({7, 0x3A, 0}, [&](ipmi_message&) -> std::uint8_t {
        handler_thread = std::this_thread::get_id();
        throw std::runtime_error("a handler's fault");
    });
    std::uint8_t code = 0;
    std::thread client([&] {
        code = real.ipmi.request({7, 0x3A, 0}, {}).get().completion_code;
        std::this_thread::sleep_for(50ms);
        std::raise(SIGUSR1);
    });
    const std::clock_t cpu_before = std::clock();
    real.loop.run();
    client.join();
    std::signal(SIGUSR1, SIG_DFL);
    loop = nullptr;
    EXPECT_LT(std::clock() - cpu_before, CLOCKS_PER_SEC / 25);
    EXPECT_EQ(code, thermal_host::ipmi_unspecified_error);
    EXPECT_EQ(handler_thread, loop_thread);
    const auto start = real.clock.now();
    EXPECT_TRUE(real.loop.run_for(20ms));
    EXPECT_GE(real.clock.now() - start, 20ms);
}

TEST_F(host, a_watched_descriptor_that_can_be_read_runs_its_work_in_real_time_until_it_is_unwatched) {
    int ends[2];
    ASSERT_EQ(::pipe(ends), 0);
    ASSERT_EQ(::write(ends[1], "x", 1), 1);
    thermal_host::platform real;
    unsigned ran = 0;
    real.loop.watch(ends[0], [&] {
        if (++ran == 3) real.loop.unwatch(ends[0]);
    });
    _host.loop.watch(ends[0], [&] { ran = 100; });
    unsigned ticks = 0;
    real.loop.call_every(1ms, [&] { ++ticks; });
    real.loop.run_for(20ms);
    _host.loop.run_for(1s);
    EXPECT_EQ(ran, 3u);
    EXPECT_GT(ticks, 1u);
    ::close(ends[0]);
    ::close(ends[1]);
}

TEST_F(host, a_hwmon_tree_is_read_and_written_in_the_units_of_the_ports) {
    int status = 61;
    integer_port temperature("temperature.1");
    integer_port duty("duty.1");
    temperature.assign(1);
    duty.assign(2);
    const std::string input = write_file("temp1_input", "45678\n");
    _host.ports.add_file(1, input, {1000, 1});
    _host.ports.add_file(2, write_file("pwm1", "255\n"), {255, 100});
    EXPECT_EQ(temperature.accessor()->read(status), 46u);
    EXPECT_EQ(duty.accessor()->read(status), 100u);
    duty.accessor()->write(50, status);
    EXPECT_EQ(status, port_status_success);
    EXPECT_EQ(read_file(file("pwm1")), "128\n");
    write_file("temp1_input", "-5000\n");
    EXPECT_EQ(temperature.accessor()->read(status), 0u);
    EXPECT_EQ(status, port_status_success);
    for (const char* garbage : {"", "\n", "12 34\n", "0x20\n", "99999999999999\n", "18446744073709551616\n"}) {
        write_file("temp1_input", garbage);
        temperature.accessor()->read(status);
        EXPECT_NE(status, port_status_success) << garbage;
    }
    files::remove(input);
    temperature.accessor()->read(status);
    EXPECT_NE(status, port_status_success);
    temperature.accessor()->write(1, status);
    EXPECT_NE(status, port_status_success);
    EXPECT_FALSE(files::exists(input));
}

TEST_F(host, lines_fail_as_scripted_count_accesses_and_blocks_have_positions_of_their_own_size) {
    std::uint32_t value = 0;
    logical_device device(nullptr, "device", "device", true);
    cio_integer_port port(device, "");
    port.assign("LINE");
    auto& line = _host.ports.add_number("LINE", 5);
    line.fail_reads(2);
    EXPECT_NE(port.read(&value), 0);
    EXPECT_EQ(port.write(6), 0);
    EXPECT_NE(port.read(&value), 0);
    EXPECT_EQ(port.read(&value), 0);
    EXPECT_EQ(value, 6u);
    EXPECT_EQ(line.reads(), 3u);
    EXPECT_EQ(line.writes(), 1u);

    std::uint8_t half[64] = {9};
    std::uint8_t answer[2] = {};
    cio_block_port fan(device, "");
    fan.assign("FAN");
    EXPECT_FALSE(port.key() == fan.key() || fan.is_bound());
    auto& block = _host.ports.add_block("FAN", std::vector<std::uint8_t>(128), 16);
    fan.seek(4);
    EXPECT_EQ(fan.write(half, sizeof(half)), 0);
    EXPECT_EQ(block.bytes()[64], 9);
    EXPECT_NE(fan.write_read(half, 1, answer, 2, false, 0), 0);
    block.set_script([](const std::uint8_t* out, std::uint32_t, std::uint8_t* in, std::uint32_t, int&) {
        in[0] = static_cast<std::uint8_t>(out[0] + 1);
        return 1u;
    });
    EXPECT_EQ(fan.write_read(half, 1, answer, 2, false, 0), 0);
    EXPECT_EQ(answer[0], 10);
    port.assign("FAN");
    EXPECT_FALSE(port.is_bound()) << "an integer port has no use for a block";
}

TEST_F(host, ports_outlive_the_host_that_served_them) {
    integer_port port("port.1");
    port.assign(1);
    QTimeEvt timer(176);
    int status = 61;
    for (std::uint32_t round = 0; round < 2; ++round) {
        {
            thermal_host::platform next({.virtual_time = true});
            next.ports.add_number(1, round);
            EXPECT_EQ(port.accessor()->read(status), round);
        }
        EXPECT_EQ(port.accessor(), nullptr);
        timer.arm_(nullptr, 1);
        EXPECT_EQ(QF::new_(20, 1), nullptr);
        EXPECT_EQ(DM::get_property("/ac/any"), nullptr);
        EXPECT_NE(kpl_logical_device::set_cooling_value(1), 0);
        EXPECT_NE(sw_msg_dispatcher(power_limit_within_event, nullptr), 0);
        DM::del_property("/ac/any");
        LOG::err(2, "to nobody\n");
    }
}

TEST_F(host, properties_survive_a_restart_and_an_equal_value_is_not_written) {
    const std::string path = file("properties");
    const std::uint8_t bytes[] = {0x0A, 0xFF};
    {
        thermal_host::platform first({.virtual_time = true});
        quiet(first);
        first.open_properties(path);
        EXPECT_FALSE(bmc_property::create("/ac/two words", std::uint8_t{1}, property_flags));
        EXPECT_FALSE(bmc_property::create("/ac/no_bytes", nullptr, 1, property_flags));
        EXPECT_TRUE(bmc_property::create("/ac/new", std::uint8_t{1}, property_flags));
        EXPECT_TRUE(bmc_property::create("/ac/gone", std::uint32_t{~0u}, property_flags));
        EXPECT_TRUE(bmc_property::create("/ac/bytes", bytes, 2, property_flags));
        EXPECT_FALSE(DM::get_property("/ac/new")->set(std::uint16_t{256}, property_flags, property_notify));
        EXPECT_FALSE(files::exists(path));
        first.loop.run_for(5s);
        EXPECT_EQ(read_file(path),
                  "thermal properties 1\n/ac/bytes block 0aff\n/ac/gone dword 4294967295\n/ac/new byte 1\nend 3\n");
        files::remove(path);
        DM::get_property("/ac/new")->set(std::uint8_t{1}, property_flags, property_notify);
        DM::get_property("/ac/bytes")->set(bytes, 2, property_flags, property_notify);
        DM::del_property("/ac/unknown");
        first.loop.run_for(60s);
        EXPECT_FALSE(files::exists(path)) << "an equal value was written";
        DM::get_property("/ac/bytes")->set(bytes + 1, 1, property_flags, property_notify);
        DM::del_property("/ac/gone");
    }
    EXPECT_EQ(read_file(path), "thermal properties 1\n/ac/bytes block ff\n/ac/new byte 1\nend 2\n");
    thermal_host::property_store again;
    again.open(path);
    EXPECT_TRUE(again.flush());
    EXPECT_EQ(again.find("/ac/new")->get_byte(), 1);
    EXPECT_EQ(again.find("/ac/bytes")->get_block()[tlv1::header_size], 0xFF);
}

TEST_F(host, a_torn_or_foreign_property_file_is_kept_aside_and_nothing_of_it_is_used) {
    const std::string head = "thermal properties 1\n/ac/kept word 7\n";
    const std::string whole = head + "/ac/block block 0a1b\nend 2\n";
    std::vector<std::pair<std::string, unsigned>> texts = {
        {"/ac/kept word 7\nend 1\n", 1},
        {"thermal properties 2\n/ac/kept word 7\nend 1\n", 1},
        {head + "end 2\n", 3},
        {head + "end 1 \n", 3},
        {head + "end 1\n\n", 3},
        {head + "\nend 1\n", 3},
        {head + "/ac/x byte\nend 2\n", 3},
        {head + "/ac/x 5\nend 2\n", 3},
        {head + "/ac/x byte 256\nend 2\n", 3},
        {head + "/ac/x dword -1\nend 2\n", 3},
        {head + "/ac/x word 0x10\nend 2\n", 3},
        {head + "/ac/x byte 1 2\nend 2\n", 3},
        {head + "/ac/kept word 7\nend 2\n", 3},
        {head + "/ac/x block 0a1\nend 2\n", 3},
        {head + "/ac/x block 0g\nend 2\n", 3},
        {head + "/ac/x block " + std::string(512, '0') + "\nend 2\n", 3},
        {head + std::string("/ac/\0x byte 1\nend 2\n", 20), 3},
    };
    for (std::size_t size = 0; size < whole.size(); ++size) texts.emplace_back(whole.substr(0, size), 0);
    for (const auto& [text, line] : texts) {
        const std::string path = write_file("properties", text);
        thermal_host::property_store store;
        _host.log.captured().clear();
        store.open(path);
        const auto lines = _host.log.captured().entries();
        ASSERT_EQ(lines.size(), 2u) << text;
        EXPECT_THAT(lines[0].text, testing::StartsWith(path + ":" + (line != 0 ? std::to_string(line) + ": " : "")))
            << text;
        EXPECT_EQ(store.find("/ac/kept"), nullptr) << text;
        EXPECT_EQ(read_file(path + ".refused"), text);
        EXPECT_FALSE(files::exists(path)) << text;
    }
    thermal_host::property_store store;
    store.open(write_file("properties", head));
    EXPECT_TRUE(store.create("/ac/new", thermal_host::property_value::number_of(1, 1)) && store.flush());
    EXPECT_EQ(read_file(file("properties")), "thermal properties 1\n/ac/new byte 1\nend 1\n");
    EXPECT_EQ(read_file(file("properties.refused")), head);
}

TEST_F(host, a_property_file_that_cannot_be_kept_aside_or_read_is_left_alone) {
    const std::string path = write_file("properties", "notes\n");
    files::create_directories(path + ".refused/full");
    for (const std::string& name : {path, file("")}) {
        thermal_host::property_store store;
        store.open(name);
        EXPECT_TRUE(store.create("/ac/new", thermal_host::property_value::number_of(1, 1)) && store.flush());
        EXPECT_THAT(_host.log.captured().entries().back().text, HasSubstr("; nothing will be saved\n"));
    }
    EXPECT_EQ(read_file(path), "notes\n");
    EXPECT_FALSE(files::exists(path + ".new"));
}

TEST_F(host, a_property_file_that_cannot_be_written_is_reported_once_and_written_later) {
    const std::string path = write_file("properties", "thermal properties 1\nend 0\n");
    files::create_directories(path + ".new/full");
    thermal_host::property_store store;
    store.open(path);
    store.create("/ac/new", thermal_host::property_value::number_of(1, 1));
    EXPECT_FALSE(store.flush() || store.flush());
    EXPECT_EQ(_host.log.captured().entries().size(), 1u);
    EXPECT_EQ(read_file(path), "thermal properties 1\nend 0\n");
    files::remove_all(path + ".new");
    EXPECT_TRUE(store.flush());
    EXPECT_THAT(read_file(path), HasSubstr("/ac/new byte 1\nend 1\n"));
}

TEST_F(host, the_log_obeys_its_mask_stamps_lines_and_captures_them_as_written) {
    char* text = nullptr;
    std::size_t size = 0;
    std::FILE* out = ::open_memstream(&text, &size);
    _host.log.set_file(out);
    _host.log.set_mask(0x12);
    EXPECT_TRUE(LOG::is_enabled(2));
    EXPECT_FALSE(LOG::is_enabled(4));
    LOG::log(2, 4, "never %d\n", 1);
    LOG::log(2, 2, "fan %d\n\n", 3);
    _host.loop.run_for(61'001ms);
    LOG::warn(2, 16, "no break");
    LOG::err(16, "%s", std::string(5000, 'x').c_str());
    std::fclose(out);
    EXPECT_THAT(text, testing::StartsWith("2026-01-01T00:00:00.000 L 2 fan 3\n2026-01-01T00:01:01.001 W 2 no break\n"));
    std::free(text);
    const auto lines = _host.log.captured().entries();
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[0].text, "fan 3\n\n");
    EXPECT_EQ(lines[2].source, 16);
    EXPECT_EQ(lines[2].text.size(), thermal_host::log_writer::max_text - 1);
}

TEST_F(host, a_fatal_failure_is_told_to_the_hook_and_a_throwing_handler_gives_its_event_back) {
    _host.on_fatal = [](const char* what) { throw std::runtime_error(what); };
    _host.loop.set_handler(storage_controller, [](const QEvent&) { QF::fatal_("no event left"); });
    const std::size_t free = _host.loop.free_events();
    EM::postFIFO(storage_controller, QF::new_(20, 1));
    EXPECT_THROW(_host.loop.run_pending(), std::runtime_error);
    EXPECT_EQ(_host.loop.free_events(), free);
    EXPECT_TRUE(_host.loop.run_for(1s));
    _host.on_fatal = nullptr;
    EXPECT_DEATH(QF::fatal_("no event left"), "");
}

}  // namespace
