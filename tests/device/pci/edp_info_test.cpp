#include "device/pci/edp_info.hpp"

#include <random>

#include "device/pci/nvidia_capability.hpp"
#include "tests/device/device_fixture.hpp"

namespace {

using utils = common_thermal_utils;

// A core that carries out commands in the background, from and to its scratch memory. Each submission and each poll
// stays pending for `slow` answers; exchange number `fault_at` is spoilt.
class async_core {
public:
    enum class fault { bus, echo, refusal, pending };
    using noise_t = std::function<std::uint32_t(std::uint8_t* in, std::uint32_t max, int& status)>;

    explicit async_core(thermal_host::block_line& port) {
        port.set_script([this](const std::uint8_t* out, std::uint32_t size, std::uint8_t* in, std::uint32_t max,
                               int& status) -> std::uint32_t {
            for (std::uint32_t i = 0; i < size; ++i) {
                _sent += "0123456789ABCDEF"[out[i] >> 4];
                _sent += "0123456789ABCDEF"[out[i] & 15];
            }
            _sent += ' ';
            const fault now = ++_exchanges == fault_at ? kind : fault{-1};
            status = now == fault::bus ? 5 : status;
            if (noise) {
                return noise(in, max, status);
            }
            if (size == 6) {
                obey(out);
            }
            const mailbox::frame data = mailbox::data(_word);
            std::copy_n(data.begin() + 1, max, in);
            if (max != 0 && out[0] == mailbox::command_register) {
                const bool is_pending = _left > 0 || now == fault::pending;
                _left -= _left > 0 ? 1 : 0;
                in[1] = now == fault::echo ? 0x55 : _opcode;
                in[4] = now == fault::refusal ? 0x9E : is_pending ? 0x80 : _status;
            }
            return max;
        });
    }

    // The frames since the last call, in hexadecimal.
    std::string take_sent() { return std::exchange(_sent, {}); }

    bool driver = true;
    unsigned slow = 0, fault_at = 0;
    fault kind{};
    noise_t noise;
    std::uint8_t submitted = 0x9C, polled = 0x9F;
    std::uint32_t edpc = 200000, edpp = 80, edpp_min = 60, edpp_max = 100;

private:
    void obey(const std::uint8_t* frame) {
        if (frame[0] == mailbox::data_register) {
            _word = mailbox::word_of({0, frame[2], frame[3], frame[4], frame[5], 0});
            return;
        }
        _opcode = frame[2];
        _left = _opcode == 0x10 ? slow : 0;
        _status = 0x9F;
        if (_opcode == 0x01) {
            _word = frame[3] < 2 || driver ? 2 : 3;
        } else if (_opcode == 0x0D) {
            _word = _scratch.at(frame[3]);
        } else if (_opcode == 0x0E) {
            _scratch.at(frame[3]) = _word;
            _is_written = true;
        } else if (frame[3] != 0xFF) {
            _task = frame[3];
            _word = 0xABCDEF00u | ++_sequence;
            _status = submitted;
        } else {
            _status = frame[4] == _sequence ? polled : std::uint8_t{0x9E};
            carry_out();
        }
    }

    void carry_out() {
        const bool sets = std::exchange(_is_written, false) && _scratch[0] % 2 == 1;
        if (_task == 0) {
            _scratch = {1, edpc, edpc};
        } else if (_task == 1) {
            edpc = sets ? _scratch[1] : edpc;
        } else if (_task == 2) {
            _scratch = {100000, 250000, 250000};
        } else if (sets) {
            edpp = _scratch[0] >> 4;
        } else {
            _scratch[0] = 5 | edpp << 4 | 90 << 11 | edpp_max << 18 | edpp_min << 25;
        }
    }

    std::string _sent;
    unsigned _exchanges = 0, _left = 0;
    std::uint32_t _word = 0;
    std::array<std::uint32_t, 3> _scratch{};
    bool _is_written = false;
    std::uint8_t _opcode = 0, _status = 0, _task = 0, _sequence = 0;
};

// A card in a slot. Its second core tells the capabilities, so that the driver is watched while the first one is busy.
struct edp_bench {
    edp_bench(thermal_host::platform& machine, common_thermal_dao& store, float watts, std::uint8_t percentage)
        : host(machine), dao(store), core(host.ports.add_block(1u, {})), witness(host.ports.add_block(2u, {})) {
        agent.set_port_input(1u);
        second.set_port_input(2u);
        edp.add_depend(&list);
        edp.add_depend(&slot);
        edp.add_depend(&agent);
        edp.add_depend(&capability);
        capability.add_depend(&list);
        capability.add_depend(&second);
        wish(watts, percentage);
        open_gate();
        set_driver(true);
    }

    void open_gate() {
        utils::pci_info_t function;
        function.vendor_id = 0x10DE;
        list.active_command(&function);
    }

    void set_driver(bool loaded) {
        witness.driver = loaded;
        for (int i = 0; i < 12 && capability.is_driver_loaded() != loaded; ++i) {
            capability.polling(&dao, 0);
        }
    }

    void wish(float watts, std::uint8_t percentage) {
        slot.set_powerlimit_watt(watts);
        slot.set_edpp_percentage(percentage);
    }

    // Polls, each time after the rest; gives the frames of the last poll.
    std::string poll(int times = 1) {
        for (int i = 0; i < times; ++i) {
            core.take_sent();
            host.clock.advance_to(host.clock.now() + std::chrono::seconds(4));
            edp.polling(&dao, 0);
        }
        return core.take_sent();
    }

    // EDPc and its bounds, EDPp and its bounds.
    std::vector<float> values() const {
        std::vector<float> all;
        for (const char* word : {"edpc", "edpc_min", "edpc_max", "edpp", "edpp_min", "edpp_max"}) {
            dao.fetch_dev(std::string("common_thermal_device_pci_request_nvidia_edp_info.") + word, 3,
                          &all.emplace_back());
        }
        return all;
    }

    bool is_busy() const { return agent.owned_agent_token("edp.0.0"); }

    thermal_host::platform& host;
    common_thermal_dao& dao;
    async_core core, witness;
    common_thermal_device_pci_agent_nvidia agent{1}, second{2};
    common_thermal_device_pci_supported_list list{1};
    common_thermal_device_pci_slot slot{1};
    common_thermal_device_pci_request_nvidia_capability capability{1};
    common_thermal_device_pci_request_nvidia_edp_info edp{3};
};

class edp_test : public device_test {
protected:
    edp_test() { host.log.captured().set_capacity(4096); }

    const std::string name = "common_thermal_device_pci_request_nvidia_edp_info";
    void mark() { dao.update_dev(name + ".edpc", 3, -1.0f, false); }
    // What 300 W and 70 % come to within some 40 polls.
    const std::vector<float> settled{250000, 100000, 250000, 70, 60, 100};
};

TEST_F(edp_test, a_power_limit_is_clamped_set_and_read_back_a_step_each_poll) {
    edp_bench bench(host, dao, 300.0f, 0);
    const std::string words = "5C040D000080 5C 5D 5C040D010080 5C 5D 5C040D020080 5C 5D ", done = "5C0410FF0380 5C ";
    const struct {
        std::string sent;
        float edpc;
    } polls[] = {
        {"5C0410020080 5C 5D ", 0},
        {"5C0410FF0180 5C ", 0},
        {words, 0},
        {"5C0410000080 5C 5D ", 0},
        {"5C0410FF0280 5C ", 0},
        {words, 200000},
        {"5D0401000000 5D 5C040E000180 5C 5D0490D00300 5D 5C040E010180 5C 5D0400000000 5D 5C040E020180 5C ", 200000},
        {"5C0410010080 5C 5D ", 200000},
        {done, 250000},
        {"5C0410000080 5C 5D ", 250000},
    };
    for (const auto& p : polls) {
        EXPECT_EQ(bench.poll(), p.sent);
        EXPECT_EQ(bench.values()[0], p.edpc);
        EXPECT_EQ(bench.is_busy(), p.sent != words && p.sent != done);
    }
    EXPECT_EQ(bench.values(), (std::vector<float>{250000, 100000, 250000, 0, 0, 0}));
    for (const char* line : {"limit_bound limit min/max/dft:[186A0]/[3D090]/[3D090]\n", "set flags updated\n",
                             "read limit flags/CurrIn/CurrOut:[01]/[30D40]/[30D40]\n", "set limitCurrInput updated\n",
                             "set limitCurrOutput updated\n"}) {
        EXPECT_EQ(lines_with(name + "::request_edpc_" + line), 1) << line;
    }
    EXPECT_EQ(lines_with(name + ".3::poll - stage[10][02]\n"), 1);
    const struct {
        float watts;
        std::uint32_t edpc;
    } wishes[] = {{100.1f, 100100}, {50.0f, 100000}, {0.0f, 100000}};
    for (const auto& w : wishes) {
        bench.wish(w.watts, 0);
        bench.poll(12);
        EXPECT_EQ(bench.core.edpc, w.edpc) << w.watts;
    }
    bench.wish(220.0f, 0);
    bench.core.submitted = 0x9E;
    bench.poll(6);
    bench.core.submitted = 0x9C;
    bench.wish(0.0f, 0);
    bench.poll(12);
    EXPECT_EQ(bench.core.edpc, 100000u) << "a wish that was taken back is no limit of 0 W";
}

TEST_F(edp_test, of_several_slots_the_last_one_is_obeyed) {
    edp_bench bench(host, dao, 300.0f, 0);
    common_thermal_device_pci_slot last(2);
    link(bench.edp, {&last});
    bench.poll(20);
    EXPECT_EQ(bench.core.edpc, 200000u) << "which wants nothing";
    last.set_powerlimit_watt(150.0f);
    bench.poll(20);
    EXPECT_EQ(bench.core.edpc, 150000u);
}

TEST_F(edp_test, it_rests_after_an_operation_and_neither_within_one_nor_for_a_bus_that_is_taken) {
    edp_bench bench(host, dao, 0.0f, 0);
    poll(bench.edp, 3);
    bench.core.take_sent();
    mark();
    poll(bench.edp, 5);
    EXPECT_TRUE(bench.core.take_sent().empty() && bench.values()[0] == -1.0f) << "asleep";
    bench.core.submitted = 0x9E;
    const std::string failed = bench.poll();
    poll(bench.edp, 5);
    EXPECT_EQ(failed + bench.core.take_sent(), "5C0410000080 5C ") << "a failure is slept over, too";
    EXPECT_EQ(lines_with(name + "::request_edpc_read - found error![20][00]\n"), 1);
    bench.core.submitted = 0x9C;
    bench.agent.get_agent_token("power.0.0");
    mark();
    EXPECT_EQ(bench.poll(), "");
    EXPECT_EQ(bench.values()[0], 0.0f) << "refused the bus, it publishes";
    bench.agent.release_agent_token();
    bench.edp.add_depend(&bench.second);
    bench.witness.edpc = 123000;
    poll(bench.edp, 3);
    EXPECT_EQ(bench.values()[0], 200000.0f);
    bench.poll(3);
    EXPECT_EQ(bench.values()[0], 123000.0f) << "the next operation goes to the next core";
}

TEST_F(edp_test, a_card_that_is_not_done_is_asked_for_its_status_alone) {
    edp_bench bench(host, dao, 0.0f, 0);
    bench.core.slow = 3;
    for (const char* sent : {"5C0410020080 5C ", "5C ", "5C ", "5C 5D ", "5C0410FF0180 5C ", "5C ", "5C ", "5C "}) {
        EXPECT_EQ(bench.poll(), sent);
    }
    EXPECT_EQ(lines_with(name + ".3::poll - stage[00][80]\n") + lines_with(name + ".3::poll - stage[00][81]\n"), 6);
    bench.core.slow = 1000000;
    bench.poll(static_cast<int>(mailbox_exchange::patience));
    EXPECT_TRUE(bench.is_busy());
    bench.poll();
    EXPECT_FALSE(bench.is_busy()) << "a dead request does not keep the bus for good";
    EXPECT_EQ(lines_with(name + "::request_edpc_read - found error![20][80]\n"), 1);
}

TEST_F(edp_test, only_a_command_that_was_accepted_and_one_that_was_finished_go_on) {
    const struct {
        std::uint8_t submitted, polled;
        const char* error;
    } rows[] = {{0x8A, 0x9F, ""},         {0x9F, 0x9F, "[00][00]"}, {0x20, 0x9F, "[00][00]"},
                {0x9C, 0x9C, "[00][01]"}, {0x9C, 0x8A, "[00][01]"}, {0x9C, 0x9E, "[00][01]"}};
    for (const auto& r : rows) {
        host.log.captured().clear();
        edp_bench bench(host, dao, 0.0f, 0);
        bench.core.submitted = r.submitted;
        bench.core.polled = r.polled;
        bench.poll(3);
        const bool is_good = *r.error == '\0';
        EXPECT_EQ(bench.values()[2], is_good ? 250000.0f : 0.0f);
        EXPECT_EQ(lines_with(std::string("request_edpc_limit_bound - found error!") + r.error) > 0, !is_good);
    }
}

TEST_F(edp_test, a_peak_limit_waits_for_its_bounds_and_for_the_power_limit) {
    edp_bench bench(host, dao, 0.0f, 40);
    bench.core.edpp = bench.core.edpp_min = bench.core.edpp_max = 0;
    bench.poll(6);
    bench.core.edpp = 80;
    bench.core.edpp_min = 30;
    EXPECT_EQ(bench.values(), (std::vector<float>{0, 100000, 250000, 0, 60, 100})) << "a card that does not tell";
    EXPECT_EQ(bench.poll(), "5C0410110080 5C 5D ");
    EXPECT_EQ(bench.poll(2), "5C040D000080 5C 5D ");
    EXPECT_EQ(bench.values(), (std::vector<float>{0, 100000, 250000, 80, 60, 100})) << "bounds are learnt once";
    EXPECT_EQ(bench.poll(), "5D04C1030000 5D 5C040E000180 5C ");
    EXPECT_EQ(lines_with(name + ".3::EDPPinfo Curr/dft/min/max:[80][90][30][0](3C02D505)\n"), 1);
    EXPECT_EQ(lines_with(name + ".3::EDPPchk Req[60]Cur[80.000000][60.000000][100.000000]\n"), 1);
    EXPECT_EQ(lines_with(name + "::request_edpp_set updated\n"), 1);
    EXPECT_EQ(bench.poll(3), "5C0410110080 5C 5D ") << "submitted, polled, and read back";
    EXPECT_EQ(bench.core.edpp, 60u);
    bench.poll(5);
    EXPECT_EQ(bench.values()[0], 200000.0f);

    host.log.set_mask(0);
    bench.wish(220.0f, 60);
    EXPECT_TRUE(bench.poll().starts_with("5D0401000000 "));
    bench.wish(220.0f, 70);
    EXPECT_EQ(bench.poll(3), "5D0461040000 5D 5C040E000180 5C ") << "once the power is set";
    bench.wish(220.0f, 65);
    bench.poll(2);
    EXPECT_TRUE(bench.values()[3] == 65.0f && bench.core.edpp == 70) << "the wish of the moment";
    bench.poll(3);
    EXPECT_EQ(bench.values()[3], 70.0f) << "what went out";
    bench.poll(6);
    EXPECT_TRUE(bench.values()[3] == 65.0f && bench.core.edpp == 65);
}

TEST_F(edp_test, a_driver_or_a_card_that_leaves_at_any_step_frees_the_bus_and_the_next_one_starts_over) {
    for (const bool unloads : {true, false}) {
        for (int polls = 0; polls < 45; ++polls) {
            SCOPED_TRACE((unloads ? "driver " : "gate ") + std::to_string(polls));
            host.log.captured().clear();
            edp_bench bench(host, dao, 300.0f, 70);
            bench.core.slow = 1;
            bench.poll(polls);
            const bool was_busy = bench.is_busy();
            if (unloads) {
                bench.set_driver(false);
            } else {
                bench.list.deactive_command();
            }
            mark();
            EXPECT_EQ(bench.poll(2), "");
            EXPECT_EQ(bench.values()[0], unloads ? 0.0f : -1.0f) << "a shut gate publishes nothing";
            EXPECT_FALSE(bench.is_busy());
            EXPECT_EQ(lines_with(name + "::release_owned_token ["), was_busy ? 1 : 0);
            bench.open_gate();
            bench.set_driver(true);
            const std::string sent = bench.poll();
            EXPECT_TRUE(unloads ? sent == "5C0410020080 5C "
                                : sent.starts_with("5D04") || (sent.starts_with("5C0410") && sent[6] != 'F'))
                << sent;
            bench.poll(50);
            EXPECT_EQ(bench.values(), settled);
        }
    }
}

TEST_F(edp_test, a_fault_at_any_exchange_only_costs_time) {
    host.log.set_mask(0);
    using fault = async_core::fault;
    for (const fault kind : {fault::bus, fault::echo, fault::refusal, fault::pending}) {
        for (unsigned exchange = 1; exchange < 90; ++exchange) {
            edp_bench bench(host, dao, 300.0f, 70);
            bench.core.kind = kind;
            bench.core.fault_at = exchange;
            bench.poll(70);
            ASSERT_EQ(bench.values(), settled) << exchange << " of kind " << static_cast<int>(kind);
            ASSERT_TRUE(bench.core.edpc == 250000 && bench.core.edpp == 70);
        }
    }
}

TEST_F(edp_test, nothing_that_a_card_says_or_a_board_forgets_does_harm) {
    edp_bench bench(host, dao, 0.0f, 0);
    common_thermal_device_pci_request_nvidia_edp_info alone(4);
    poll(alone);
    link(alone, {&bench.list});
    poll(alone);
    link(alone, {&bench.agent});
    poll(alone);
    EXPECT_EQ(alone.request_async_cmd_submit(0, nullptr, 0, false), utils::cmd_failed);
    EXPECT_EQ(alone.request_write_scratch_memory(0, nullptr, 0, 0), utils::cmd_failed);

    host.log.set_mask(0);
    std::mt19937 random(5);
    bench.core.noise = [&random](std::uint8_t* in, std::uint32_t max, int& status) {
        constexpr std::uint8_t likely[] = {0x9C, 0x9F, 0x80, 0x10, 0x0D, 0x0E};
        status = random() % 16 == 0 ? 5 : status;
        std::generate_n(in, max,
                        [&] { return static_cast<std::uint8_t>(random() % 2 != 0 ? likely[random() % 6] : random()); });
        return random() % 8 == 0 ? static_cast<std::uint32_t>(random() % (max + 1)) : max;
    };
    for (int i = 0; i < 5000; ++i) {
        bench.wish(static_cast<float>(random() % 400), static_cast<std::uint8_t>(random()));
        bench.poll();
    }
    bench.core.noise = nullptr;
    bench.wish(300.0f, 70);
    bench.set_driver(false);
    bench.poll(2);
    bench.set_driver(true);
    bench.poll(60);
    EXPECT_EQ(bench.values(), settled);
}

}  // namespace
