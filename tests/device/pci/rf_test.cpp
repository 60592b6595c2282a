#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <fstream>
#include <random>

#include "device/pci/rf_temperatures.hpp"
#include "device/pci/supported_list.hpp"
#include "tests/device/device_fixture.hpp"

namespace {

using utils = common_thermal_utils;

constexpr std::uint32_t no_reading = 0xFFFFFFFF;
constexpr auto minus_5000 = static_cast<std::uint32_t>(-5000);

// What one poll shows: the six values that are published, by position, and what the slot heard.
using outcome = std::array<float, 11>;
enum heard : std::size_t { primary = 6, secondary, tertiary, margin, consumption };

struct rf_sensor {
    std::string key;  // of module 3
    std::uint32_t raw;
    std::string unbound;                              // in the log; nothing for one that is never read
    std::vector<std::pair<std::size_t, float>> lost;  // what changes without it
};

struct rf_family {
    std::string name, logged;
    std::array<std::string, 6> words;
    std::array<std::uint16_t, 3> card;
    outcome whole;
    std::array<rf_sensor, 5> sensors;
};

const rf_family nvidia{
    "pci_request_nvidia_rf_temperature",
    "pci_request_nvidia_rf_temperature",
    {"core1_temperature", "core2_temperature", "high_temperature", "hbm_temperature", "retimer_temperature", "power"},
    {0x10DE, 0x2330, 0x16C0},
    {45, -5, 45, 60.5f, 0.999f, 255, /**/ 45, 60.5f, 0.999f, -5, 255000},
    {{{"HGX_GPU_SXM_3_TEMP_0", 45000, "nvidia_rf::read_data CIO_TEMP_FIRST", {{0, 255}, {2, 0}, {primary, 255}}},
      {"HGX_GPU_SXM_3_TEMP_1", minus_5000, "nvidia_rf::read_data CIO_TEMP_SECOND", {{1, 255}, {margin, 255}}},
      {"HGX_GPU_SXM_3_DRAM_0_TEMP_0", 60500, "nvidia_rf::read_data CIO_TEMP_MEMORY", {{3, 255}, {secondary, 255}}},
      {"HGX_PCIE_RETIMER_3_TEMP_0", 999, "nvidia_rf::read_data CIO_TEMP_RETIMER", {{4, 255}, {tertiary, 255}}},
      {"HGX_GPU_SXM_3_POWER_0", 255000, "nvidia_rf::read_data CIO_POWER", {{5, 0}, {consumption, 0}}}}}};
const rf_family amd{
    "pci_request_amd_rf_temperature",
    "pci_request_amd_rf_temperature.1",
    {"temperature", "high_temperature", "hbm_temperature", "retimer_temperature", "consolidated_temperature", "power"},
    {0x1002, 0x74A1, 0},
    {45, 45, 60.5f, 50, 70, 350.25f, /**/ 45, 60.5f, 70, 255, 350250},
    {{{"GPU_3_DIE_TEMP", 45000, "amd_rf.6::read_data CIO_TEMP", {{0, 255}, {1, 0}, {primary, 0}}},
      {"GPU_3_MEMORY_TEMP", 60500, "amd_rf::read_data CIO_TEMP_MEMORY", {{2, 255}, {secondary, 255}}},
      {"GPU_RETIMER_3_TEMP", 50000, "amd_rf::read_data CIO_TEMP_RETIMER", {{3, 255}}},
      {"GPU_TCONTROL_CONSOLIDATED_TEMP", 70000, "amd_rf::read_data CIO_TEMP_RETIMER", {{4, 255}, {tertiary, 255}}},
      {"GPU_3_POWER", 350250, "amd_rf::read_data CIO_POWER", {{5, 0}, {consumption, 0}}}}}};
const rf_family gaudi3{
    "pci_request_intel_gaudi3_temperature",
    "pci_request_intel_gaudi3_temperature",
    nvidia.words,
    {0x1DA3, 0x1060, 0},
    {45, 50, 50, 0, 40, 0, /**/ 45, 0, 40, 50, 0},
    {{{"GPU_3_DIE_TEMP", 45000, "intel_gaudi3::read_data CIO_TEMP_FIRST", {{0, 255}, {primary, 255}}},
      {"GPU_OAM_3_MIN_TEMP_MARGIN", 50, "intel_gaudi3::read_data CIO_TEMP_SECOND", {{1, 255}, {2, 45}, {margin, 255}}},
      {"GPU_OAM3_DRAM_MAX_TEMP", 60000, "", {}},
      {"GPU_RETIMER_3_TEMP", 40000, "intel_gaudi3::read_data CIO_TEMP_RETIMER", {{4, 255}, {tertiary, 255}}},
      {"GPU_OAM3_POWER", 350000, "", {}}}}};

class rf_test : public device_test {
protected:
    rf_test() {
        host.ports.add_number("GPU_UBB_PRESENT", 1);
        nvidia_agent.set_num(slot_number, 3);
        amd_agent.set_num(3);
        gaudi3_agent.set_num(3);
        link(nvidia_request, {&list, &nvidia_agent, &slot});
        link(amd_request, {&list, &amd_agent, &slot});
        link(gaudi3_request, {&list, &gaudi3_agent, &slot});
    }
    void TearDown() override { std::remove(slot_file.c_str()); }

    void plug(const rf_family& family) {
        utils::pci_info_t function;
        function.vendor_id = family.card[0];
        function.device_id = family.card[1];
        function.sub_device_id = family.card[2];
        list.active_command(&function);
    }

    outcome poll_once(const rf_family& family, common_thermal_device& device) {
        poll(device);
        poll(slot);
        outcome shown{};
        for (std::size_t i = 0; i < family.words.size(); ++i) {
            shown[i] = stored(family.name + "." + family.words[i]);
        }
        shown[primary] = stored("pci_slot.temperature");
        shown[secondary] = stored("pci_slot.secondary_temperature");
        shown[tertiary] = stored("pci_slot.tertiary_temperature");
        shown[margin] = stored("pci_slot.margin");
        shown[consumption] = stored("pci_slot.power");
        return shown;
    }

    void expect_sensors_by_themselves(const rf_family& family, common_thermal_device& device) {
        plug(family);
        for (const rf_sensor& sensor : family.sensors) {
            host.ports.add_number(sensor.key, sensor.raw);
        }
        for (const rf_sensor& sensor : family.sensors) {
            SCOPED_TRACE(sensor.key);
            EXPECT_EQ(poll_once(family, device), family.whole);
            outcome without = family.whole;
            for (const auto& [place, value] : sensor.lost) {
                without[place] = value;
            }
            host.ports.add_number(sensor.key, no_reading);
            EXPECT_EQ(poll_once(family, device), without);
            host.ports.add_number(sensor.key, 77000).fail_reads();
            EXPECT_EQ(poll_once(family, device), without);
            host.ports.remove(sensor.key);
            host.log.captured().clear();
            EXPECT_EQ(poll_once(family, device), without);
            const std::string unbound =
                sensor.unbound.empty() ? std::string() : "common_thermal_device_pci_agent_" + sensor.unbound;
            const int lost = sensor.unbound.empty() ? 0 : 1, refused = family.whole[5] == 0 ? 1 : 0;
            EXPECT_EQ(lines_with(unbound + " not bound. request_reading.1\n"), lost);
            EXPECT_EQ(lines_with(family.logged + "::request_reading - cur_status(2)\n"), lost + refused);
            host.ports.add_number(sensor.key, sensor.raw);
        }
        for (int i = 0; i < 1500; ++i) {
            const std::string& key = family.sensors[random() % family.sensors.size()].key;
            host.ports.add_number(key, static_cast<std::uint32_t>(random()) >> random() % 32).fail_reads(random() % 2);
            for (const float value : poll_once(family, device)) {
                ASSERT_TRUE(std::isfinite(value));
            }
        }
    }

    std::mt19937 random{7};
    const unsigned slot_number = 2000000u + static_cast<unsigned>(::getpid());
    const std::string slot_file = "/tmp/.slot" + std::to_string(slot_number) + "_cioname";
    common_thermal_device_pci_supported_list list{1};
    common_thermal_device_pci_slot slot{1};
    common_thermal_device_pci_agent_nvidia_rf nvidia_agent{5};
    common_thermal_device_pci_agent_amd_rf amd_agent{6};
    common_thermal_device_pci_agent_intel_gaudi3 gaudi3_agent{7};
    common_thermal_device_pci_request_nvidia_rf_temperature nvidia_request{1};
    common_thermal_device_pci_request_amd_rf_temperature amd_request{1};
    common_thermal_device_pci_request_intel_gaudi3_temperature gaudi3_request{1};
};

TEST_F(rf_test, each_sensor_comes_and_goes_by_itself) {
    expect_sensors_by_themselves(nvidia, nvidia_request);
    expect_sensors_by_themselves(gaudi3, gaudi3_request);
    slot.set_margin(255);
    expect_sensors_by_themselves(amd, amd_request);
}

TEST_F(rf_test, raw_values_are_read_as_each_family_gives_them) {
    float out = 0.0f;
    const auto decoded = [&](rf_temperature_request& device, rf_agent& agent) {
        device.request_reading(agent, rf_reading::first, &out);
        return out;
    };
    const struct {
        std::uint32_t raw;
        float nvidia, amd, gaudi3;
    } rows[] = {{0, 0, 0, 0},
                {999, 0.999f, 0.999f, 999},
                {1000, 1, 1, 1},
                {minus_5000, -5, 4294962, 4294962},
                {0x80000000, -2147483.75f, 2147483.75f, 2147483.75f},
                {no_reading, 255, 255, 255}};
    for (const auto& r : rows) {
        host.ports.add_number(nvidia.sensors[0].key, r.raw);
        host.ports.add_number(amd.sensors[0].key, r.raw);
        EXPECT_EQ(decoded(nvidia_request, nvidia_agent), r.nvidia) << r.raw;
        EXPECT_EQ(decoded(amd_request, amd_agent), r.amd) << r.raw;
        EXPECT_EQ(decoded(gaudi3_request, gaudi3_agent), r.gaudi3) << "the die has the same name; " << r.raw;
    }
    for (const std::uint32_t type : {0u, 6u, no_reading}) {
        EXPECT_EQ(amd_request.request_reading(amd_agent, rf_reading::type{type}, &out), utils::cmd_failed);
    }
    plug(nvidia);
    host.ports.add_number(nvidia.sensors[0].key, minus_5000);
    EXPECT_EQ(poll_once(nvidia, nvidia_request), (outcome{-5, 255, 0, 255, 255, 0, -5, 255, 255, 255, 0}));
    plug(gaudi3);
    host.ports.add_number(gaudi3.sensors[0].key, 255);
    EXPECT_EQ(poll_once(gaudi3, gaudi3_request), (outcome{255, 255, 0, 0, 255, 0, 255, 0, 255, 255, 0}));
}

TEST_F(rf_test, a_card_is_read_only_while_its_list_knows_it) {
    auto& sensor = host.ports.add_number(nvidia.sensors[0].key, 45000);
    common_thermal_device_pci_request_nvidia_rf_temperature without_agent(2), without_list(3);
    link(without_agent, {&list, &slot});
    link(without_list, {&nvidia_agent});
    plug(amd);
    poll(nvidia_request);
    poll(without_list);
    plug(nvidia);
    poll(without_agent);
    EXPECT_EQ(sensor.reads() + dao.key_count(), 0u);
    poll(nvidia_request);
    list.deactive_command();
    sensor.set_value(50000);
    poll(nvidia_request, 3);
    EXPECT_EQ(stored(nvidia.name + ".core1_temperature"), 45.0f) << "the last one";
    EXPECT_EQ(sensor.reads(), 1u);
}

TEST_F(rf_test, several_modules_are_read_in_turn) {
    nvidia_agent.set_num(slot_number, 0);
    common_thermal_device_pci_agent_nvidia_rf second(8);
    second.set_num(slot_number, 7);
    link(nvidia_request, {&second});
    plug(nvidia);
    host.ports.add_number("HGX_GPU_SXM_0_TEMP_0", 45000);
    host.ports.add_number("HGX_GPU_SXM_7_TEMP_0", 46000);
    for (const float degrees : {45.0f, 46.0f, 45.0f, 46.0f}) {
        EXPECT_EQ(reading(nvidia_request), degrees);
    }
    EXPECT_TRUE(second.get_num() == 7 && nvidia_agent.get_num() == 1);
}

TEST_F(rf_test, the_agent_tells_which_bus_leads_to_its_slot_whatever_its_module) {
    const auto content = [this] {
        std::ifstream file(slot_file);
        return std::string(std::istreambuf_iterator<char>(file), {});
    };
    EXPECT_EQ(content(), "\n") << "nobody bound the bus";
    nvidia_agent.set_port_input("SLOT_3_BUS");
    for (const unsigned num : {2u, 0u, 1u}) {
        std::remove(slot_file.c_str());
        nvidia_agent.set_num(slot_number, num);
        EXPECT_EQ(content(), "SLOT_3_BUS\n");
    }
    poll(nvidia_agent);
    EXPECT_TRUE(nvidia_agent.debug().empty() && dao.key_count() == 0) << "a device in name only";
}

}  // namespace
