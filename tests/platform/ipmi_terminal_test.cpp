#include "platform/host/ipmi_terminal.hpp"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <limits>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "platform/host/host.hpp"
#include "platform/host/sensor_record.hpp"

namespace {

using namespace std::literals;
using namespace thermal_host;
using testing::ElementsAre;
namespace files = std::filesystem;
using bytes = std::vector<std::uint8_t>;

std::string told(const terminal_input& input) {
    if (const auto* request = std::get_if<terminal_request>(&input)) {
        return terminal_line(*request, {0xAA, request->data});
    }
    constexpr const char* faults[] = {"torn", "too long", "no bytes", "too short", "no request"};
    return faults[static_cast<std::size_t>(std::get<terminal_fault>(input))];
}

std::vector<std::string> decoded(terminal_decoder& decoder, const std::string& text) {
    std::vector<std::string> inputs;
    for (const char character : text) {
        if (const auto input = decoder.take(character)) inputs.push_back(told(*input));
    }
    return inputs;
}

TEST(terminal_decoder, finds_requests_and_goes_on_after_everything_that_is_none) {
    const std::string long_line(terminal_decoder::longest_line, '0');
    const std::pair<std::string, std::vector<std::string>> rows[] = {
        {"[e80c07]\r\n", {"[EC 0C 07 AA]\r\n"}},
        {"[ E9 0C  07ff]", {"[ED 0C 07 AA FF]\r\n"}},
        {"e80c07]\r\nnoise ][b0040000]]\n[b0080003]", {"[B4 04 00 AA 00]\r\n", "[B4 08 00 AA 03]\r\n"}},
        {"[][e80c]", {"too short", "too short"}},
        {"[e80c0][e8 0 c07][0x0c07][+80c07][SYS GET BMC][-1-1-1]", std::vector<std::string>(6, "no bytes")},
        {"[EC 0C 07 00 32]\r\n", {"no request"}},
        {"[e80[e80\r\n[e80c", {"torn", "torn"}},
        {"07]", {"[EC 0C 07 AA]\r\n"}},
        {"[" + long_line + "00][e80c07]", {"too long", "[EC 0C 07 AA]\r\n"}},
    };
    terminal_decoder decoder;
    for (const auto& [text, inputs] : rows) {
        EXPECT_EQ(decoded(decoder, text), inputs) << text;
    }
    EXPECT_EQ(decoded(decoder, "[" + long_line + "]").at(0).size(), 3 * long_line.size() / 2 + 6);
}

// One that opens the terminal as clients do.
class client {
public:
    explicit client(const std::string& link) : _device(::open(link.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK)) {}
    ~client() { ::close(_device); }
    client(const client&) = delete;
    client& operator=(const client&) = delete;

    bool send(std::string_view text) const {
        return ::write(_device, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    }
    // What is there, without waiting.
    std::string received() const {
        char text[8192];
        const ssize_t count = ::read(_device, text, sizeof(text));
        return {text, static_cast<std::size_t>(std::max<ssize_t>(count, 0))};
    }

private:
    int _device;
};

class front : public testing::Test {
protected:
    front() : directory(files::temp_directory_path() / ("thermal_front_test." + std::to_string(::getpid()))) {
        files::create_directories(directory);
        host.log.set_file(nullptr);
        host.ipmi.register_command({0x07, 0x3A, 0}, [this](ipmi_message& message) {
            ++served;
            message.response.push(0x32);
            message.response.push(0x64);
            return std::uint8_t{0};
        });
    }
    void TearDown() override { files::remove_all(directory); }

    std::string link() const { return directory / "bmc"; }
    // After that many lines, or two seconds.
    std::string answers(const client& from, std::ptrdiff_t lines) {
        std::string text;
        for (int i = 0; i < 400 && std::ranges::count(text, '\n') < lines; ++i) {
            host.loop.run_for(5ms);
            text += from.received();
        }
        return text;
    }

    void forget_answers(const client& from) {
        do {
            host.loop.run_for(10ms);
        } while (!from.received().empty());
    }

    const files::path directory;
    unsigned served = 0;
    platform host;
};

TEST_F(front, serves_clients_that_come_and_go_whatever_pieces_their_lines_come_in) {
    const ipmi_terminal terminal(host, link());
    {
        const client probing(link());
        EXPECT_TRUE(probing.send("[b0040000]\r\n[b0080003]\r\n[e80c07]\r\n[e9"));
        EXPECT_EQ(answers(probing, 3), "[B4 04 00 C1]\r\n[B4 08 00 C1]\r\n[EC 0C 07 00 32 64]\r\n");
    }
    const client slow(link());
    for (const char* piece : {"[", "e80", "c07", "]"}) {
        EXPECT_EQ(slow.received(), "");
        EXPECT_TRUE(slow.send(piece));
        host.loop.run_for(10ms);
    }
    EXPECT_EQ(answers(slow, 1), "[EC 0C 07 00 32 64]\r\n");
    EXPECT_EQ(terminal.dropped_lines(), 1u);
    EXPECT_EQ(terminal.lost_answers(), 0u);
}

TEST_F(front, takes_a_flood_in_small_parts_and_loses_only_answers_that_nobody_reads) {
    const ipmi_terminal terminal(host, link());
    const client flooding(link());
    unsigned served_before = 0;
    host.ipmi.register_command({0x08, 0x3A, 0}, [&](ipmi_message&) {
        host.loop.at(0ms, [&] { served_before = served; });
        return std::uint8_t{0};
    });
    std::string requests;
    for (int i = 0; i < 200; ++i) requests += "[e80c07]";
    ASSERT_TRUE(flooding.send("[e80c08]" + requests));
    host.loop.run_for(10ms);
    EXPECT_LE(served_before, 40u) << "what is due goes first";
    for (unsigned round = 2; round <= 40; ++round) {
        ASSERT_TRUE(flooding.send(requests));
        for (int i = 0; i < 400 && served < 200 * round; ++i) host.loop.run_for(5ms);
        ASSERT_EQ(served, 200 * round);
    }
    EXPECT_GT(terminal.lost_answers(), 4000u) << "the kernel keeps some";
    forget_answers(flooding);
    ASSERT_TRUE(flooding.send("[e81007]"));
    EXPECT_EQ(answers(flooding, 1), "[EC 10 07 00 32 64]\r\n");
}

TEST_F(front, never_stumbles_over_noise) {
    const ipmi_terminal terminal(host, link());
    const client noisy(link());
    std::minstd_rand random(1);
    constexpr std::string_view alphabet = "[[]] 0123456789abcdefABCDEF\r\n\\x\0\xFF"sv;
    for (int round = 0; round < 200; ++round) {
        std::string noise;
        for (int i = 0; i < 500; ++i) noise += alphabet[random() % alphabet.size()];
        noisy.send(noise);
        host.loop.run_for(1ms);
        noisy.received();
    }
    EXPECT_GT(terminal.dropped_lines(), 1000u);
    forget_answers(noisy);
    ASSERT_TRUE(noisy.send("\n[e80c07]"));
    EXPECT_EQ(answers(noisy, 1), "[EC 0C 07 00 32 64]\r\n");
}

TEST_F(front, link_replaces_links_alone_and_goes_with_its_own_terminal) {
    const std::string notes = directory / "notes";
    std::ofstream(notes) << "mine";
    EXPECT_THROW(ipmi_terminal(host, notes), std::runtime_error);
    EXPECT_THROW(ipmi_terminal(host, directory), std::runtime_error);
    EXPECT_THROW(ipmi_terminal(host, directory / "no" / "bmc"), std::runtime_error);
    EXPECT_EQ(files::file_size(notes), 4u);

    files::create_symlink("/nowhere", link());
    {
        const ipmi_terminal first(host, link());
        EXPECT_TRUE(files::is_character_file(link()));
        {
            const ipmi_terminal second(host, directory / "other");
            files::create_symlink("/nowhere", directory / "theirs");
            files::rename(directory / "theirs", directory / "other");
        }
        EXPECT_TRUE(files::is_symlink(directory / "other")) << "somebody else's by now";
    }
    EXPECT_FALSE(files::is_symlink(link()));
    EXPECT_EQ(host.ipmi.execute({0x01, 0x06, 0}, {}).completion_code, ipmi_invalid_command) << "it took its commands";
}

// Sensor commands

class commands : public front {
protected:
    commands() {
        host.sensors.add({0, 1}, {.name = "inlet air", .unit = "°C", .output = "air"});
        host.sensors.add({1, 9}, {.name = "fan", .unit = "rpm", .m = 100, .output = "rpm", .events = {1, "critical"}});
    }

    // Completion code, then the answer's data.
    bytes ask(std::uint8_t function, std::uint8_t command, bytes data = {}, std::uint8_t lun = 0) {
        ipmi_answer answer = host.ipmi.execute({command, function, lun}, std::move(data));
        answer.data.insert(answer.data.begin(), answer.completion_code);
        return answer.data;
    }
    bytes reading(std::uint8_t number, std::uint8_t lun = 0) { return ask(0x04, 0x2D, {number}, lun); }

    number_line& air = host.ports.add_number("air");
    number_line& rpm = host.ports.add_number("rpm");
    sensor_commands _commands{host};
};

TEST_F(commands, tell_readings_states_and_thresholds) {
    EXPECT_THAT(reading(1), ElementsAre(0, 0, 0x60, 0xC0)) << "nobody wrote it yet";
    EXPECT_THAT(ask(0x04, 0x27, {1}), ElementsAre(0, 0, 0, 0, 0, 0, 0, 0));
    ASSERT_TRUE(air.store(25));
    EXPECT_THAT(reading(1), ElementsAre(0, 25, 0x40, 0xC0));
    EXPECT_THAT(ask(0x04, 0x26, {1, 0x2B, 10, 5, 99, 38, 99, 47}), ElementsAre(0));
    EXPECT_THAT(ask(0x04, 0x27, {1}), ElementsAre(0, 0x2B, 10, 5, 0, 38, 0, 47));
    const std::pair<std::uint32_t, bytes> rows[] = {{11, {11, 0xC0}}, {10, {10, 0xC1}}, {5, {5, 0xC3}},
                                                    {38, {38, 0xC8}}, {47, {47, 0xE8}}, {300, {255, 0xE8}}};
    for (const auto& [raw, told] : rows) {
        ASSERT_TRUE(air.store(raw));
        EXPECT_EQ(reading(1), (bytes{0, told[0], 0x40, told[1]})) << raw;
    }
    ASSERT_TRUE(rpm.store(42));
    host.ports.add_number("critical", 1);
    EXPECT_THAT(reading(9, 1), ElementsAre(0, 42, 0x40, 0xD8)) << "by its event line";
}

TEST_F(commands, refuse_other_sensors_and_other_lengths) {
    EXPECT_THAT(reading(9), ElementsAre(ipmi_unknown_sensor)) << "it is on another unit";
    EXPECT_THAT(ask(0x04, 0x27, {2}), ElementsAre(ipmi_unknown_sensor));
    EXPECT_THAT(ask(0x04, 0x26, {2, 0, 0, 0, 0, 0, 0, 0}), ElementsAre(ipmi_unknown_sensor));
    const std::tuple<std::uint8_t, std::uint8_t, std::size_t> rows[] = {
        {0x06, 0x01, 0}, {0x04, 0x26, 8}, {0x04, 0x27, 1}, {0x04, 0x2D, 1},
        {0x0A, 0x20, 0}, {0x0A, 0x22, 0}, {0x0A, 0x23, 6}};
    std::minstd_rand random(1);
    for (const auto& [function, command, length] : rows) {
        for (std::size_t given = 0; given <= 64; ++given) {
            bytes data(given);
            for (auto& value : data) value = static_cast<std::uint8_t>(random() % 256);
            const bytes answer = ask(function, command, data);
            EXPECT_EQ(answer == bytes{ipmi_invalid_length}, given != length) << unsigned{command} << ' ' << given;
        }
    }
}

TEST_F(commands, describe_each_sensor_in_a_record_that_can_be_read_in_parts) {
    EXPECT_THAT(ask(0x0A, 0x20), ElementsAre(0, 0x51, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 2));
    ask(0x04, 0x26, {1, 0x3F, 1, 2, 3, 4, 5, 6});
    const bytes whole = ask(0x0A, 0x23, {0, 0, 0, 0, 0, 0xFF});
    EXPECT_EQ(whole, (bytes{0,    0x0A, 0x01, 0x02, 0, 0x51, 0x01, 52,   0x20, 0,   1,   7,   1,   0x01, 0x4B,
                            0x01, 0x01, 0,    0x70, 0, 0x70, 0x3F, 0x3F, 0,    1,   0,   0,   1,   0,    0,
                            0,    0,    0,    0,    0, 0,    0,    0xFF, 0,    6,   5,   4,   3,   2,    1,
                            0,    0,    0,    0,    0, 0xC9, 'i',  'n',  'l',  'e', 't', ' ', 'a', 'i',  'r'}));
    EXPECT_THAT(ask(0x0A, 0x23, {0, 0, 2, 0, 5, 3}), ElementsAre(0xC5)) << "a part, and nobody reserved";
    EXPECT_THAT(ask(0x0A, 0x22), ElementsAre(0, 1, 0));
    EXPECT_THAT(ask(0x0A, 0x23, {1, 0, 2, 0, 5, 3}), ElementsAre(0, 0x0A, 0x01, 0x20, 0, 1));
    EXPECT_THAT(ask(0x0A, 0x23, {1, 0, 0xFF, 0xFF, 48, 0xFF}), ElementsAre(0, 0xFF, 0xFF, 'f', 'a', 'n'));
    EXPECT_THAT(ask(0x0A, 0x23, {1, 0, 0x0A, 1, 51, 1}), ElementsAre(0xC9));
    EXPECT_THAT(ask(0x0A, 0x23, {1, 0, 3, 0, 0, 1}), ElementsAre(ipmi_unknown_sensor));
    EXPECT_THAT(ask(0x0A, 0x22), ElementsAre(0, 2, 0));
    EXPECT_THAT(ask(0x0A, 0x23, {1, 0, 2, 0, 5, 3}), ElementsAre(0xC5)) << "another client reserved since";
    platform empty;
    const sensor_commands of_none(empty);
    EXPECT_EQ(empty.ipmi.execute({0x23, 0x0A, 0}, {0, 0, 0, 0, 0, 0xFF}).completion_code, ipmi_unknown_sensor);
}

// What a client makes of the conversion.
double shown(const bytes& record, double raw) {
    const auto signed_bits = [](unsigned value, unsigned sign) {
        return static_cast<int>(value ^ sign) - static_cast<int>(sign);
    };
    const int m = signed_bits(record[24] | (record[25] & 0xC0u) << 2, 0x200);
    const int b = signed_bits(record[26] | (record[27] & 0xC0u) << 2, 0x200);
    const int result_exponent = signed_bits(record[29] >> 4, 8);
    const int offset_exponent = signed_bits(record[29] & 15u, 8);
    return (m * raw + b * std::pow(10.0, offset_exponent)) * std::pow(10.0, result_exponent);
}

TEST(sensor_record, holds_conversions_to_three_digits_and_cuts_names) {
    struct row {
        float m, b, k2;
    };
    constexpr row rows[] = {{1, 0, 1},        {100, 0, 1},     {1, 0, 0.1f},    {50, -100, 0.5f},
                            {0.25f, -64, 1},  {-2.5f, 511, 1}, {5.11e8f, 0, 1}, {3.3e-6f, -1.2e-4f, 1},
                            {1000, 40000, 1}, {1, -273.15f, 1}};
    for (const auto& [m, b, k2] : rows) {
        const bytes record =
            sensor_record(1, {0, 1}, {.name = "", .unit = "", .m = m, .b = b, .k2 = k2, .output = 1}, {});
        for (const double raw : {0.0, 1.0, 77.0, 255.0}) {
            const double exact = (raw * static_cast<double>(m) + static_cast<double>(b)) / static_cast<double>(k2);
            EXPECT_NEAR(shown(record, raw), exact,
                        std::abs(exact) * 2e-3 + std::abs(static_cast<double>(b / k2)) * 2e-3)
                << m << ' ' << b << ' ' << k2 << ' ' << raw;
        }
    }
    for (const float broken : {0.0f, std::numeric_limits<float>::quiet_NaN()}) {
        const bytes record = sensor_record(1, {0, 1}, {.name = "", .unit = "%", .k2 = broken, .output = 1}, {});
        EXPECT_EQ(shown(record, 255.0), 0.0);
        EXPECT_EQ(record[20], 1) << "percent";
    }
    const bytes named = sensor_record(1, {0, 1}, {.name = "température of all", .unit = "°C", .output = 1}, {});
    EXPECT_EQ(std::string(named.begin() + 47, named.end()), "\xD0temp??rature of ");
}

}  // namespace
