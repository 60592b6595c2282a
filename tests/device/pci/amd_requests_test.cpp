#include "device/pci/amd_requests.hpp"

#include "tests/device/pci/answering_card.hpp"

namespace {

using bytes = frame_bytes;
using exchanges = std::vector<bytes>;

const bytes ask_die{0x01, 0x04, 0x0F, 0x01, 0x66, 0x5F}, ask_memory{0x01, 0x04, 0x0F, 0x01, 0x5C, 0x52}, ask_data{0x03};
const bytes status{0xEF, 0x10}, die{0xEF, 0x11}, any_die{0xEF, 0x0E}, memory{0xEF, 0x12}, power{0xEF, 0x20};

class amd_test : public card_test {
protected:
    amd_test() {
        agent.set_port_input(1u);
        for (auto* device : all) {
            link(*device, {&list, &agent, &slot});
        }
    }

    void speak(bool plain) {
        list.deactive_command();
        plug(0x1002, plain ? 0x66A1 : 0x0001);
    }
    float temperature(const std::string& word) { return stored("pci_request_amd_temperature." + word); }
    float of_memory(const std::string& word) { return stored("pci_request_amd_memory_temperature." + word); }
    float of_power(const std::string& word) { return stored("pci_request_amd_power." + word); }

    common_thermal_device_pci_agent_amd agent{1};
    common_thermal_device_pci_request_amd_temperature temperature_device{1};
    common_thermal_device_pci_request_amd_memory_temperature memory_device{1};
    common_thermal_device_pci_request_amd_power power_device{1};
    const std::vector<common_thermal_device*> all{&temperature_device, &memory_device, &power_device};
};

TEST_F(amd_test, the_ambient_is_asked_only_for_a_die_that_does_not_answer) {
    const struct {
        bool plain;
        frame_answers card;
        exchanges sent;
        float die, ambient, high;
    } rows[] = {
        {true, {{ask_die, {}}, {ask_data, {4, 0, 0, 0, 200}}}, {ask_die, ask_data}, 200, 0, 200},
        {true, {{ask_die, {}}, {ask_data, {3, 0, 0, 0, 60}}, {{1}, {40}}}, {ask_die, ask_data, {1}}, 255, 40, 40},
        {true, {{ask_data, {4, 0, 0, 0, 60}}, {{1}, {41}}}, {ask_die, {1}}, 255, 41, 41},
        {true, {{ask_die, {}}, {ask_data, {4, 0, 0, 0, 30}}}, {ask_die, ask_data}, 30, 41, 41},  // the stale ambient
        {true, {{ask_die, {}}}, {ask_die, ask_data, {1}}, 255, 255, 0},
        {true, {{ask_die, {}}, {ask_data, {4, 0, 0, 0, 255}}}, {ask_die, ask_data}, 255, 255, 0},
        {false, {{status, {0xFF}}, {die, {61}}}, {status, die}, 61, 255, 61},
        {false, {{status, {0xFD}}, {die, {61}}, {any_die, {62}}}, {status, any_die}, 62, 255, 62},
        {false, {{die, {61}}, {any_die, {63}}}, {status, any_die}, 63, 255, 63},
        {false, {{status, {2}}, {any_die, {64}}}, {status, die, any_die}, 64, 255, 64},
        {false, {{status, {2}}}, {status, die, any_die}, 255, 255, 0},
    };
    for (const auto& r : rows) {
        SCOPED_TRACE(&r - rows);
        speak(r.plain);
        answers = r.card;
        poll(temperature_device);
        EXPECT_EQ(take_sent(), r.sent);
        EXPECT_EQ(temperature("die_temperature"), r.die);
        EXPECT_EQ(temperature("amb_temperature"), r.ambient);
        EXPECT_TRUE(temperature("high_temperature") == r.high && told("temperature") == r.high);
    }
    const std::string prefix = "common_thermal_device_pci_request_amd_temperature::request_";
    EXPECT_EQ(lines_with(prefix + "die_temperature_rm [EF][11]->[3D]:[07]\n"), 1);
    EXPECT_EQ(lines_with(prefix + "die_temperature_rm [EF][0E]->[00]:[02]\n"), 1);
    EXPECT_EQ(lines_with(prefix + "die_temperature_rm - cur_status(2)\n"), 1);
    EXPECT_EQ(lines_with(prefix + "amb_temperature_rm - NO_SUPPORT(2)\n"), 1);
}

TEST_F(amd_test, memory_is_valid_from_its_first_reading_until_the_bus_is_taken) {
    const struct {
        bool plain, taken;
        frame_answers card;
        float valid, degrees, slot;
    } rows[] = {
        {true, false, {{ask_memory, {}}}, 0, 255, 0},
        {true, false, {{ask_memory, {}}, {ask_data, {4, 0, 0x7F, 0, 0}}}, 1, 127, 127},
        {true, false, {{ask_memory, {}}, {ask_data, {4, 0, 0x80, 0, 0}}}, 1, 255, 255},
        {true, false, {{ask_memory, {}}, {ask_data, {4, 0, 80}}}, 1, 80, 80},
        {true, true, {}, 0, 80, 80},
        {true, false, {{ask_memory, {}}, {ask_data, {5, 0, 81, 0, 0}}}, 0, 255, 80},
        {false, false, {{status, {2}}, {memory, {200}}}, 1, 200, 200},
        {false, false, {{status, {1}}, {memory, {201}}}, 1, 255, 255},
        {false, false, {{memory, {202}}}, 1, 255, 255},
    };
    for (const auto& r : rows) {
        SCOPED_TRACE(&r - rows);
        speak(r.plain);
        answers = r.card;
        r.taken ? poll_without_bus(memory_device, agent) : poll(memory_device);
        EXPECT_TRUE(of_memory("valid") == r.valid && of_memory("temperature") == r.degrees);
        EXPECT_EQ(told("secondary_temperature"), r.slot);
    }
}

TEST_F(amd_test, a_power_that_is_not_valid_is_zero_for_the_slot_and_stands_in_the_store) {
    speak(false);
    answers = {{status, {2}}, {power, {44, 1}}};
    poll(power_device);
    for (const bytes& broken : {power, status}) {
        answers.erase(broken);
        poll(power_device);
        EXPECT_TRUE(of_power("valid") == 1 && of_power("power") == 300 && told("power") == 300000);
    }
    EXPECT_EQ(lines_with("amd_power::request_power_rm [EF][20]->[2C][01]:[07]\n"), 1);
    EXPECT_EQ(lines_with("amd_power::request_power_rm - cur_status(2)\n"), 2);
    speak(true);
    take_sent();
    poll(power_device);
    EXPECT_TRUE(take_sent().empty() && of_power("valid") == 1 && told("power") == 300000) << "the last one";
    EXPECT_EQ(lines_with("common_thermal_device_pci_request_amd_power::request_power - NO_SUPPORT(2)\n"), 1);
    poll_without_bus(power_device, agent);
    EXPECT_TRUE(of_power("valid") == 0 && of_power("power") == 300 && told("power") == 0);
}

TEST_F(amd_test, each_reading_takes_the_bus_under_a_name_of_its_own) {
    const struct {
        common_thermal_device& device;
        const char* token;
        bool plain;
        exchanges sent;
    } rows[] = {
        {temperature_device, "amddietemp.1.0", true, {ask_die, {1}}},
        {temperature_device, "amdambtemp.1.0", true, {{1}}},
        {memory_device, "amdmemtemp.1.0", true, {ask_memory}},
        {power_device, "amdpower.1.0", false, {status}},
    };
    for (const auto& r : rows) {
        speak(r.plain);
        agent.get_agent_token(r.token);
        poll(r.device);
        EXPECT_EQ(take_sent(), r.sent) << r.token;
        EXPECT_NE(agent.get_agent_token("another"), 0u) << "given back";
        agent.release_agent_token();
    }
}

TEST_F(amd_test, all_three_move_on_to_the_next_agent_also_when_they_are_refused) {
    common_thermal_device_pci_agent_amd unbound{2};
    for (auto* device : all) {
        poll(*device);
    }
    plug(0x10DE, 0x25B6);
    poll(temperature_device);
    EXPECT_TRUE(sent.empty() && dao.key_count() == 0) << "no card, or of another family";
    speak(false);
    for (auto* device : all) {
        link(*device, {&unbound});
        poll_without_bus(*device, agent);
        poll(*device);
        EXPECT_TRUE(take_sent().empty());
        poll(*device);
        EXPECT_FALSE(take_sent().empty());
        poll(*device);
        EXPECT_TRUE(take_sent().empty());
    }
}

}  // namespace
