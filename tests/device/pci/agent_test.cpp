#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <set>
#include <utility>

#include "device/pci/agent_nvidia.hpp"
#include "device/pci/mailbox_exchange.hpp"
#include "device/pci/request_device.hpp"
#include "device/pci/supported_list.hpp"
#include "tests/device/device_fixture.hpp"

namespace {

using utils = common_thermal_utils;
using bytes = std::vector<std::uint8_t>;
using status_t = utils::nv_cmd_status_t;

// A card that records what it is sent and answers from a list; the last answer is given again and again.
class scripted_card {
public:
    explicit scripted_card(thermal_host::block_line& port) {
        port.set_script([this](const std::uint8_t* out, std::uint32_t size, std::uint8_t* in, std::uint32_t max, int&) {
            sent.emplace_back(out, out + size);
            asked.push_back(max);
            const bytes answer = max == 0 || answers.empty() ? bytes() : answers.front();
            if (max != 0 && answers.size() > 1) {
                answers.erase(answers.begin());
            }
            const auto given = std::min<std::size_t>(answer.size(), max);
            std::copy_n(answer.begin(), given, in);
            return static_cast<std::uint32_t>(given);
        });
    }

    std::vector<bytes> take_sent() { return std::exchange(sent, {}); }

    std::vector<bytes> answers;
    std::vector<bytes> sent;
    std::vector<std::uint32_t> asked;
};

TEST(token_names, are_the_prefix_and_what_is_visited_now) {
    token_name plain("xitemp."), grouped("power.");
    for (const std::uint32_t target : {0u, 0u, 1u, 4294967295u, 0u}) {
        EXPECT_EQ(plain.of(target), "xitemp." + std::to_string(target));
        EXPECT_EQ(grouped.of(0, target), "power.0." + std::to_string(target));
        EXPECT_EQ(grouped.of(1, target), "power.1." + std::to_string(target));
    }
}

class plain_agent_test : public device_test {
protected:
    status_t ask(plain_pci_agent& agent, std::uint32_t token, status_t state = utils::cmd_idle) {
        answer.fill(0xEE);
        return agent.write_read_command(token, state, bytes{0x01, 0x04}, answer, "request_power", 7);
    }

    template <class Agent>
    void expect_plain(const char* port_name) {
        SCOPED_TRACE(port_name);
        Agent agent(3);
        EXPECT_EQ(ask(agent, 0), utils::cmd_failed) << "nobody bound the port";
        agent.set_port_input(1u);
        const std::uint32_t token = agent.get_agent_token("a.0");
        host.log.captured().clear();
        card.take_sent();
        const std::string name = agent.get_name();
        const int logs = name.ends_with("_amd") || name.ends_with("_nic") ? 1 : 0;
        EXPECT_EQ(ask(agent, token + 1), utils::cmd_wrong_token);
        EXPECT_EQ(ask(agent, token, utils::cmd_pending), utils::cmd_idle);
        EXPECT_EQ(lines_with(name + "::write_read_command request_power.7[3]->[0]\n"), logs);
        EXPECT_TRUE(card.take_sent().empty());
        const bool drive = name.ends_with("nvmemi");
        const std::uint8_t rest = drive ? 0xFF : 0;
        EXPECT_EQ(ask(agent, token), drive ? utils::cmd_failed : utils::cmd_complete);
        EXPECT_EQ(card.take_sent(), (std::vector<bytes>{{0x01, 0x04}}));
        EXPECT_EQ(answer, (std::array<std::uint8_t, 5>{6, 40, rest, rest, rest})) << "what the card left out";
        EXPECT_EQ(lines_with(name + "::write_read_bus request_power[01]\n"), logs);
        port.fail_reads(1);
        EXPECT_EQ(ask(agent, token), utils::cmd_failed);
        EXPECT_EQ(lines_with(name + "::write_read_command request_power.7[0]->[2]\n"), logs);
        EXPECT_EQ(agent.write_read_command(token, utils::cmd_idle, {}, {}, "", 0),
                  drive ? utils::cmd_failed : utils::cmd_complete);
        poll(agent);
        EXPECT_TRUE(agent.debug().empty() && dao.key_count() == 0) << "a device in name only";
    }

    std::array<std::uint8_t, 5> answer{};
    thermal_host::block_line& port = host.ports.add_block(1u, {});
    scripted_card card{port};
};

TEST_F(plain_agent_test, all_write_and_read_in_one_transaction) {
    card.answers = {{6, 40}};
    expect_plain<common_thermal_device_pci_agent_amd>("amd");
    expect_plain<common_thermal_device_pci_agent_intel_nic>("nic");
    expect_plain<common_thermal_device_pci_agent_xilinx>("xilinx");
    expect_plain<common_thermal_device_pci_agent_intel_fpga>("fpga");
    expect_plain<common_thermal_device_pci_agent_pensando_cpld>("cpld");
    expect_plain<common_thermal_device_pci_agent_nvmemi>("nvmemi");
}

TEST_F(plain_agent_test, a_drive_record_needs_its_length_and_a_temperature) {
    common_thermal_device_pci_agent_nvmemi agent(1);
    agent.set_port_input(1u);
    const struct {
        bytes record;
        status_t result;
    } rows[] = {{{6, 0, 0, 40, 0}, utils::cmd_complete},
                {{6, 0, 0, 0x7F, 254}, utils::cmd_complete},
                {{5, 0, 0, 40, 0}, utils::cmd_failed},
                {{6, 0, 0, 0x80, 0}, utils::cmd_failed},
                {{6, 0, 0, 40, 255}, utils::cmd_failed},
                {{}, utils::cmd_failed},
                {{255, 255, 255, 255}, utils::cmd_failed},
                {{6, 0, 0, 40}, utils::cmd_failed},
                {{6}, utils::cmd_failed}};
    for (const auto& r : rows) {
        card.answers = {r.record};
        EXPECT_EQ(ask(agent, 0), r.result);
    }
    std::array<std::uint8_t, 4> shorter{};
    card.answers = {{6, 0, 0, 0, 0}};
    EXPECT_EQ(agent.write_read_command(0, utils::cmd_idle, bytes{0}, shorter, "", 1), utils::cmd_failed);
}

TEST(mailbox_status, says_one_thing_for_each_of_all_values) {
    for (unsigned value = 0; value < 256; ++value) {
        const auto status = static_cast<std::uint8_t>(value);
        const status_t expected = value == 0x00 || value == 0x80 ? utils::cmd_pending
                                  : value % 32 == 31             ? utils::cmd_data_ready
                                  : value % 32 == 28             ? utils::cmd_accepted
                                  : value % 32 == 10             ? utils::cmd_busy
                                                                 : utils::cmd_failed;
        EXPECT_EQ(mailbox::judge(status), expected) << value;
        EXPECT_EQ(mailbox::is_refusal(status), value % 32 == 30) << value;
    }
}

class mailbox_test : public device_test {
protected:
    mailbox_test() { agent.set_port_input(1u); }

    // One step of a request for the power of a core.
    status_t step(status_t state) {
        return agent.request_word(token, state, mailbox::command(4), word, "request_power", 2);
    }
    status_t write_word(std::uint32_t value, status_t state = utils::cmd_idle) {
        mailbox::frame rx{};
        return agent.write_data(token, state, mailbox::data(value), rx, "request_write", 2);
    }

    static constexpr std::uint32_t untouched = 0xDEADBEEF;
    const bytes power{0x5C, 4, 4, 0, 0, 0x80};
    std::uint32_t word = untouched;
    thermal_host::block_line& port = host.ports.add_block(1u, {});
    scripted_card card{port};
    common_thermal_device_pci_agent_nvidia agent{5};
    std::uint32_t token = agent.get_agent_token("power.0.0");
};

TEST_F(mailbox_test, the_bus_goes_to_one_name_at_a_time_under_a_token_that_grows) {
    for (const char* other : {"cap.0.0", "power.0.00", "power.0.", ""}) {
        EXPECT_EQ(agent.get_agent_token(other), 0u);
        EXPECT_FALSE(agent.owned_agent_token(other));
    }
    EXPECT_EQ(agent.get_agent_token("power.0.0"), 1u);
    EXPECT_TRUE(agent.owned_agent_token("power.0.0"));
    agent.release_agent_token();
    EXPECT_FALSE(agent.owned_agent_token("power.0.0") || agent.owned_agent_token(""));
    EXPECT_EQ(write_word(0), utils::cmd_complete) << "the last token stands until the next hold";
    EXPECT_EQ(agent.get_agent_token("cap.0.0"), 2u);
    EXPECT_EQ(write_word(0), utils::cmd_wrong_token) << "a stale caller";
    const std::string who = "common_thermal_device_pci_agent_nvidia.5::";
    EXPECT_EQ(lines_with(who + "get_agent_token Req[cap.0.0]\n"), 2);
    EXPECT_EQ(lines_with(who + "get_agent_token InUsed power.0.0.5\n"), 5);
    EXPECT_EQ(lines_with(who + "get_agent_token NewOne cap.0.0.5\n"), 1);
    EXPECT_EQ(lines_with(who + "owned_agent_token Req[power.0.0]\n"), 2);
    EXPECT_EQ(lines_with(who + "owned_agent_token power.0.0.5\n"), 5);
}

TEST_F(mailbox_test, a_request_is_sent_once_asked_for_at_each_poll_and_read) {
    mailbox_exchange exchange;
    const auto request = [this](status_t state) { return step(state); };
    card.answers = {{4, 4, 0, 0, 0x80}, {4, 0, 0, 0, 0x00}, {4, 9, 9, 9, 0x9F}, {4, 0x78, 0x56, 0x34, 0x92}};
    EXPECT_EQ(exchange.step(request), utils::cmd_pending);
    EXPECT_EQ(card.take_sent(), (std::vector<bytes>{power, {0x5C}}));
    EXPECT_EQ(exchange.step(request), utils::cmd_pending);
    EXPECT_EQ(card.take_sent(), (std::vector<bytes>{{0x5C}}));
    EXPECT_TRUE(exchange.in_flight() && word == untouched);
    EXPECT_EQ(exchange.step(request), utils::cmd_complete) << "only the sending looks at the echo";
    EXPECT_EQ(card.take_sent(), (std::vector<bytes>{{0x5C}, {0x5D}}));
    EXPECT_EQ(word, 0x92345678u);
    EXPECT_FALSE(exchange.in_flight());
    EXPECT_EQ(card.asked, (std::vector<std::uint32_t>{0, 5, 5, 5, 5}));
    const std::string prefix = "common_thermal_device_pci_agent_nvidia::";
    EXPECT_EQ(lines_with(prefix + "write_to_bus REQ[W][0x5c, 0x4, 0x4, 0x0, 0x0, 0x80]request_power.2\n"), 1);
    EXPECT_EQ(lines_with(prefix + "write_to_bus REQ[R][0x4, 0x4, 0x0, 0x0, 0x80, 0x0]request_power.2\n"), 1);
    EXPECT_EQ(lines_with(prefix + "read_from_bus entered request_power.2\n"), 3);
    EXPECT_EQ(lines_with(prefix + "read_from_bus RES[0x4, 0x78, 0x56, 0x34, 0x92]request_power.2\n"), 1);
}

TEST_F(mailbox_test, a_first_answer_ends_the_request_unless_it_is_pending) {
    const struct {
        bytes answer;
        status_t result;
        const char* log;
    } rows[] = {{{4, 4, 0, 0, 0x9C}, utils::cmd_accepted, nullptr},
                {{4, 4, 0, 0, 0x0A}, utils::cmd_busy, nullptr},
                {{4, 4, 0, 0, 0x9E}, utils::cmd_failed, nullptr},
                {{4, 4, 0, 0, 0x20}, utils::cmd_failed, "write_command UNEXPECT REQ STATUS[0]request_power.2 wait\n"},
                {{4, 5, 0, 0, 0x9F}, utils::cmd_failed, "write_to_bus WRONG RESP[04][05]!!!\n"},
                {{}, utils::cmd_failed, "write_to_bus WRONG RESP[04][00]!!!\n"},
                {{4, 4}, utils::cmd_pending, nullptr}};
    for (const auto& r : rows) {
        host.log.captured().clear();
        card.answers = {r.answer};
        EXPECT_EQ(step(utils::cmd_idle), r.result);
        EXPECT_EQ(lines_with(r.log != nullptr ? r.log : "write_command"), r.log != nullptr ? 1 : 0);
        EXPECT_EQ(word, untouched);
    }
    card.take_sent();
    for (const status_t other : {utils::cmd_failed, utils::cmd_data_ready, utils::cmd_complete, utils::cmd_skipped}) {
        EXPECT_EQ(step(other), utils::cmd_idle);
    }
    token += 1;
    mailbox::frame rx{};
    EXPECT_EQ(step(utils::cmd_idle), utils::cmd_wrong_token);
    EXPECT_EQ(write_word(1), utils::cmd_wrong_token);
    EXPECT_EQ(agent.read_data(token, utils::cmd_data_ready, rx, "", 1), utils::cmd_wrong_token);
    EXPECT_TRUE(card.take_sent().empty());
}

TEST_F(mailbox_test, a_bus_that_fails_at_any_exchange_fails_the_request) {
    unsigned left = 0;
    port.set_script([&left](const std::uint8_t*, std::uint32_t, std::uint8_t* in, std::uint32_t max, int& status) {
        if (left-- == 0) {
            status = 5;
            return 0u;
        }
        std::copy_n(bytes{4, 4, 0, 0, 0x9F}.begin(), max, in);
        return max;
    });
    for (const unsigned good : {0u, 1u, 2u}) {
        left = good;
        EXPECT_EQ(step(utils::cmd_idle), utils::cmd_failed) << good;
        EXPECT_EQ(word, untouched);
        left = good;
        EXPECT_EQ(write_word(0x9F000004), good < 2 ? utils::cmd_failed : utils::cmd_complete) << good;
    }
    left = 0;
    EXPECT_EQ(step(utils::cmd_pending), utils::cmd_failed);
    EXPECT_EQ(lines_with("read_data UNEXPECT REQ STATUS[4]request_power.2\n"), 1);
    EXPECT_EQ(lines_with("write_data REQ[W][0x5d, 0x4, 0x4, 0x0, 0x0, 0x9f]request_write.2\n"), 2);
    EXPECT_EQ(lines_with("write_data REQ[R][0x4, 0x4, 0x0, 0x0, 0x9f, 0x0]request_write.2\n"), 1);
}

TEST_F(mailbox_test, a_written_word_is_read_back) {
    card.answers = {{4, 0x78, 0x56, 0x34, 0x12}};
    EXPECT_EQ(write_word(0x12345678), utils::cmd_complete);
    EXPECT_EQ(card.take_sent(), (std::vector<bytes>{{0x5D, 4, 0x78, 0x56, 0x34, 0x12}, {0x5D}}));
    EXPECT_EQ(write_word(0x12345678, utils::cmd_pending), utils::cmd_failed);
    EXPECT_EQ(write_word(0x12345679), utils::cmd_failed);
    EXPECT_EQ(write_word(0x13345678), utils::cmd_failed);
    EXPECT_EQ(lines_with("write_data readback mismatch!!!\n"), 2);
}

TEST_F(mailbox_test, a_request_that_stays_pending_fails_in_the_end) {
    mailbox_exchange exchange;
    const auto answer = [](status_t result) { return [result](status_t) { return result; }; };
    for (const int rounds : {1, 2}) {
        for (unsigned poll = 1; poll < mailbox_exchange::patience; ++poll) {
            ASSERT_EQ(exchange.step(answer(utils::cmd_pending)), utils::cmd_pending) << poll;
        }
        EXPECT_EQ(exchange.step(answer(utils::cmd_pending)), utils::cmd_failed);
        EXPECT_EQ(lines_with("left a request pending for 250 polls\n"), rounds);
        EXPECT_FALSE(exchange.in_flight());
    }
    exchange.step(answer(utils::cmd_pending));
    exchange.reset();
    status_t seen = utils::cmd_pending;
    exchange.step([&seen](status_t state) { return seen = state; });
    EXPECT_EQ(seen, utils::cmd_idle) << "sent anew";
}

TEST_F(mailbox_test, the_agent_of_core_1_tells_which_bus_leads_to_its_slot) {
    const auto slot = 1000000u + static_cast<unsigned>(::getpid());
    const std::string path = "/tmp/.slot" + std::to_string(slot) + "_cioname";
    const auto content = [&path] {
        std::ifstream file(path);
        return std::string(std::istreambuf_iterator<char>(file), {});
    };
    agent.set_port_input("SLOT_3_BUS");
    agent.set_num(slot, 2);
    agent.set_num(slot, 0);
    EXPECT_EQ(agent.get_num(), 1u);
    EXPECT_NE(::access(path.c_str(), F_OK), 0) << "only the number 1 itself announces";
    agent.set_num(slot, 1);
    EXPECT_EQ(content(), "SLOT_3_BUS\n");
    agent.set_port_input(1u);
    agent.set_num(slot, 1);
    EXPECT_EQ(content(), "\n");
    std::remove(path.c_str());
    ASSERT_EQ(::symlink("/dev/null", path.c_str()), 0);
    agent.set_num(slot, 1);
    std::remove(path.c_str());
    agent.set_num(4);
    EXPECT_EQ(agent.get_num(), 4u);
}

// A request device as small as they get.
class mailbox_request : public pci_request_device {
public:
    mailbox_request(std::uint8_t opcode, const char* prefix)
        : pci_request_device(_row, opcode, {{"word"}}), _opcode(opcode), _token_name(prefix) {}

    void poll(common_thermal_dao*, unsigned long) override {
        auto* agent = is_card_supported() ? visited_agent<common_thermal_device_pci_agent_nvidia>() : nullptr;
        if (agent == nullptr) {
            return;
        }
        const std::uint32_t token = agent->get_agent_token(_token_name.of(0, _agent_index));
        if (token == 0) {
            ++refusals;
            _exchange.reset();
            return;
        }
        std::uint32_t word = 0;
        const status_t result = _exchange.step([&](status_t state) {
            return agent->request_word(token, state, mailbox::command(_opcode), word, "request", 1);
        });
        if (result != utils::cmd_pending) {
            _values[0] = result == utils::cmd_complete ? static_cast<float>(word) : -1.0f;
            agent->release_agent_token();
            visit_next_agent();
            tell_slots(&common_thermal_device_pci_slot::set_power_consumption, _values[0]);
        }
    }

    using pci_request_device::is_card_forced;
    unsigned refusals = 0;

private:
    static constexpr kind _row{"mailbox_request", utils::tdev_pci_request_nvidia_power, pci_group::nvidia_gpu,
                               utils::tdev_pci_agent_nvidia};
    std::uint8_t _opcode;
    token_name _token_name;
    mailbox_exchange _exchange;
};

class contention_test : public mailbox_test {
protected:
    // A core that works on its last command for two more polls and then hands out that command and its own number.
    struct core {
        core(thermal_host::block_line& port, std::uint8_t number) {
            port.set_script(
                [this, number](const std::uint8_t* out, std::uint32_t size, std::uint8_t* in, std::uint32_t max, int&) {
                    if (size == 6) {
                        mixed += busy > 0 ? 1 : 0;
                        command = out[2];
                        busy = 3;
                        return 0u;
                    }
                    const bool is_data = out[0] == mailbox::data_register;
                    busy -= is_data ? 0 : 1;
                    const bytes answer{4, command, is_data ? number : std::uint8_t{0}, 0,
                                       is_data || busy > 0 ? std::uint8_t{0} : std::uint8_t{0x9F}};
                    std::copy_n(answer.begin(), max, in);
                    return max;
                });
        }
        std::uint8_t command = 0;
        int busy = 0, mixed = 0;
    };

    contention_test() {
        agent.release_agent_token();
        second.set_port_input(2u);
        for (auto* device : {&power_device, &cap_device}) {
            link(*device, {&list, &agent, &slot});
        }
    }

    core first_core{port, 1}, second_core{host.ports.add_block(2u, {}), 2};
    common_thermal_device_pci_agent_nvidia second{6};
    common_thermal_device_pci_supported_list list{1};
    common_thermal_device_pci_slot slot{1};
    mailbox_request power_device{4, "power."}, cap_device{1, "cap."};
};

TEST_F(contention_test, two_devices_on_one_agent_never_mix_their_exchanges) {
    poll(power_device, 5);
    EXPECT_EQ(port.reads(), 0u) << "no card of its family";
    utils::pci_info_t function;
    function.vendor_id = 0x10DE;
    list.active_command(&function);
    EXPECT_TRUE(cap_device.is_card_forced(0) && !cap_device.is_card_forced(2));
    for (int i = 0; i < 60; ++i) {
        poll(power_device);
        poll(cap_device);
    }
    EXPECT_EQ(first_core.mixed, 0);
    EXPECT_EQ(power_device.debug(), "\nmailbox_request.word.4=260.000000");
    EXPECT_EQ(cap_device.debug(), "\nmailbox_request.word.1=257.000000");
    EXPECT_TRUE(power_device.refusals > 0 && cap_device.refusals > 0);

    link(power_device, {&second});
    std::set<float> watts;
    for (int i = 0; i < 24; ++i) {
        poll(power_device);
        poll(cap_device);
        poll(slot);
        watts.insert(stored("pci_slot.power"));
    }
    EXPECT_EQ(watts, (std::set<float>{257, 260, 516})) << "the slot hears of both cores in turn";
    list.deactive_command();
    EXPECT_FALSE(cap_device.is_card_forced(0));
}

}  // namespace
