#include "foundation/common_thermal_utils.hpp"
#include "platform/devices.hpp"
#include "tests/support/host_fixture.hpp"

namespace {

using utils = common_thermal_utils;

class port_wrapper_test : public host_fixture {
protected:
    // What a read answered and what it left in the caller's variable, which was 77.
    template <class Value>
    std::string read(bool (utils::*access)(Value*)) {
        Value value = 77;
        const bool answer = (port.*access)(&value);
        return (answer ? "ok " : "failed ") + std::to_string(value);
    }
    std::string bit() { return read(&utils::read_port_bit); }
    std::string integer() { return read(&utils::read_port_integer); }
    std::string block(std::uint32_t max) {
        std::uint8_t buffer[8] = {};
        std::uint32_t got = 77;
        std::string text = port.read_port_block(buffer, &got, max) ? "ok" : "failed";
        for (std::uint32_t i = 0; i < got && i < max; ++i) text += " " + std::to_string(buffer[i]);
        return text;
    }
    bool exchange(std::uint8_t out, std::uint8_t& in) { return port.write_read_port_block(&out, 1, &in, 1); }

    logical_device board{nullptr, "board", "board", false};
    utils port;
    TACHData tach{};
    int rpm = 77;
    std::uint8_t pair[2] = {8, 9};
};

TEST_F(port_wrapper_test, without_a_port_everything_fails_but_a_bit_that_reads_low) {
    port.create_port_bit(board, "");
    port.create_port_integer(board, "");
    EXPECT_FALSE(port.is_bound() || port.seek_port_block(0) || port.config_port_fantach(&tach) || exchange(1, pair[0]));
    EXPECT_FALSE(port.write_port_bit(1) || port.write_port_integer(1) || port.write_port_block(pair, 2));
    EXPECT_EQ(bit() + ", " + integer() + ", " + block(1), "ok 0, failed 77, failed 0");
    EXPECT_FALSE(port.read_port_fantach(&tach, &rpm) || rpm != 0);
    port.create_port_block(board, "");
    EXPECT_EQ(block(2), "ok") << "a nameless block port is one";
}

TEST_F(port_wrapper_test, numbered_port_without_a_line_fails_and_names_itself) {
    port.create_port_bit(board, "zone", -3, 40, false);
    EXPECT_EQ(bit(), "ok 0");
    EXPECT_FALSE(port.is_bound() || port.write_port_bit(1));
    port.create_port_integer(board, "zone", -3, 40, false);
    EXPECT_EQ(integer(), "failed 0");
    EXPECT_FALSE(port.is_bound() || port.write_port_integer(1));
    port.create_port_block(board, "zone", -3, 40, false);
    EXPECT_EQ(block(2), "failed");
    EXPECT_FALSE(port.is_bound() || port.write_port_block(pair, 2) || exchange(1, pair[0]));
    text_lines expected;
    for (const char* access : {"get", "set", "read", "wet", "block::read", "block::write", "block::write_read"}) {
        expected.push_back(access + std::string("() attempt on name=[zone.-3], NULL accessor!!\n"));
    }
    EXPECT_EQ(take_lines(0x10000), expected);
}

TEST_F(port_wrapper_test, numbers_that_fail_once_come_back_and_a_low_bit_counts_as_failed_by_key) {
    for (const bool by_key : {false, true}) {
        auto& line = by_key ? host.ports.add_number("N", 4000000000u) : host.ports.add_number(1u, 4000000000u);
        by_key ? port.create_port_integer(board, "N") : port.create_port_integer(board, "n", 1, 1, false);
        line.fail_reads(1);
        EXPECT_EQ(integer(), by_key ? "failed 77" : "failed 0");
        EXPECT_EQ(integer(), "ok 4000000000");
        by_key ? port.create_port_bit(board, "b", 1, "N") : port.create_port_bit(board, "b", 1, 1, false);
        line.fail_reads(1);
        EXPECT_EQ(bit(), by_key ? "failed 0" : "ok 0");
        EXPECT_EQ(bit(), "ok 1");
        EXPECT_TRUE(port.is_bound() && port.write_port_bit(0));
        EXPECT_EQ(bit(), by_key ? "failed 0" : "ok 0");
        line.fail_writes(1);
        EXPECT_FALSE(port.write_port_bit(1) || line.value() != 0);
        EXPECT_EQ(by_key ? port.get_key_string() : std::to_string(port.get_key_uint()), by_key ? "N" : "1");
    }
}

TEST_F(port_wrapper_test, block_position_moves_on_by_number_and_stays_by_key) {
    for (const bool by_key : {false, true}) {
        auto& line = host.ports.add_block(by_key ? thermal_host::port_id("B") : 1u, {0, 1, 2, 3, 4, 5, 6, 7});
        line.set_script([](auto out, auto, auto in, auto, int& status) { return status = *out, *in = 55, 1u; });
        by_key ? port.create_port_block(board, "B") : port.create_port_block(board, "b", 1, 1, false);
        EXPECT_EQ(block(1), "ok 0") << "from the start";
        EXPECT_TRUE(port.seek_port_block(2));
        EXPECT_EQ(block(3), "ok 2 3 4");
        EXPECT_TRUE(port.write_port_block(pair, 2));
        EXPECT_EQ(block(3), by_key ? "ok 8 9 4" : "ok 7") << "cut at the end";
        port.seek_port_block(0);
        line.fail_writes(1);
        EXPECT_FALSE(port.write_port_block(pair, 2));
        EXPECT_EQ(block(2), by_key ? "ok 0 1" : "ok 2 3") << "a failed write moves on, too";
        line.fail_reads(1);
        EXPECT_EQ(block(2), by_key ? "ok" : "failed");
        std::uint8_t in = 0;
        EXPECT_TRUE(exchange(0, in) && in == 55 && !exchange(5, in));
    }
}

TEST_F(port_wrapper_test, tachometer_is_configured_and_a_lost_reading_is_zero) {
    auto& line = host.ports.add_number(1u, 9000);
    host.pin_names[1] = "TACH_1";
    port.create_port_fantach(board, "t", 1, 1, true);
    EXPECT_EQ(take_lines(0x20000000), text_lines{"common_thermal_utils::create_port_fantach() - pin_name=[TACH_1]"});
    tach.fan_index = 4;
    EXPECT_TRUE(port.config_port_fantach(&tach) && line.tachometer().fan_index == 4);
    EXPECT_TRUE(port.read_port_fantach(&tach, &rpm) && rpm == 9000);
    line.fail_reads(1);
    EXPECT_FALSE(port.read_port_fantach(&tach, &rpm) || rpm != 0);
}

template <class Value>
std::string property_round_trip(const char* path, Value written) {
    Value fresh = 9, value = 0;
    utils::get_ipmi_property(path, fresh);
    utils::set_ipmi_property(path, written);
    utils::get_ipmi_property(path, value);
    return std::to_string(fresh) + " " + std::to_string(value);
}

TEST_F(port_wrapper_test, properties_are_made_on_first_use_in_all_widths) {
    EXPECT_EQ(property_round_trip<std::uint8_t>("/ac/byte", 0xFE), "0 254");
    EXPECT_EQ(property_round_trip<std::uint16_t>("/ac/word", 0xFEDC), "0 65244");
    EXPECT_EQ(property_round_trip<std::uint32_t>("/ac/dword", 0xFEDCBA98u), "0 4275878552");
    utils::set_ipmi_property("/ac/set", std::uint16_t{7});
    EXPECT_EQ(host.properties.find("/ac/set")->get_word() + host.properties.find("/ac/word")->width(), 9u);
    EXPECT_EQ(property_round_trip<std::uint8_t>("/ac/no blanks", 5), "0 0");
    EXPECT_EQ(take_lines(0).at(1), "common_thermal_utils::set_ipmi_property - failed to create property /ac/no blanks");
}

TEST_F(port_wrapper_test, power_brake_mode_is_the_number_of_the_host_or_unchanged) {
    std::uint8_t mode = 9;
    for (const auto& [text, expected] :
         {std::pair{"0", 0}, {"3", 3}, {"5", 2}, {"0x1", 1}, {"", 0}, {"010", 2}, {"-1", 2}, {"1on", 1}}) {
        host.settings.attributes["Power.Q1003"] = text;
        EXPECT_TRUE(utils::get_uefi_pciegen_pwrbrk_mode(mode) == 0 && mode == expected) << text << " gave " << mode;
    }
    EXPECT_EQ(take_lines(2)[1], "get_uefi_pciegen_pwrbrk_mode - uefi_power_option=3, Power.Q1003 = 3");
    host.settings.query_result = 5;
    EXPECT_TRUE(utils::get_uefi_pciegen_pwrbrk_mode(mode) == 5 && mode == 1 && host.settings.sessions == 0);
    host.settings.initialize_result = -7;
    EXPECT_TRUE(utils::get_uefi_pciegen_pwrbrk_mode(mode) == -7 && mode == 1);
}

}  // namespace
