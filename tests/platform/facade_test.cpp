// What the library relies on in any platform. Includes nothing of one platform: link it with another
// platform_under_test to prove a port.
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/clock.hpp"
#include "platform/devices.hpp"
#include "platform/ports.hpp"
#include "platform/state_machine.hpp"
#include "tests/platform/platform_under_test.hpp"

namespace {

constexpr bmc_signal power_up = 128;
constexpr int timer_base = 176;
constexpr std::uint32_t port = 7;
const std::string key = "A_LINE";

class listener : public logical_device {
public:
    listener() : logical_device(nullptr, "listener", "listener", true) {}

    void dispatch_event(const QEvent* event) override {
        heard.push_back(event->sig);
        if (on_event) {
            on_event(event);
        }
    }

    std::vector<int> heard;
    std::function<void(const QEvent*)> on_event;
};

bmc_event* new_event(bmc_signal signal) { return static_cast<bmc_event*>(QF::new_(sizeof(bmc_event), signal)); }

controller* thermal() { return DM::get_controller(thermal_controller); }

class facade : public testing::Test {
protected:
    platform_under_test _platform;
    listener _device;
};

using heard = std::vector<int>;

TEST_F(facade, an_event_reaches_each_subscriber_after_the_sender_returned_and_with_its_payload) {
    listener other;
    ASSERT_TRUE(thermal()->register_bmc_event(power_up, &_device, true));
    ASSERT_TRUE(thermal()->register_bmc_event(power_up, &other, true));
    _device.on_event = [](const QEvent* event) { EXPECT_EQ(static_cast<const bmc_event*>(event)->data_word, 0x1234); };
    bmc_event* event = new_event(power_up);
    ASSERT_NE(event, nullptr);
    EXPECT_EQ(event->data_byte1, 0);
    event->data_word = 0x1234;
    QF::publish_(event, "facade");
    QF::publish_(new_event(power_up + 1), "nobody listens");
    EXPECT_EQ(_device.heard, heard{});
    _platform.wait_ticks(1);
    EXPECT_EQ(_device.heard, heard{power_up});
    EXPECT_EQ(other.heard, heard{power_up});
}

TEST_F(facade, an_event_published_by_a_handler_waits_until_the_handler_is_through) {
    thermal()->register_bmc_event(power_up, &_device, true);
    thermal()->register_bmc_event(power_up + 1, &_device, true);
    _device.on_event = [this](const QEvent* event) {
        if (event->sig == power_up) {
            EM::postFIFO(thermal_controller, new_event(power_up + 1));
            EXPECT_EQ(_device.heard, heard{power_up});
        }
    };
    QF::publish_(new_event(power_up), "facade");
    _platform.wait_ticks(1);
    EXPECT_EQ(_device.heard, (heard{power_up, power_up + 1}));
}

TEST_F(facade, events_come_back_to_the_pool_however_many_are_sent) {
    for (int i = 0; i < 10'000; ++i) {
        bmc_event* event = new_event(power_up);
        ASSERT_NE(event, nullptr) << i;
        event->data_dword1 = ~0u;
        EM::postFIFO(i % 2 == 0 ? power_capping_controller : thermal_controller, event);
        _platform.wait_ticks(1);
    }
    EXPECT_EQ(new_event(power_up)->data_dword1, 0u);
}

TEST_F(facade, a_timer_fires_once_at_its_tick_and_never_when_disarmed) {
    const int signal = thermal()->reserve_timer_signal(timer_base, 0, 0, 0);
    thermal()->register_bmc_event(static_cast<bmc_signal>(signal), &_device, true);
    QTimeEvt timer(static_cast<std::uint16_t>(signal));
    timer.disarm();
    timer.arm_(thermal(), 13);
    _platform.wait_ticks(12);
    EXPECT_EQ(_device.heard, heard{});
    _platform.wait_ticks(1);
    EXPECT_EQ(_device.heard, heard{signal});
    timer.arm_(thermal(), 2);
    timer.disarm();
    _platform.wait_ticks(20);
    EXPECT_EQ(_device.heard, heard{signal});
}

TEST_F(facade, a_handler_that_arms_its_timer_again_keeps_the_loop_going) {
    QTimeEvt timer(timer_base);
    thermal()->register_bmc_event(timer_base, &_device, true);
    _device.on_event = [&timer](const QEvent*) {
        timer.disarm();
        timer.interval = 0;
        timer.arm_(thermal(), 4);
    };
    timer.arm_(thermal(), 4);
    _platform.wait_ticks(106);
    EXPECT_EQ(_device.heard.size(), 26u);
}

TEST_F(facade, overloaded_names_have_small_numbers_of_their_own_and_a_missing_controller_is_null) {
    const int first = EM::register_overloaded_signal("ONE_SIG");
    const int second = EM::register_overloaded_signal("OTHER_SIG");
    EXPECT_NE(first, second);
    EXPECT_GT(first, 0);
    EXPECT_LT(first, 256);
    EXPECT_GT(second, 0);
    EXPECT_LT(second, 256);
    EXPECT_EQ(EM::register_overloaded_signal("ONE_SIG"), first);
    EXPECT_EQ(DM::get_controller(99), nullptr);
}

class machine : public QHsm {
public:
    explicit machine(QState::handler initial_state) : QHsm(initial_state) {}

    QState initial(const QEvent*) {
        enter(static_cast<QState::handler>(&machine::running));
        return {};
    }
    QState running(const QEvent* event) {
        heard_signals.push_back(event->sig);
        return {static_cast<QState::handler>(&QHsm::top)};
    }
    QState lost(const QEvent*) { return {}; }

    heard heard_signals;
};

TEST_F(facade, a_state_machine_sends_the_entry_signal_and_survives_an_initial_handler_that_enters_nothing) {
    const QEvent event{power_up, 0};
    machine good(static_cast<QState::handler>(&machine::initial));
    good.init(nullptr);
    good.dispatch(&event);
    EXPECT_EQ(good.heard_signals, (heard{state_entry_signal, power_up}));
    machine bad(static_cast<QState::handler>(&machine::lost));
    bad.init(nullptr);
    bad.dispatch(&event);
    EXPECT_NE(QFM::add_qfsm_object(&good, &_device), ~0u);
}

TEST_F(facade, ports_follow_lines_that_come_fail_and_go) {
    integer_port integer("integer.1");
    bit_port bit("bit.1");
    cio_integer_port keyed_integer(_device, "");
    cio_bit_port keyed_bit(_device, "");
    integer.assign(port);
    bit.assign(port);
    keyed_integer.assign(key);
    keyed_bit.assign(key);
    std::uint32_t value = 99;
    int status = 61;
    for (int round = 0; round < 2; ++round) {
        EXPECT_EQ(integer.accessor(), nullptr);
        EXPECT_FALSE(keyed_integer.is_bound());
        EXPECT_LT(keyed_bit.get(), 0);
        EXPECT_NE(keyed_integer.read(&value), 0);
        EXPECT_EQ(value, 99u);

        _platform.make_number(port, key, 42);
        ASSERT_NE(integer.accessor(), nullptr);
        EXPECT_EQ(integer.accessor()->read(status), 42u);
        EXPECT_EQ(status, port_status_success);
        EXPECT_NE(bit.accessor()->get(status), 0);
        integer.accessor()->write(43, status);
        EXPECT_EQ(integer.accessor()->read(status), 43u);
        EXPECT_GT(keyed_bit.get(), 0);
        EXPECT_EQ(keyed_integer.write(0), 0);
        EXPECT_EQ(keyed_bit.get(), 0);

        _platform.fail_lines(port, key);
        integer.accessor()->read(status);
        EXPECT_NE(status, port_status_success);
        EXPECT_NE(keyed_integer.read(&value), 0);
        EXPECT_NE(keyed_integer.write(1), 0);
        EXPECT_LT(keyed_bit.get(), 0);
        EXPECT_EQ(value, 99u);
        _platform.remove_lines(port, key);
    }
}

TEST_F(facade, a_block_is_never_read_or_written_beyond_its_end) {
    _platform.make_block(port, key, {1, 2, 3, 4});
    block_port block("block.1");
    block.assign(port);
    cio_block_port keyed(_device, "");
    keyed.assign(key);
    std::uint8_t bytes[8] = {};
    int status = 61;
    EXPECT_EQ(block.accessor()->read(2, bytes, sizeof(bytes), status), 2u);
    EXPECT_EQ(status, port_status_success);
    EXPECT_EQ(bytes[1], 4);
    for (const std::uint32_t position : {4u, 1000u, ~0u}) {
        block.accessor()->write(position, bytes, 2, status);
        EXPECT_NE(status, port_status_success);
        EXPECT_EQ(block.accessor()->read(position, bytes, 2, status), 0u);
        keyed.seek(position);
        EXPECT_EQ(keyed.read(bytes, 2, false), 0u);
        EXPECT_NE(keyed.write(bytes, 2), 0);
    }
    keyed.seek(0);
    EXPECT_EQ(keyed.read(bytes, 3, false), 3u);
    EXPECT_EQ(bytes[0], 1);
}

TEST_F(facade, a_tachometer_reads_into_its_record_and_a_failed_read_changes_nothing) {
    _platform.make_number(port, key, 12'345);
    fantach_hal_port tachometer("fan.1");
    tachometer.assign(port);
    TACHData record{};
    int status = 61;
    tachometer.accessor()->write(record, status);
    EXPECT_EQ(status, port_status_success);
    EXPECT_EQ(tachometer.accessor()->read(record, status), 12'345);
    _platform.fail_lines(port, key);
    tachometer.accessor()->read(record, status);
    EXPECT_NE(status, port_status_success);
    EXPECT_EQ(record.tach + 0, 12'345u);
}

template <class Value>
class property_of_width : public facade {};
using widths = testing::Types<std::uint8_t, std::uint16_t, std::uint32_t>;
TYPED_TEST_SUITE(property_of_width, widths);

TYPED_TEST(property_of_width, is_created_once_and_keeps_what_was_set) {
    const std::string path = "/ac/test/value";
    const TypeParam most = static_cast<TypeParam>(~0u);
    EXPECT_EQ(DM::get_property(path), nullptr);
    EXPECT_TRUE(bmc_property::create(path, TypeParam{1}, property_flags));
    EXPECT_FALSE(bmc_property::create(path, TypeParam{2}, property_flags));
    bmc_property* property = DM::get_property(path.c_str());
    ASSERT_NE(property, nullptr);
    EXPECT_EQ(property->get_dword(), 1u);
    EXPECT_TRUE(property->set(most, property_flags, property_notify));
    EXPECT_EQ(DM::get_property(path)->get_dword(), most);
    EXPECT_EQ(DM::get_property(path)->get_byte(), 0xFF);
}

TEST_F(facade, a_block_property_keeps_its_kind_and_takes_any_length_up_to_255) {
    const std::string path = "/ac/test/block";
    const std::vector<std::uint8_t> bytes(256, 0xA5);
    EXPECT_FALSE(bmc_property::create(path, bytes.data(), 256, property_flags));
    ASSERT_TRUE(bmc_property::create(path, bytes.data(), 6, property_flags));
    EXPECT_FALSE(bmc_property::create(path, std::uint8_t{1}, property_flags));
    bmc_property* property = DM::get_property(path);
    for (const unsigned size : {1u, 255u}) {
        EXPECT_TRUE(property->set(bytes.data(), size, property_flags, property_notify));
        EXPECT_EQ(tlv1::tlv_get_length(property->get_block()), size);
        EXPECT_EQ(property->get_block()[tlv1::header_size + size - 1], 0xA5);
    }
    EXPECT_FALSE(property->set(bytes.data(), 256, property_flags, property_notify));
    EXPECT_FALSE(property->set(std::uint8_t{1}, property_flags, property_notify));
    EXPECT_EQ(tlv1::tlv_get_length(property->get_block()), 255u);
    EXPECT_EQ(property->get_dword(), 0u);
}

TEST_F(facade, a_deleted_property_can_be_made_anew_as_another_kind) {
    const std::string path = "/ac/test/value";
    const std::uint8_t bytes[] = {1};
    DM::del_property(path);
    ASSERT_TRUE(bmc_property::create(path, std::uint8_t{1}, property_flags));
    EXPECT_FALSE(DM::get_property(path)->set(bytes, 1, property_flags, property_notify));
    EXPECT_EQ(DM::get_property(path)->get_block(), nullptr);
    DM::del_property(path);
    EXPECT_EQ(DM::get_property(path), nullptr);
    EXPECT_TRUE(bmc_property::create(path, bytes, 1, property_flags));
}

TEST_F(facade, an_ipmi_request_gets_its_handlers_answer_and_an_unknown_command_its_code) {
    const ipmi_command_key command{0x06, 0x3A, 0};
    std::vector<std::uint8_t> response;
    EXPECT_EQ(_platform.request(command, {}, response), 0xC1);
    IPMI::register_command(command, [](ipmi_message& message) -> std::uint8_t {
        message.response.push(message.request.pop());
        message.response.push_16(message.request.pop_16());
        return message.request.length() == 2 ? 0 : 0xC7;
    });
    EXPECT_EQ(_platform.request(command, {5, 6}, response), 0);
    EXPECT_EQ(response, (std::vector<std::uint8_t>{5, 6, 0})) << "the high byte first, 0 for what is missing";
    EXPECT_EQ(_platform.request(command, {}, response), 0xC7);
}

TEST_F(facade, the_clocks_agree_on_a_second) {
    std::uint64_t before = 0;
    std::uint64_t after = 0;
    const std::int64_t wall = platform_clock::wall_nanoseconds();
    ASSERT_TRUE(platform_clock::monotonic_seconds(before));
    _platform.wait_ticks(200);
    ASSERT_TRUE(platform_clock::monotonic_seconds(after));
    EXPECT_NEAR(static_cast<double>(after - before), 2.0, 1.0);
    EXPECT_NEAR(static_cast<double>(platform_clock::wall_nanoseconds() - wall), 2e9, 1e8);
}

}  // namespace
