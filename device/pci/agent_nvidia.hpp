#pragma once

#include "device/pci/agent.hpp"
#include "device/pci/mailbox.hpp"

// The mailbox of one core of a card. A card that has not finished answers cmd_pending: the same call with that state
// asks again at the next poll, while the token stays taken.
class THERMAL_API common_thermal_device_pci_agent_nvidia : public pci_agent {
public:
    using frame = mailbox::frame;

    explicit common_thermal_device_pci_agent_nvidia(int instance);

    // Number of the core on its card, 1 to 4; 0 counts as 1.
    void set_num(unsigned num) { _num = num == 0 ? 1 : num; }
    // The same; with exactly 1, tells the rest of the firmware which bus leads to the card in this slot.
    void set_num(unsigned slot, unsigned num);
    std::uint32_t get_num() const { return _num; }

    std::uint32_t get_agent_token(std::string_view name);
    bool owned_agent_token(std::string_view name) const;

    // Raw steps: cmd_pending once the answer is in `rx`, otherwise cmd_failed, also when it echoes another command.
    status_t write_to_bus(const frame& tx, frame& rx, std::string_view name, unsigned instance);
    status_t read_from_bus(std::uint8_t register_number, frame& rx, std::string_view name, unsigned instance);

    // Sends with cmd_idle, asks for the status with cmd_pending, and answers what the card says. `name` and `instance`
    // tell the log whose request it is.
    status_t write_command(std::uint32_t token, status_t state, const frame& tx, frame& rx, std::string_view name,
                           unsigned instance);
    // With cmd_data_ready only: cmd_complete, or cmd_failed.
    status_t read_data(std::uint32_t token, status_t state, frame& rx, std::string_view name, unsigned instance);
    // With cmd_idle only. Reads the word back: cmd_complete, or cmd_failed.
    status_t write_data(std::uint32_t token, status_t state, const frame& tx, frame& rx, std::string_view name,
                        unsigned instance);

    // A command and, as soon as the card is ready, its data word; `word` is set with cmd_complete only.
    status_t request_word(std::uint32_t token, status_t state, const frame& tx, std::uint32_t& word,
                          std::string_view name, unsigned instance);

private:
    // The frame out, then the answer of its register in.
    bool exchange(const char* function, const frame& tx, frame& rx, std::string_view name, unsigned instance);
    bool read_register(std::uint8_t register_number, frame& rx);

    std::uint32_t _num = 1;
    std::uint32_t _slot_num = 1;
};
