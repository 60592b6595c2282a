#include "device/pci/edp_info.hpp"

#include <algorithm>

#include "device/pci/nvidia_capability.hpp"
#include "foundation/float_conversion.hpp"
#include "foundation/log_masks.hpp"

using utils = common_thermal_utils;
using edp_info = common_thermal_device_pci_request_nvidia_edp_info;

namespace {

constexpr auto device_kind =
    nvidia_kind("common_thermal_device_pci_request_nvidia_edp_info", utils::tdev_pci_request_nvidia_edp_info);
constexpr const char* log_name = device_kind.class_name;

enum word : std::size_t { edpc, edpc_min, edpc_max, edpp, edpp_min, edpp_max, word_count };

constexpr float milliwatts_per_watt = 1000.0f;
constexpr std::uint8_t rest_seconds = 3;
constexpr std::uint8_t waiting_bit = 0x80;

// Bounds of the peak of a card that does not tell its own.
constexpr std::uint32_t lowest_edpp = 60;
constexpr std::uint32_t highest_edpp = 100;

constexpr std::uint8_t read_scratch_opcode = 0x0D;
constexpr std::uint8_t write_scratch_opcode = 0x0E;
constexpr std::uint8_t async_opcode = 0x10;
constexpr std::uint8_t poll_argument = 0xFF;

enum async_command : std::uint8_t { get_edpc = 0, change_edpc = 1, get_edpc_bounds = 2, edpp_command = 17 };

enum class step : std::uint8_t { submit, poll, transfer };
constexpr std::array reading{step::submit, step::poll, step::transfer};
constexpr std::array setting{step::transfer, step::submit, step::poll};

// The upper bound wins over a lower one above it.
std::uint32_t within(std::uint32_t wanted, float minimum, float maximum) {
    return std::min(std::max(wanted, saturate_to_unsigned(minimum)), saturate_to_unsigned(maximum));
}

unsigned long long_of(std::uint32_t word) { return word; }

}  // namespace

struct edp_info::operation {
    const char* name = nullptr;
    async_command command{};
    const std::array<step, 3>& steps;
};

struct edp_info::scratch_word {
    std::uint32_t value = 0;
    const char* written = nullptr;  // what the log says of it
};

edpp_settings unpack_edpp(std::uint32_t word) {
    const auto field = [word](unsigned lowest_bit) { return (word >> lowest_bit) & 0x7F; };
    return {field(4), field(11), field(18), field(25)};
}

edp_info::common_thermal_device_pci_request_nvidia_edp_info(int instance)
    : nvidia_supported_request(device_kind, "edp.", instance,
                               {{"edpc"}, {"edpc_min"}, {"edpc_max"}, {"edpp"}, {"edpp_min"}, {"edpp_max"}}) {}

edp_info::status_t edp_info::send(std::uint32_t token, agent_t* agent, bool resume, const mailbox::frame& tx,
                                  mailbox::frame& rx, const char* function) const {
    return agent == nullptr ? utils::cmd_failed
                            : agent->write_command(token, resume ? utils::cmd_pending : utils::cmd_idle, tx, rx,
                                                   function, static_cast<unsigned>(get_instance()));
}

edp_info::status_t edp_info::request_async_cmd_submit(std::uint32_t token, agent_t* agent, std::uint8_t command,
                                                      bool resume) {
    constexpr const char* function = "request_async_cmd_submit";
    mailbox::frame rx{};
    const status_t answer = send(token, agent, resume, mailbox::command(async_opcode, command), rx, function);
    if (answer != utils::cmd_accepted && answer != utils::cmd_busy) {
        return answer;
    }
    const status_t read =
        agent->read_data(token, utils::cmd_data_ready, rx, function, static_cast<unsigned>(get_instance()));
    if (read == utils::cmd_complete) {
        _async_sequence = static_cast<std::uint8_t>(mailbox::word_of(rx));
    }
    return read;
}

edp_info::status_t edp_info::request_async_cmd_poll(std::uint32_t token, agent_t* agent, bool resume) {
    mailbox::frame rx{};
    const status_t answer = send(token, agent, resume, mailbox::command(async_opcode, poll_argument, _async_sequence),
                                 rx, "request_async_cmd_poll");
    return answer == utils::cmd_data_ready ? utils::cmd_complete : answer;
}

edp_info::status_t edp_info::request_read_scratch_memory(std::uint32_t token, agent_t* agent, std::uint8_t index,
                                                         std::uint32_t& word) {
    return request_word(token, utils::cmd_idle, agent, mailbox::command(read_scratch_opcode, index),
                        "request_read_scratch_memory", word);
}

edp_info::status_t edp_info::request_write_scratch_memory(std::uint32_t token, agent_t* agent, std::uint8_t index,
                                                          std::uint32_t word) {
    constexpr const char* function = "request_write_scratch_memory";
    if (agent == nullptr) {
        return utils::cmd_failed;
    }
    mailbox::frame rx{};
    const status_t written = agent->write_data(token, utils::cmd_idle, mailbox::data(word), rx, function,
                                               static_cast<unsigned>(get_instance()));
    if (written != utils::cmd_complete) {
        return written;
    }
    const status_t answer = send(token, agent, false, mailbox::command(write_scratch_opcode, index, 1), rx, function);
    return answer == utils::cmd_data_ready ? utils::cmd_complete : answer;
}

// A word that cannot be read stays 0.
void edp_info::read_words(std::uint32_t token, agent_t* agent, std::span<std::uint32_t> words) {
    for (std::size_t index = 0; index < words.size(); ++index) {
        request_read_scratch_memory(token, agent, static_cast<std::uint8_t>(index), words[index]);
    }
}

// A word that cannot be written goes unnoticed: the card's answer to the command tells.
void edp_info::write_words(const operation& what, std::uint32_t token, agent_t* agent,
                           std::span<const scratch_word> words) {
    for (std::size_t index = 0; index < words.size(); ++index) {
        const status_t written =
            request_write_scratch_memory(token, agent, static_cast<std::uint8_t>(index), words[index].value);
        if (written == utils::cmd_complete) {
            LOG::log(log_source, log_mask::bus, "%s::%s %s\n", log_name, what.name, words[index].written);
        }
    }
}

// The step of an operation that is due. `transfer` moves its words; nothing can go wrong with it.
template <class Transfer>
edp_info::status_t edp_info::run(const operation& what, std::uint32_t token, agent_t* agent, Transfer&& transfer) {
    const std::uint8_t begun_at = sub_stage();
    status_t result = utils::cmd_complete;
    switch (what.steps[_step]) {
        case step::submit:
            result = _exchange.step([&](status_t state) {
                return request_async_cmd_submit(token, agent, what.command, state == utils::cmd_pending);
            });
            break;
        case step::poll:
            result = _exchange.step(
                [&](status_t state) { return request_async_cmd_poll(token, agent, state == utils::cmd_pending); });
            break;
        case step::transfer:
            transfer();
            break;
    }
    if (result == utils::cmd_pending) {
        return result;
    }
    if (result != utils::cmd_complete) {
        LOG::log(log_source, log_mask::bus, "%s::%s - found error![%02X][%02X]\n", log_name, what.name,
                 static_cast<unsigned>(_stage), static_cast<unsigned>(begun_at));
        start_over();
        return utils::cmd_failed;
    }
    if (++_step < what.steps.size()) {
        return utils::cmd_pending;
    }
    start_over();
    return utils::cmd_complete;
}

edp_info::status_t edp_info::request_edpc_limit_bound(std::uint32_t token, agent_t* agent, std::uint32_t& minimum,
                                                      std::uint32_t& maximum) {
    static constexpr operation what{"request_edpc_limit_bound", get_edpc_bounds, reading};
    return run(what, token, agent, [&] {
        std::array<std::uint32_t, 3> words{};
        read_words(token, agent, words);
        minimum = words[0];
        maximum = words[1];
        LOG::log(log_source, log_mask::bus, "%s::%s limit min/max/dft:[%02lX]/[%02lX]/[%02lX]\n", log_name, what.name,
                 long_of(words[0]), long_of(words[1]), long_of(words[2]));
    });
}

edp_info::status_t edp_info::request_edpc_set(std::uint32_t token, agent_t* agent, std::uint32_t milliwatts) {
    static constexpr operation what{"request_edpc_set", change_edpc, setting};
    return run(what, token, agent, [&] {
        const scratch_word words[] = {
            {1, "flags updated"}, {milliwatts, "limitCurrInput updated"}, {0, "limitCurrOutput updated"}};
        write_words(what, token, agent, words);
    });
}

edp_info::status_t edp_info::request_edpc_read(std::uint32_t token, agent_t* agent, std::uint32_t& milliwatts) {
    static constexpr operation what{"request_edpc_read", get_edpc, reading};
    return run(what, token, agent, [&] {
        std::array<std::uint32_t, 3> words{};
        read_words(token, agent, words);
        milliwatts = words[1];
        LOG::log(log_source, log_mask::bus, "%s::%s limit flags/CurrIn/CurrOut:[%02lX]/[%02lX]/[%02lX]\n", log_name,
                 what.name, long_of(words[0]), long_of(words[1]), long_of(words[2]));
    });
}

edp_info::status_t edp_info::request_edpp_set(std::uint32_t token, agent_t* agent, std::uint32_t percentage) {
    static constexpr operation what{"request_edpp_set", edpp_command, setting};
    return run(what, token, agent, [&] {
        const scratch_word words[] = {{((percentage << 4) & 0x7F0) | 1, "updated"}};
        write_words(what, token, agent, words);
    });
}

edp_info::status_t edp_info::request_edpp_read(std::uint32_t token, agent_t* agent, edpp_settings& settings) {
    static constexpr operation what{"request_edpp_read", edpp_command, reading};
    return run(what, token, agent, [&] {
        std::array<std::uint32_t, 1> words{};
        read_words(token, agent, words);
        settings = unpack_edpp(words[0]);
        LOG::log(log_source, log_mask::bus, "%s.%d::EDPPinfo Curr/dft/min/max:[%d][%d][%d][%d](%08lX)\n", log_name,
                 get_instance(), static_cast<int>(settings.current), static_cast<int>(settings.by_default),
                 static_cast<int>(settings.minimum), static_cast<int>(settings.maximum), long_of(words[0]));
    });
}

bool edp_info::is_reading_on() const {
    return !is_between_operations() && _stage != set_edpc && _stage != set_edpp && !LOG::is_enabled(log_mask::bus);
}

std::uint8_t edp_info::sub_stage() const {
    return static_cast<std::uint8_t>(_step | (_exchange.in_flight() ? waiting_bit : 0));
}

void edp_info::start_over() {
    _step = 0;
    _async_sequence = 0;
    _exchange.reset();
}

void edp_info::abandon() {
    if (!is_between_operations()) {
        give_up(target_agent(), target_name());
        start_over();
    }
}

// Takes the power that a slot asks for, in mW, to within the card's bounds, which have to be known.
void edp_info::wish_for_power(std::uint32_t& milliwatts) {
    if (milliwatts == 0 || _values[edpc] == 0.0f || _values[edpc_max] == 0.0f || _values[edpc_min] == 0.0f) {
        return;
    }
    milliwatts = within(milliwatts, _values[edpc_min], _values[edpc_max]);
    if (_values[edpc] != static_cast<float>(milliwatts) && is_between_operations()) {
        _stage = set_edpc;
    }
}

// The same for the peak, which waits until the power is settled.
void edp_info::wish_for_peak(std::uint32_t& percentage) {
    if (percentage == 0) {
        return;
    }
    const bool is_free = _stage == read_edpc && is_between_operations();
    if (_values[edpp] == 0.0f || _values[edpp_max] == 0.0f || _values[edpp_min] == 0.0f) {
        _stage = is_free ? read_edpp : _stage;
        return;
    }
    percentage = within(percentage, _values[edpp_min], _values[edpp_max]);
    if (is_free && _values[edpp] != static_cast<float>(percentage)) {
        _stage = set_edpp;
    }
    if (LOG::is_enabled(log_mask::bus)) {
        LOG::log(log_source, log_mask::bus, "%s.%d::EDPPchk Req[%ld]Cur[%f][%f][%f]\n", log_name, get_instance(),
                 static_cast<long>(percentage), shown(_values[edpp]), shown(_values[edpp_min]),
                 shown(_values[edpp_max]));
    }
}

// Of several slots the last one counts.
edp_info::wishes edp_info::ask_slots() {
    if (_values[edpc_max] == 0.0f || _values[edpc_min] == 0.0f) {
        _stage = read_bounds;
    }
    wishes wanted;
    for_each_depend<common_thermal_device_pci_slot>(utils::tdev_pci_slot, [&](const common_thermal_device_pci_slot&
                                                                                  slot) {
        wanted = {saturate_to_unsigned(slot.get_powerlimit_watt() * milliwatts_per_watt), slot.get_edpp_percentage()};
        wish_for_power(wanted.milliwatts);
        wish_for_peak(wanted.percentage);
    });
    // A wish that was taken back before it went out: a limit of 0 is never sent.
    const bool is_withdrawn =
        (_stage == set_edpc && wanted.milliwatts == 0) || (_stage == set_edpp && wanted.percentage == 0);
    if (is_withdrawn && is_between_operations()) {
        _stage = read_edpc;
    }
    return wanted;
}

edp_info::status_t edp_info::run_stage(std::uint32_t token, agent_t* agent, const wishes& wanted) {
    // Stores what an operation came to and goes on to the next stage, once it is through.
    const auto then = [this](status_t result, stage next, auto&& store) {
        if (result == utils::cmd_complete) {
            store();
            _stage = next;
        }
        return result;
    };
    std::uint32_t word = 0;
    std::uint32_t maximum = 0;
    edpp_settings settings;
    switch (_stage) {
        case read_bounds:
            return then(request_edpc_limit_bound(token, agent, word, maximum), read_edpc, [&] {
                _values[edpc_min] = static_cast<float>(word);
                _values[edpc_max] = static_cast<float>(maximum);
            });
        case set_edpc:
            return then(request_edpc_set(token, agent, wanted.milliwatts), read_edpc,
                        [&] { _values[edpc] = static_cast<float>(wanted.milliwatts); });
        case read_edpc:
            return then(request_edpc_read(token, agent, word), read_edpc,
                        [&] { _values[edpc] = static_cast<float>(word); });
        case set_edpp:
            return then(request_edpp_set(token, agent, wanted.percentage), read_edpp,
                        [&] { _values[edpp] = static_cast<float>(wanted.percentage); });
        case read_edpp:
            return then(request_edpp_read(token, agent, settings), read_edpc, [&] {
                const auto learn = [this](std::size_t bound, std::uint32_t told, std::uint32_t otherwise) {
                    if (_values[bound] == 0.0f) {
                        _values[bound] = static_cast<float>(told != 0 ? told : otherwise);
                    }
                };
                learn(edpp_min, settings.minimum, lowest_edpp);
                learn(edpp_max, settings.maximum, highest_edpp);
                _values[edpp] = static_cast<float>(settings.current);
            });
    }
    return utils::cmd_failed;
}

void edp_info::forget_card(agent_t& agent) {
    release_owned_token(agent, target_name());
    start_over();
    for (std::size_t position = 0; position < word_count; ++position) {
        _values[position] = 0.0f;
    }
}

bool edp_info::visit(const target& core, const wishes& wanted) {
    if (!core.capability->is_driver_loaded()) {
        forget_card(*core.agent);
        visit_next_agent();
        return true;
    }
    const std::uint32_t token = core.agent->get_agent_token(target_name());
    if (token == 0) {
        start_over();
        return false;
    }
    if (LOG::is_enabled(log_mask::bus)) {
        LOG::log(log_source, log_mask::bus, "%s.%d::%s - stage[%02X][%02X]\n", log_name, get_instance(), "poll",
                 static_cast<unsigned>(_stage), static_cast<unsigned>(sub_stage()));
    }
    if (run_stage(token, core.agent, wanted) == utils::cmd_pending) {
        return false;
    }
    core.agent->release_agent_token();
    visit_next_agent();
    return true;
}

void edp_info::poll(common_thermal_dao* dao, unsigned long now) {
    if (nap_chk(now)) {
        return;
    }
    if (!is_card_supported()) {
        abandon();
        return;
    }
    const wishes wanted = is_reading_on() ? wishes{} : ask_slots();
    const target core = choose_target(!is_between_operations());
    if (!core) {
        return;
    }
    const bool is_through = visit(core, wanted);
    _values.publish(dao, common_thermal_dao::spike_none);
    if (is_through) {
        nap_set(now, rest_seconds);
    }
}
