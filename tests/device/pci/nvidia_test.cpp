#include <deque>
#include <map>
#include <memory>
#include <random>
#include <tuple>
#include <utility>

#include "device/pci/nvidia_capability.hpp"
#include "device/pci/nvidia_readings.hpp"
#include "tests/device/device_fixture.hpp"

namespace {

using utils = common_thermal_utils;
using bytes = std::vector<std::uint8_t>;
using command = std::pair<std::uint8_t, std::uint8_t>;  // operation and its first argument

constexpr command page0{1, 0}, page1{1, 1}, page2{1, 2}, die{2, 0}, memory{2, 5}, limit{2, 7}, power{4, 0};

// One core: answers each command with its word after some polls.
struct core_mailbox {
    explicit core_mailbox(thermal_host::block_line& port) {
        port.set_script(
            [this](const std::uint8_t* out, std::uint32_t size, std::uint8_t* in, std::uint32_t max, int& failure) {
                sent.emplace_back(out, out + size);
                if (fails_at-- == 0) {
                    failure = 5;
                    return 0u;
                }
                const bytes answer = reply(sent.back());
                const std::size_t given = std::min({answer.size(), length, std::size_t{max}});
                std::copy_n(answer.begin(), given, in);
                return static_cast<std::uint32_t>(given);
            });
    }

    bytes reply(const bytes& out) {
        if (out.size() == 6) {
            asked = {out[2], out[3]};
            waits = slow;
            return {};
        }
        if (out[0] == mailbox::data_register) {
            const mailbox::frame data = mailbox::data(words[asked]);
            return {4, data[2], data[3], data[4], data[5]};
        }
        return {4, asked.first, 0, 0, waits-- > 0 ? std::uint8_t{0x80} : status};
    }

    std::vector<bytes> take_sent() { return std::exchange(sent, {}); }

    std::map<command, std::uint32_t> words{{page0, 0xAF}, {page1, 0x11}, {page2, 0x02}};
    int slow = 0;       // status reads that a command keeps the core busy
    int fails_at = -1;  // exchanges until the bus fails once
    std::size_t length = 5;
    std::uint8_t status = 0x9F;
    int waits = 0;
    command asked;
    std::vector<bytes> sent;
};

std::vector<bytes> whole_request(const command& what) {
    return {{0x5C, 4, what.first, what.second, 0, 0x80}, {0x5C}, {0x5D}};
}

class nvidia_test : public device_test {
protected:
    nvidia_test() {
        host.log.captured().set_capacity(4096);
        insert_card();
        for (auto* device : devices) {
            link(*device, {&list, &capability, &slot});
        }
        add_core(1);
    }

    core_mailbox& add_core(unsigned num) {
        const auto number = static_cast<unsigned>(cores.size()) + 1;
        cores.emplace_back(host.ports.add_block(number, {}));
        agents.push_back(std::make_unique<common_thermal_device_pci_agent_nvidia>(static_cast<int>(number)));
        agents.back()->set_port_input(number);
        agents.back()->set_num(num);
        for (auto* device : devices) {
            link(*device, {agents.back().get()});
        }
        return cores.back();
    }

    void insert_card(std::uint16_t device = 0x2236, std::uint16_t sub_device = 0) {
        utils::pci_info_t function;
        function.vendor_id = 0x10DE;
        function.device_id = device;
        function.sub_device_id = sub_device;
        list.active_command(&function);
    }
    void find_capabilities() {
        poll(capability, 3);
        cores[0].take_sent();
    }

    void poll_all(int times = 1) {
        for (int i = 0; i < times; ++i) {
            for (common_thermal_device* device : devices) {
                poll(*device);
            }
        }
    }

    float cap(const std::string& word) { return stored("pci_request_nvidia_capability." + word); }
    float value(const std::string& name) { return stored("pci_request_nvidia_" + name); }
    float slot_value(const std::string& word) {
        poll(slot);
        return stored("pci_slot." + word);
    }
    bool is_free() {
        const bool free = agents[0]->get_agent_token("somebody") != 0;
        if (free) {
            agents[0]->release_agent_token();
        }
        return free;
    }

    common_thermal_device_pci_supported_list list{1};
    common_thermal_device_pci_slot slot{1};
    common_thermal_device_pci_request_nvidia_capability capability{1};
    common_thermal_device_pci_request_nvidia_temperature die_reader{1};
    common_thermal_device_pci_request_nvidia_memory_temperature memory_reader{1};
    common_thermal_device_pci_request_nvidia_tlimit_temperature limit_reader{1};
    common_thermal_device_pci_request_nvidia_power power_reader{1};
    const std::vector<common_thermal_device*> devices{&capability, &die_reader, &memory_reader, &limit_reader,
                                                      &power_reader};
    std::deque<core_mailbox> cores;
    std::vector<std::unique_ptr<common_thermal_device_pci_agent_nvidia>> agents;
};

TEST_F(nvidia_test, capabilities_come_from_three_pages_one_a_poll) {
    core_mailbox& core = cores[0];
    core.words = {{page0, 0x80000025}, {page1, 7}, {page2, 3}};
    for (const command& page : {page0, page1, page2}) {
        poll(capability);
        EXPECT_EQ(core.take_sent(), whole_request(page));
    }
    for (const unsigned core_number : {0u, 1u, 2u, 3u, 4u, 5u}) {
        EXPECT_EQ(capability.is_support_core_temp(core_number), core_number == 1 || core_number == 3) << core_number;
    }
    EXPECT_TRUE(capability.is_support_hbm_temp() && !capability.is_support_tlimit_temp());
    EXPECT_TRUE(cap("cap0") == 2147483648.0f && cap("cap1") == 7 && cap("cap2") == 3 && cap("driver_load") == 0);

    core.words = {{page0, 0x82}, {page1, 8}, {page2, 2}};
    poll(capability, 3);
    EXPECT_EQ(cap("support_core1_temp") + cap("support_core3_temp") + cap("support_hbm_temp"), 0.0f);
    const auto flags = [this] { return cap("support_core2_temp") + cap("support_tlimit_temp") + cap("driver_load"); };
    EXPECT_EQ(flags(), 3.0f);
    for (const int exchange : {0, 1, 2}) {
        core.fails_at = exchange;
        poll(capability);
    }
    EXPECT_EQ(cap("cap0") + cap("cap1") + cap("cap2"), 0.0f);
    EXPECT_EQ(flags(), 3.0f) << "a lost page takes no flag away";
    core.words = {};
    poll(capability, 3);
    EXPECT_EQ(flags(), 3.0f) << "nor does an empty one after it";
}

TEST_F(nvidia_test, settled_pages_are_not_read_again_until_the_card_goes) {
    core_mailbox& core = cores[0];
    poll(capability, 14);
    core.take_sent();
    for (const std::uint32_t driver : {2u, 3u, 2u}) {
        core.words[page2] = driver;
        poll(capability);
        EXPECT_EQ(core.take_sent(), whole_request(page2));
        EXPECT_EQ(cap("driver_load"), driver == 2 ? 1.0f : 0.0f);
        poll(capability, 2);
        EXPECT_TRUE(core.take_sent().empty() && is_free());
    }
    EXPECT_EQ(lines_with("capability::is_cap_val_changed-[00][000000AF]\n"), 4);
    for (const char* line : {"poll-cap.2.0-1\n", "poll-1[00]\n", "poll-1 Force4core:[00]\n"}) {
        EXPECT_GT(lines_with(std::string("capability::") + line), 0);
    }
    std::uint32_t word = 5;
    EXPECT_EQ(capability.request_capability(1, utils::cmd_idle, 1, agents[0].get(), word), utils::cmd_skipped);
    EXPECT_EQ(capability.request_capability(1, utils::cmd_idle, 3, agents[0].get(), word), utils::cmd_failed);

    list.deactive_command();
    poll(capability);
    EXPECT_EQ(cap("cap0") + cap("cap1") + cap("cap2") + cap("support_core1_temp") + cap("driver_load"), 0.0f);
    insert_card(0x25B6, 0x14A9);
    core.words[page0] = 0x20;
    poll(capability);
    EXPECT_TRUE(cap("cap2") == 2 && cap("cap0") == 0) << "goes on where it stood";
    poll(capability);
    EXPECT_EQ(cap("support_core1_temp") + cap("support_core4_temp"), 2.0f) << "a card that says too little";
    EXPECT_EQ(cap("support_hbm_temp") + cap("support_tlimit_temp"), 1.0f);
    core.words[page0] = 0;
    poll(capability, 40);
    core.take_sent();
    poll(capability, 3);
    EXPECT_EQ(core.take_sent().size(), 9u) << "an empty page never settles";
}

TEST_F(nvidia_test, each_reading_has_its_own_command_and_place_in_the_slot) {
    const struct {
        common_thermal_device* reader;
        command what;
        const char *key, *slot_word;
        std::uint32_t word;
        float start, expected, failed, slot_failed;
    } rows[] = {{&die_reader, die, "temperature.core1_temperature", "temperature", 0x2A00, 0, 42, 255, 0},
                {&memory_reader, memory, "memory_temperature.temperature", "secondary_temperature", 0xFFFFF600, 0, -10,
                 255, 255},
                {&limit_reader, limit, "tlimit_temperature.temperature", "margin", 0xFFFFFF80, 255, -1, 255, 255},
                {&power_reader, power, "power.core1_power", "power", 300500, 0, 300500, 300500, 300500}};
    core_mailbox& core = cores[0];
    find_capabilities();
    for (const auto& r : rows) {
        SCOPED_TRACE(r.key);
        core.words[r.what] = r.word;
        core.slow = 2;
        const std::vector<bytes> all = whole_request(r.what);
        for (const auto& sent : {std::vector<bytes>{all[0], all[1]}, {all[1]}, {all[1], all[2]}}) {
            poll(*r.reader);
            EXPECT_EQ(core.take_sent(), sent);
            EXPECT_EQ(is_free(), sent.back() == all[2]);
            EXPECT_EQ(value(r.key), is_free() ? r.expected : r.start);
        }
        EXPECT_EQ(slot_value(r.slot_word), r.expected);
        core.slow = 0;
        for (const std::uint8_t end : bytes{0x9C, 0x0A}) {
            core.status = end;
            poll(*r.reader);
            EXPECT_TRUE(value(r.key) == r.expected && is_free()) << "accepted and busy end it without a value";
        }
        for (int exchange = 0; exchange < 4; ++exchange) {
            core.status = 0x9F;
            poll(*r.reader);
            core.status = exchange < 3 ? 0x9F : 0x9E;
            core.fails_at = exchange < 3 ? exchange : -1;
            poll(*r.reader);
            EXPECT_TRUE(value(r.key) == r.failed && is_free()) << exchange;
        }
        EXPECT_EQ(slot_value(r.slot_word), r.slot_failed);
        EXPECT_EQ(lines_with(r.reader->get_name() + "::request_temperature - cur_status(2)\n"),
                  r.reader == &power_reader ? 0 : 4);
        core.status = 0x9F;
        poll(*r.reader);
        core.slow = 1000;
        poll(*r.reader, 249);
        EXPECT_TRUE(value(r.key) == r.expected && !is_free());
        poll(*r.reader);
        EXPECT_TRUE(value(r.key) == r.failed && is_free()) << "out of patience";
        core.take_sent();
    }
}

TEST_F(nvidia_test, a_limit_that_leaps_up_or_down_reaches_the_slot_before_the_spike_filter_believes_it) {
    const std::string key = "pci_request_nvidia_tlimit_temperature.temperature";
    filter(key, 0);
    dao.update_dev("1SCH.common_thermal_device_" + key, 1, 90, false);
    dao.update_dev("1SCL.common_thermal_device_" + key, 1, 10, false);
    find_capabilities();
    for (const auto& [told, believed] : {std::pair{20u, 20}, {95u, 20}, {20u, 20}, {5u, 20}, {5u, 5}}) {
        cores[0].words[limit] = told << 8;
        poll(limit_reader);
        EXPECT_EQ(stored(key), static_cast<float>(believed));
        EXPECT_EQ(slot_value("margin"), static_cast<float>(told));
    }
}

TEST_F(nvidia_test, cores_are_visited_in_turn_and_make_one_reading) {
    for (const unsigned num : {2u, 3u, 4u, 5u}) {
        add_core(num).status = num == 2 ? 0x9E : 0x9F;
    }
    for (core_mailbox& core : cores) {
        core.words[die] = &core == &cores[0] ? 40 << 8 : 25 << 8;
        core.words[power] = 1000;
    }
    find_capabilities();
    for (const float second : {0.0f, 255.0f}) {
        poll(die_reader);
        EXPECT_EQ(value("temperature.core2_temperature"), second);
        EXPECT_TRUE(value("temperature.high_temperature") == 40 && slot_value("temperature") == 40);
    }
    cores[1].status = 0x9F;
    poll(die_reader, 3);
    EXPECT_EQ(value("temperature.core4_temperature"), 25.0f);
    poll(power_reader, 4);
    EXPECT_TRUE(value("power.power") == 4000 && slot_value("power") == 4000);
    poll(power_reader);
    EXPECT_TRUE(value("power.power") == 4000 && slot_value("power") == 0) << "a fifth core is nobody's";
    EXPECT_TRUE(cores[4].take_sent().empty());

    for (core_mailbox& core : cores) {
        core.words[page0] = 0;
    }
    poll(capability, 15);
    slot.set_primary_temperature(7);
    slot.set_margin(8);
    poll_all(4);
    EXPECT_EQ(value("temperature.core4_temperature") + value("temperature.high_temperature"), 0.0f);
    EXPECT_TRUE(value("tlimit_temperature.temperature") == 255 && value("power.power") == 0);
    EXPECT_TRUE(slot_value("temperature") == 7 && slot_value("margin") == 8 && slot_value("power") == 0);
}

TEST_F(nvidia_test, a_refused_token_changes_nothing_and_keeps_the_turn) {
    find_capabilities();
    cores[0].words[die] = 40 << 8;
    poll(die_reader);
    slot.set_primary_temperature(0);
    cores[0].take_sent();
    ASSERT_NE(agents[0]->get_agent_token("somebody"), 0u);
    poll(capability, 3);
    poll(die_reader, 3);
    EXPECT_TRUE(cores[0].take_sent().empty());
    EXPECT_TRUE(value("temperature.core1_temperature") == 40 && slot_value("temperature") == 40);
    agents[0]->release_agent_token();
    poll(capability);
    EXPECT_EQ(cores[0].take_sent(), whole_request(page0));
}

TEST_F(nvidia_test, a_gate_that_shuts_in_flight_frees_the_agent_for_the_next_card) {
    for (common_thermal_device* device : devices) {
        SCOPED_TRACE(device->get_name());
        poll(capability, 3);
        cores[0].slow = 5;
        poll(*device);
        EXPECT_FALSE(is_free());
        dao.update_dev("common_thermal_device_pci_request_nvidia_power.power", 1, 77, false);
        list.deactive_command();
        poll(*device, 2);
        EXPECT_TRUE(is_free() && value("power.power") == 77);
        EXPECT_EQ(lines_with(device->get_name() + "::release_owned_token [0]\n"), 1);
        insert_card();
        cores[0].slow = 0;
        cores[0].take_sent();
        poll(*device);
        EXPECT_EQ(cores[0].take_sent().size(), 3u) << "sent anew";
    }
}

TEST_F(nvidia_test, a_driver_that_unloads_ends_the_power_request_in_flight) {
    find_capabilities();
    add_core(2).words[page2] = 3;
    cores[0].words[power] = 5000;
    poll(power_reader, 2);
    cores[0].slow = 9;
    poll(power_reader);
    EXPECT_TRUE(!is_free() && slot_value("power") == 5000);
    poll(capability, 3);
    EXPECT_FALSE(capability.is_driver_loaded()) << "as the other core says";
    poll(power_reader);
    EXPECT_TRUE(is_free() && value("power.power") == 0 && slot_value("power") == 0);
    EXPECT_EQ(lines_with("nvidia_power::release_owned_token [0]\n"), 1);
}

TEST_F(nvidia_test, the_next_capability_device_follows_the_last_agent) {
    common_thermal_device_pci_request_nvidia_capability other(2);
    link(die_reader, {&other});
    add_core(2);
    find_capabilities();
    cores[0].words[die] = cores[1].words[die] = 40 << 8;
    for (const float high : {40.0f, 40.0f, 40.0f, 0.0f, 40.0f}) {
        poll(die_reader);
        EXPECT_EQ(value("temperature.high_temperature"), high) << "the other one knows of no core";
    }
    for (const auto& [name, times] : {std::pair{"0.0", 2}, {"0.1", 1}, {"1.0", 1}, {"1.1", 1}}) {
        EXPECT_EQ(lines_with(std::string("Req[nvtemp.") + name + "]\n"), times) << name;
    }
}

TEST_F(nvidia_test, random_answers_leave_a_card_that_can_be_read_again) {
    host.log.set_mask(0);
    add_core(2);
    std::mt19937 random(5);
    const auto chance = [&random](unsigned of) { return random() % of == 0; };
    for (int round = 0; round < 4000; ++round) {
        for (core_mailbox& core : cores) {
            core.status = static_cast<std::uint8_t>(random());
            core.fails_at = chance(20) ? static_cast<int>(random() % 3) : -1;
            core.slow = chance(3) ? 2 : 0;
            core.asked.first = chance(30) ? 99 : core.asked.first;
            core.length = chance(10) ? random() % 6 : 5;
            for (const command& what : {page0, page1, page2, die, memory, limit, power}) {
                core.words[what] = static_cast<std::uint32_t>(random());
            }
        }
        if (chance(10)) {
            chance(5) ? list.deactive_command() : insert_card();
        }
        poll_all();
        ASSERT_FALSE(value("temperature.high_temperature") < 0 || value("power.power") < 0);
    }
    for (core_mailbox& core : cores) {
        std::tie(core.status, core.slow, core.fails_at, core.length) = std::tuple(0x9F, 0, -1, 5);
        core.words = {{page0, 0xAF}, {page1, 1}, {page2, 2}, {die, 30 << 8}, {limit, 9 << 8}, {power, 600}};
    }
    insert_card();
    poll_all(20);
    EXPECT_EQ(value("temperature.high_temperature"), 30.0f);
    EXPECT_EQ(value("tlimit_temperature.temperature"), 9.0f);
    EXPECT_EQ(value("power.core1_power") + value("power.core2_power"), 1200.0f);
}

TEST_F(nvidia_test, a_reader_without_agent_or_capability_device_publishes_nothing) {
    common_thermal_device_pci_request_nvidia_tlimit_temperature reader(2);
    for (common_thermal_device* next : std::initializer_list<common_thermal_device*>{&list, agents[0].get(), nullptr}) {
        reader.add_depend(next);
        poll(reader);
        reader.polling(nullptr, 0);
    }
    EXPECT_EQ(dao.key_count(), 0u);
    EXPECT_EQ(reader.debug(), "\ncommon_thermal_device_pci_request_nvidia_tlimit_temperature.temperature.2=255.000000");
    common_thermal_device_pci_request_nvidia_capability alone(2);
    link(alone, {&list});
    poll(alone, 4);
    EXPECT_EQ(dao.key_count(), 10u);
}

}  // namespace
