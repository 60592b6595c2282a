#include "device/pci/card_temperatures.hpp"

#include <random>
#include <tuple>

#include "device/pci/amd_requests.hpp"
#include "device/pci/power_meter.hpp"
#include "tests/device/pci/answering_card.hpp"

namespace {

using utils = common_thermal_utils;
using bytes = frame_bytes;
using exchanges = std::vector<bytes>;

class card_temperature_test : public card_test {
protected:
    struct expected {
        const char* name;
        const char* token;
        const char* slot_word;
        bytes frame, answer;
        float degrees, failed;
        std::uint32_t asked;
    };

    template <class Device, class Agent>
    void expect_readings(const expected& r, unsigned vendor, unsigned product) {
        SCOPED_TRACE(r.name);
        Agent agent(1), unbound(2);
        agent.set_port_input(1u);
        Device device(3);
        const auto shows = [&](float degrees) {
            return stored("pci_request_" + std::string(r.name) + ".temperature", 3) == degrees &&
                   told(r.slot_word) == degrees;
        };
        list.deactive_command();
        link(device, {&list, &slot});
        poll(device);
        plug(vendor, product);
        poll(device);
        EXPECT_FALSE(shows(0)) << "another card, then no agent";
        link(device, {&agent, &unbound});
        answers = {{r.frame, r.answer}};
        sent.clear();
        asked.clear();
        poll(device);
        EXPECT_TRUE(take_sent() == exchanges{r.frame} && asked == std::vector<std::uint32_t>{r.asked});
        EXPECT_TRUE(shows(r.degrees));
        poll(device);
        EXPECT_TRUE(shows(r.failed)) << "the agent without a port";
        EXPECT_EQ(lines_with(std::string(r.name) + "::request_temperature - cur_status(2)\n"), r.failed != 0 ? 1 : 0);
        slot.set_primary_temperature(1);
        slot.set_secondary_temperature(1);
        poll_without_bus(device, agent);
        EXPECT_TRUE(take_sent().empty() && shows(0));
        agent.get_agent_token(r.token);
        poll(device);
        EXPECT_TRUE(shows(r.degrees)) << "it did not move on, and asks under this name";
    }
};

TEST_F(card_temperature_test, one_exchange_gives_one_value) {
    expect_readings<common_thermal_device_pci_request_intel_fpga_board_temperature,
                    common_thermal_device_pci_agent_intel_fpga>(
        {"intel_fpga_board_temperature", "ibtemp.0", "secondary_temperature", {1, 0}, {0x5B, 9, 9, 9}, 45.5f, 255, 4},
        0x8086, 0);
    expect_readings<common_thermal_device_pci_request_intel_fpga_die_temperature,
                    common_thermal_device_pci_agent_intel_fpga>(
        {"intel_fpga_die_temperature", "idtemp.0", "temperature", {1, 0x10}, {0xFF}, 127.5f, 255, 4}, 0x8086, 0);
    expect_readings<common_thermal_device_pci_request_xilinx_temperature, common_thermal_device_pci_agent_xilinx>(
        {"xilinx_temperature", "xitemp.0", "temperature", {5}, {200}, 200, 0, 1}, 0x10EE, 0);
    expect_readings<common_thermal_device_pci_request_xilinx_memory_temperature,
                    common_thermal_device_pci_agent_xilinx>(
        {"xilinx_memory_temperature", "xitemp.0", "secondary_temperature", {1}, {70}, 70, 255, 1}, 0x10EE, 0);
    expect_readings<common_thermal_device_pci_request_ai100_temperature, common_thermal_device_pci_agent_nvmemi>(
        {"ai100_temperature", "ai100temp.0", "temperature", {0}, {6, 9, 9, 66, 9}, 66, 0, 5}, 0x17CB, 0xA100);
}

TEST_F(card_temperature_test, the_network_card_is_valid_by_its_last_answer_and_keeps_all_without_the_bus) {
    const bytes command{0xCB, 1, 2}, data{0xDB}, good{10, 0, 0, 0, 77, 0, 0, 0, 0, 0, 0};
    common_thermal_device_pci_agent_intel_nic agent(1);
    common_thermal_device_pci_request_intel_nic_temperature nic(1);
    agent.set_port_input(1u);
    link(nic, {&list, &agent, &slot});
    plug(0x8086, 0x1521);
    const struct {
        frame_answers answers;
        bool taken;
        exchanges sent;
        float valid, degrees, slot;
    } rows[] = {
        {{{command, {}}, {data, good}}, false, {command, data}, 1, 77, 77},
        {{{command, {}}, {data, good}}, true, {}, 1, 77, 77},
        {{{command, {}}, {data, {9, 0, 0, 0, 78}}}, false, {command, data}, 0, 255, 77},
        {{{command, {}}, {data, good}}, true, {}, 0, 255, 77},
        {{{command, {}}, {data, {10}}}, false, {command, data}, 1, 0, 0},  // a short answer
        {{{command, {}}}, false, {command, data}, 0, 255, 0},
        {{{data, good}}, false, {command}, 0, 255, 0},
    };
    for (const auto& r : rows) {
        SCOPED_TRACE(&r - rows);
        answers = r.answers;
        r.taken ? poll_without_bus(nic, agent) : poll(nic);
        EXPECT_EQ(take_sent(), r.sent);
        EXPECT_EQ(stored("pci_request_intel_nic_temperature.valid"), r.valid);
        EXPECT_EQ(stored("pci_request_intel_nic_temperature.temperature"), r.degrees);
        EXPECT_EQ(told("temperature"), r.slot);
    }
    const std::string name = "common_thermal_device_pci_request_intel_nic_temperature";
    EXPECT_EQ(lines_with(name + "0::request_temperature - cur_status(0) - sizeof(req_cmd):3 - sizeof(rsp_cmd):1 \n"),
              5);
    EXPECT_EQ(lines_with(name + "1::request_temperature - cur_status(7)\n"), 4);
    EXPECT_EQ(lines_with(name + "2::request_temperature - cur_status(2)\n"), 1);
    EXPECT_EQ(lines_with(name + "3::request_temperature - cur_status(2) -rsp_data[0]:9 -rsp_data[4]:78 \n"), 1);
    EXPECT_EQ(lines_with(name + "::request_temperature - cur_status(2)\n"), 3);
    agent.get_agent_token("intel_nictemp.0");
    poll(nic);
    EXPECT_FALSE(sent.empty()) << "it asks under this name";
}

TEST_F(card_temperature_test, the_logic_device_gives_chip_or_board_and_the_hotter_module) {
    constexpr int none = -1;
    common_thermal_device_pci_agent_pensando_cpld agent(1);
    common_thermal_device_pci_request_pensando_cpld_temperature cpld(1);
    agent.set_port_input(1u);
    link(cpld, {&list, &agent, &slot});
    plug(0x1DD8, 0x1002);
    const auto shown_values = [this] {
        std::vector<float> values;
        for (const char* word :
             {"asic_temperature", "board_temperature", "qsfp_p1_temperature", "qsfp_p2_temperature"}) {
            values.push_back(stored(std::string("pci_request_pensando_cpld_temperature.") + word));
        }
        return values;
    };
    const struct {
        int asic, board, status, p1, p2;  // registers; none fails
        std::vector<float> values;
        float primary, secondary;
        std::size_t exchanges;
    } rows[] = {
        {60, 40, 3, 50, 55, {60, 0, 50, 55}, 60, 55, 4},
        {none, 40, 3, 56, 51, {255, 40, 56, 51}, 40, 56, 5},
        {0, 41, 2, 50, 50, {0, 40, 0, 50}, 0, 50, 3},
        {none, none, 1, 52, 50, {255, 255, 52, 0}, 0, 52, 4},
        {61, none, none, 1, 1, {61, 255, 52, 0}, 61, 0, 2},
        {61, none, 3, none, 53, {61, 255, 255, 53}, 61, 53, 4},
        {61, none, 3, 54, none, {61, 255, 54, 255}, 61, 54, 4},
        {61, none, 0xFC, 54, 54, {61, 255, 0, 0}, 61, 0, 2},
        {none, none, none, none, none, {255, 255, 0, 0}, 0, 0, 3},
    };
    for (const auto& r : rows) {
        SCOPED_TRACE(&r - rows);
        answers.clear();
        for (const auto& [number, value] : std::initializer_list<std::pair<std::uint8_t, int>>{
                 {0x16, r.asic}, {0x18, r.board}, {0x40, r.status}, {0x19, r.p1}, {0x1A, r.p2}}) {
            if (value != none) {
                answers[{number}] = {static_cast<std::uint8_t>(value)};
            }
        }
        poll(cpld);
        EXPECT_EQ(take_sent().size(), r.exchanges);
        EXPECT_EQ(shown_values(), r.values);
        EXPECT_TRUE(told("temperature") == r.primary && told("secondary_temperature") == r.secondary);
    }
    const std::string log = "common_thermal_device_pci_request_pensando_cpld_temperature::request_register_reading - ";
    EXPECT_EQ(lines_with(log + "Reg[16]:[3D]\n"), 4);
    EXPECT_EQ(lines_with(log + "Reg[40]:cur_status(2)\n"), 2);
    slot.set_primary_temperature(1);
    poll_without_bus(cpld, agent);
    EXPECT_TRUE(told("temperature") == 0 && told("secondary_temperature") == 0 && sent.empty());
    EXPECT_EQ(shown_values(), rows[8].values);
    agent.get_agent_token("psdcpldtemp.0");
    poll(cpld);
    EXPECT_FALSE(sent.empty()) << "it asks under this name";
}

TEST_F(card_temperature_test, the_power_meter_tells_slots_every_reading_it_has) {
    common_thermal_device_pci_request_pci_power_meter meter(1);
    link(meter, {&slot});
    slot.set_power_consumption(5);
    EXPECT_TRUE(reading(meter) == 0 && told("power") == 5) << "unbound";
    auto& line = host.ports.add_number(3u, 4294967295u);
    meter.set_port_input(3u);
    EXPECT_TRUE(reading(meter) == 4294967296.0f && told("power") == 4294967296.0f) << "not scaled";
    line.fail_reads(1);
    EXPECT_TRUE(reading(meter) == 0 && told("power") == 4294967296.0f);
    line.set_value(0);
    EXPECT_TRUE(reading(meter) == 0 && told("power") == 0);
}

TEST_F(card_temperature_test, random_bytes_leave_temperatures_of_one_byte_and_no_bus_taken) {
    std::mt19937 random(5);
    port.set_script([&](const std::uint8_t*, std::uint32_t, std::uint8_t* in, std::uint32_t max, int& status) {
        status = random() % 4 == 0 ? 5 : status;
        const auto given = static_cast<std::uint32_t>(random() % (max + 1));
        std::generate_n(in, given, [&] {
            constexpr std::uint8_t likely[] = {0x04, 0x06, 0x0A, 0x02};
            return random() % 3 == 0 ? likely[random() % 4] : static_cast<std::uint8_t>(random());
        });
        return given;
    });
    std::tuple<common_thermal_device_pci_agent_amd, common_thermal_device_pci_agent_xilinx,
               common_thermal_device_pci_agent_intel_fpga, common_thermal_device_pci_agent_nvmemi,
               common_thermal_device_pci_agent_intel_nic, common_thermal_device_pci_agent_pensando_cpld>
        agents(1, 1, 1, 1, 1, 1);
    std::tuple<
        common_thermal_device_pci_request_amd_temperature, common_thermal_device_pci_request_amd_memory_temperature,
        common_thermal_device_pci_request_amd_power, common_thermal_device_pci_request_intel_fpga_board_temperature,
        common_thermal_device_pci_request_xilinx_temperature, common_thermal_device_pci_request_ai100_temperature,
        common_thermal_device_pci_request_intel_nic_temperature,
        common_thermal_device_pci_request_pensando_cpld_temperature>
        devices(1, 1, 1, 1, 1, 1, 1, 1);
    const auto each_agent = [&](auto&& visit) { std::apply([&](auto&... agent) { (visit(agent), ...); }, agents); };
    const auto each_device = [&](auto&& visit) { std::apply([&](auto&... device) { (visit(device), ...); }, devices); };
    each_agent([&](auto& agent) { agent.set_port_input(1u); });
    each_device([&](auto& device) {
        link(device, {&list, &slot});
        each_agent([&](auto& agent) { link(device, {&agent}); });
    });
    for (int i = 0; i < 4000; ++i) {
        if (i % 100 == 0) {
            list.deactive_command();
            plug(0x1002, i % 200 == 0 ? 0x66A1 : 1);
            plug(0x10EE, 0);
            plug(0x17CB, 0xA100);
            plug(0x8086, 0x1521);
            plug(0x1DD8, 0x1002);
        }
        const bool taken = random() % 8 == 0;
        each_agent([&](auto& agent) {
            EXPECT_NE(agent.get_agent_token("another"), 0u);
            taken ? void() : agent.release_agent_token();
        });
        each_device([&](auto& device) { poll(device); });
        each_agent([&](auto& agent) { agent.release_agent_token(); });
        ASSERT_TRUE(told("temperature") >= 0 && told("temperature") <= 255);
        ASSERT_TRUE(told("secondary_temperature") >= 0 && told("secondary_temperature") <= 255);
        ASSERT_TRUE(told("power") >= 0 && told("power") <= 65535000);
    }
}

}  // namespace
