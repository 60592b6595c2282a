#pragma once

#include <span>

#include "device/pci/nvidia_request.hpp"

// Peak power settings of a card in percent, as it packs them into one word. 0 where it does not tell.
struct edpp_settings {
    std::uint32_t current = 0;
    std::uint32_t by_default = 0;
    std::uint32_t maximum = 0;
    std::uint32_t minimum = 0;
};
THERMAL_API edpp_settings unpack_edpp(std::uint32_t word);

// Two limits inside a card: its power (EDPc, in mW) and its peak power (EDPp, in percent). Reads both and sets them to
// what the slot asks for, within the card's own bounds. The card takes its commands through scratch memory and carries
// them out in the background, so an operation is a row of steps, one a poll, and keeps the bus from the first to the
// last. One set of values and one place for all cores: each operation goes to the next core in turn.
class THERMAL_API common_thermal_device_pci_request_nvidia_edp_info : public nvidia_supported_request {
public:
    explicit common_thermal_device_pci_request_nvidia_edp_info(int instance);

    // What the device is at; the numbers show in the log.
    enum stage : std::uint8_t { read_bounds = 0, set_edpc = 16, read_edpc = 32, set_edpp = 48, read_edpp = 64 };

    // Operations for the holder of the bus: one step each call. cmd_pending until the last one is done, then
    // cmd_complete; cmd_failed starts over with the first step. What is read is set with cmd_complete only, to 0 where
    // a word of scratch memory could not be read.
    status_t request_edpc_limit_bound(std::uint32_t token, agent_t* agent, std::uint32_t& minimum,
                                      std::uint32_t& maximum);
    status_t request_edpc_set(std::uint32_t token, agent_t* agent, std::uint32_t milliwatts);
    status_t request_edpc_read(std::uint32_t token, agent_t* agent, std::uint32_t& milliwatts);
    status_t request_edpp_set(std::uint32_t token, agent_t* agent, std::uint32_t percentage);
    status_t request_edpp_read(std::uint32_t token, agent_t* agent, edpp_settings& settings);

    // Steps; with `resume` only the status is asked for. cmd_complete, cmd_pending, or what went wrong.
    status_t request_async_cmd_submit(std::uint32_t token, agent_t* agent, std::uint8_t command, bool resume);
    status_t request_async_cmd_poll(std::uint32_t token, agent_t* agent, bool resume);
    status_t request_read_scratch_memory(std::uint32_t token, agent_t* agent, std::uint8_t index, std::uint32_t& word);
    status_t request_write_scratch_memory(std::uint32_t token, agent_t* agent, std::uint8_t index, std::uint32_t word);

    void poll(common_thermal_dao* dao, unsigned long now) override;

private:
    struct operation;
    struct scratch_word;
    struct wishes {
        std::uint32_t milliwatts = 0;  // 0: none
        std::uint32_t percentage = 0;
    };

    wishes ask_slots();
    void wish_for_power(std::uint32_t& milliwatts);
    void wish_for_peak(std::uint32_t& percentage);

    // False while a request is on its way or the bus is taken: no rest until it is through.
    bool visit(const target& core, const wishes& wanted);
    void forget_card(agent_t& agent);
    status_t run_stage(std::uint32_t token, agent_t* agent, const wishes& wanted);
    template <class Transfer>
    status_t run(const operation& what, std::uint32_t token, agent_t* agent, Transfer&& transfer);
    status_t send(std::uint32_t token, agent_t* agent, bool resume, const mailbox::frame& tx, mailbox::frame& rx,
                  const char* function) const;
    void read_words(std::uint32_t token, agent_t* agent, std::span<std::uint32_t> words);
    void write_words(const operation& what, std::uint32_t token, agent_t* agent, std::span<const scratch_word> words);

    bool is_between_operations() const { return sub_stage() == 0; }
    // What the slots wish makes no difference now, and nobody wants to read of it.
    bool is_reading_on() const;
    // The step, with bit 7 while the card has not finished it.
    std::uint8_t sub_stage() const;
    void start_over();
    // Gives the bus back in the middle of an operation.
    void abandon();

    stage _stage = read_bounds;
    std::uint8_t _step = 0;
    std::uint8_t _async_sequence = 0;  // the card's number for the command it carries out
};
