#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "platform/host/host.hpp"
#include "sim/cards.hpp"

namespace sim {

// Ports of slot n, which counts from 1.
constexpr unsigned slot_present_bits = 1200;
constexpr unsigned slot_bus_blocks = 1220;
constexpr unsigned slot_brake_bits = 1240;
constexpr std::uint8_t slot_location = 1;

// How a card is asked.
enum class card_bus {
    none,      // nobody in the library knows it
    mailbox,   // accelerators of one vendor
    status,    // accelerators of another: a status register says whether the others may be read
    drive,     // the status record of a drive
    network,   // a command and its answer
    manager,   // the firmware asks it
    baseboard  // another process asks it and serves its sensors under names
};

struct slot_plan {
    unsigned number = 0;
    const char* title = "";
    card_bus bus = card_bus::none;
    const char* part = "";  // in the heat model; empty for a slot without a card
    std::uint16_t vendor_id = 0;
    std::uint16_t device_id = 0;
    std::uint16_t sub_device_id = 0;
    unsigned most_w = 0;  // of the card, which a rule has to tell the library
};

// The cards in the slots of a machine: what they show on their bus, what they were told, and how they misbehave.
class server_slots {
public:
    server_slots(thermal_host::platform& host, std::span<const slot_plan> plan);
    server_slots(const server_slots&) = delete;
    server_slots& operator=(const server_slots&) = delete;

    std::span<const slot_plan> plan() const { return _plan; }
    void show(unsigned number, double celsius, double watts);
    // W that the card allows itself; nothing without a limit.
    std::optional<double> limit(unsigned number) const;
    bool is_braked(unsigned slot) const;
    bool has_card(unsigned slot) const { return at(slot).is_there; }

    // A card that is pulled while the machine runs falls silent; the inventory hears of it at the next boot.
    void set_card(unsigned number, bool is_there);
    // A card that cannot misbehave in such a way stays silent instead.
    void set_fault(unsigned number, card_fault fault);
    void set_host_power(bool is_on);
    // Of an accelerator with a mailbox; null for any other.
    mailbox_core* mailbox(unsigned slot) { return at(slot).mailbox.get(); }

private:
    struct slot_state {
        const slot_plan* plan = nullptr;
        bool is_there = false;
        card_fault fault = card_fault::none;
        thermal_host::number_line* present = nullptr;
        thermal_host::number_line* brake = nullptr;
        std::unique_ptr<mailbox_core> mailbox;
        std::unique_ptr<register_card> registers;
        std::vector<thermal_host::number_line*> sensors;  // on a baseboard: die, headroom, memory, retimer, power
    };

    const slot_state& at(unsigned slot) const { return _slots.at(slot - 1); }
    slot_state& at(unsigned slot) { return _slots.at(slot - 1); }
    void add_card(slot_state& slot);
    void enter_into_inventory(const slot_plan& card);
    void show_manager(const slot_state& slot, double celsius);
    void show_baseboard(const slot_state& slot, double celsius, double watts) const;
    void silence(slot_state& slot) const;

    thermal_host::platform& _host;
    std::span<const slot_plan> _plan;
    std::vector<slot_state> _slots;
    bool _has_host_power = false;
    std::uint64_t _manager_ticks = 0;
};

// Of the key that the firmware's manager knows a card by.
constexpr unsigned manager_bus_of(unsigned slot) { return 0x10 + slot; }
constexpr unsigned manager_device = 0;

}  // namespace sim
