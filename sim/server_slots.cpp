#include "sim/server_slots.hpp"

#include <algorithm>
#include <cmath>

namespace sim {

namespace {

// Where cards of all kinds slow themselves down; their headroom counts from there.
constexpr double card_limit_c = 95.0;
constexpr std::uint32_t no_reading = 0xFFFFFFFFu;
constexpr const char* baseboard_present_key = "GPU_UBB_PRESENT";

// Requests of the cards that answer at once.
const register_card::bytes status_register{0xEF, 0x10};
const register_card::bytes die_register{0xEF, 0x11};
const register_card::bytes memory_register{0xEF, 0x12};
const register_card::bytes power_register{0xEF, 0x20};
const register_card::bytes drive_record{0x00};
const register_card::bytes network_command{0xCB, 0x01, 0x02};
const register_card::bytes network_answer{0xDB};

constexpr std::uint8_t readings_are_valid = 0x02;

std::uint8_t degrees(double celsius) { return static_cast<std::uint8_t>(std::clamp(std::lround(celsius), 0L, 254L)); }
std::uint32_t thousandths(double value) { return static_cast<std::uint32_t>(std::lround(value * 1000.0)); }

std::uint32_t manager_key_of(unsigned slot) { return 0x1000000u | manager_bus_of(slot) << 16 | manager_device; }

}  // namespace

server_slots::server_slots(thermal_host::platform& host, std::span<const slot_plan> plan)
    : _host(host), _plan(plan), _slots(plan.size()) {
    if (std::ranges::any_of(plan, [](const slot_plan& row) { return row.bus == card_bus::baseboard; })) {
        host.ports.add_number(baseboard_present_key, 1);
    }
    for (const slot_plan& row : plan) {
        slot_state& slot = at(row.number);
        slot.plan = &row;
        slot.is_there = *row.part != '\0';
        slot.present = &host.ports.add_number(slot_present_bits + row.number, slot.is_there ? 1 : 0);
        slot.brake = &host.ports.add_number(slot_brake_bits + row.number);
        if (slot.is_there) {
            add_card(slot);
            enter_into_inventory(row);
        }
    }
}

void server_slots::add_card(slot_state& slot) {
    const unsigned number = slot.plan->number;
    const auto add_bus = [&]() -> thermal_host::block_line& {
        return _host.ports.add_block(slot_bus_blocks + number, {});
    };
    const auto add_registers = [&] { slot.registers = std::make_unique<register_card>(add_bus()); };
    switch (slot.plan->bus) {
        case card_bus::mailbox:
            slot.mailbox = std::make_unique<mailbox_core>(add_bus());
            slot.mailbox->power_limits.highest = slot.mailbox->power_limits.usual = thousandths(slot.plan->most_w);
            break;
        case card_bus::status:
            add_registers();
            slot.registers->set(status_register, {readings_are_valid});
            slot.registers->set(die_register, {0});
            slot.registers->set(memory_register, {0});
            slot.registers->set(power_register, {0, 0});
            break;
        case card_bus::drive:
            add_registers();
            slot.registers->set(drive_record, {6, 0, 0, 0, 0});
            break;
        case card_bus::network:
            add_registers();
            slot.registers->set(network_command, {});
            slot.registers->set(network_answer, {10, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0});
            break;
        case card_bus::manager:
            _host.pcie.plug(manager_key_of(number));
            break;
        case card_bus::baseboard: {
            const std::string module = "HGX_GPU_SXM_" + std::to_string(number);
            const std::string retimer = "HGX_PCIE_RETIMER_" + std::to_string(number);
            for (const std::string& key : {module + "_TEMP_0", module + "_TEMP_1", module + "_DRAM_0_TEMP_0",
                                           retimer + "_TEMP_0", module + "_POWER_0"}) {
                slot.sensors.push_back(&_host.ports.add_number(key, no_reading));
            }
            break;
        }
        case card_bus::none:
            break;
    }
    silence(slot);
}

void server_slots::enter_into_inventory(const slot_plan& card) {
    _VEKTDB_PCIGenericInfo info{};
    info.vendor_id = card.vendor_id;
    info.device_id = card.device_id;
    info.sub_vendor_id = card.vendor_id;
    info.sub_device_id = card.sub_device_id;
    info.slot_no = static_cast<std::uint16_t>(card.number);
    info.location = slot_location;
    _host.inventory.adapters.push_back({card.number, {{card.number, info}}});
}

void server_slots::show(unsigned number, double celsius, double watts) {
    slot_state& slot = at(number);
    if (!slot.is_there) {
        return;
    }
    switch (slot.plan->bus) {
        case card_bus::mailbox:
            slot.mailbox->shown = {celsius, celsius - 2.0, card_limit_c - celsius, watts};
            break;
        case card_bus::status: {
            const auto whole_watts = static_cast<std::uint32_t>(std::lround(watts));
            slot.registers->set_byte(die_register, 0, degrees(celsius));
            slot.registers->set_byte(memory_register, 0, degrees(celsius - 2.0));
            slot.registers->set_byte(power_register, 0, static_cast<std::uint8_t>(whole_watts & 0xFFu));
            slot.registers->set_byte(power_register, 1, static_cast<std::uint8_t>(whole_watts >> 8));
            break;
        }
        case card_bus::drive:
            slot.registers->set_byte(drive_record, 3, std::min<std::uint8_t>(degrees(celsius), 127));
            break;
        case card_bus::network:
            slot.registers->set_byte(network_answer, 4, degrees(celsius));
            break;
        case card_bus::manager:
            show_manager(slot, celsius);
            break;
        case card_bus::baseboard:
            show_baseboard(slot, celsius, watts);
            break;
        case card_bus::none:
            break;
    }
}

// A manager that is silent goes on telling what it knew, under the old time stamp.
void server_slots::show_manager(const slot_state& slot, double celsius) {
    thermal_host::managed_adapter* adapter = _host.pcie.find(manager_key_of(slot.plan->number));
    if (adapter != nullptr && slot.fault == card_fault::none && _has_host_power) {
        adapter->latest = {static_cast<std::int32_t>(std::lround(card_limit_c - celsius)), degrees(celsius),
                           ++_manager_ticks};
    }
}

void server_slots::show_baseboard(const slot_state& slot, double celsius, double watts) const {
    const double values[] = {celsius, card_limit_c - celsius, celsius - 2.0, celsius - 10.0, watts};
    const bool is_served = slot.fault == card_fault::none && _has_host_power;
    for (std::size_t i = 0; i < slot.sensors.size(); ++i) {
        slot.sensors[i]->set_value(is_served ? thousandths(values[i]) : no_reading);
    }
}

std::optional<double> server_slots::limit(unsigned number) const {
    const slot_state& slot = at(number);
    if (slot.mailbox == nullptr || slot.mailbox->power_limit() == 0) {
        return std::nullopt;
    }
    return slot.mailbox->power_limit() / 1000.0;
}

bool server_slots::is_braked(unsigned slot) const { return at(slot).brake->value() != 0; }

void server_slots::set_card(unsigned number, bool is_there) {
    slot_state& slot = at(number);
    slot.is_there = is_there && *slot.plan->part != '\0';
    slot.present->set_value(slot.is_there ? 1 : 0);
    silence(slot);
}

void server_slots::set_fault(unsigned number, card_fault fault) {
    at(number).fault = fault;
    silence(at(number));
}

void server_slots::set_host_power(bool is_on) {
    if (is_on != _has_host_power) {
        _has_host_power = is_on;
        std::ranges::for_each(_slots, [this](slot_state& slot) { silence(slot); });
    }
}

// Brings a card's bus to where fault, power and presence leave it.
void server_slots::silence(slot_state& slot) const {
    const bool is_on = slot.is_there && _has_host_power;
    if (slot.mailbox != nullptr) {
        slot.mailbox->set_power(is_on);
        slot.mailbox->fault = is_on ? slot.fault : card_fault::silent;
    }
    if (slot.registers != nullptr) {
        slot.registers->fault = is_on ? slot.fault : card_fault::silent;
    }
    for (thermal_host::number_line* sensor : slot.sensors) {
        if (!is_on) sensor->set_value(no_reading);
    }
}

}  // namespace sim
