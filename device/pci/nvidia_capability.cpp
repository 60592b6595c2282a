#include "device/pci/nvidia_capability.hpp"

#include <algorithm>
#include <iterator>
#include <limits>

#include "foundation/log_masks.hpp"

using utils = common_thermal_utils;

namespace {

constexpr auto row =
    nvidia_kind("common_thermal_device_pci_request_nvidia_capability", utils::tdev_pci_request_nvidia_capability);

// The flags of four cores and the words of three pages go by the place of their first one.
enum word : std::uint8_t {
    support_core1_temp,
    support_hbm_temp = support_core1_temp + 4,
    support_tlimit_temp,
    driver_load,
    cap0,
    word_count = cap0 + 3,
};

struct page {
    std::string_view operation;
    mailbox::frame command{};
};

constexpr page pages[] = {{"request_capability0", mailbox::command(1, 0)},
                          {"request_capability1", mailbox::command(1, 1)},
                          {"request_capability2", mailbox::command(1, 2)}};
constexpr std::uint32_t page_count = std::size(pages);
constexpr std::uint32_t support_page = 0;
constexpr std::uint32_t driver_page = 2;

constexpr unsigned cores = 4;
constexpr unsigned hbm_bit = 5;
constexpr unsigned tlimit_bit = 7;
constexpr unsigned driver_missing_bit = 0;

// A card of this treatment says less of its cores than it has.
constexpr std::uint32_t forces_cores = 2;
constexpr std::uint8_t settled_after = 3;

constexpr bool has_bit(std::uint32_t page, unsigned bit) { return (page >> bit & 1) != 0; }
constexpr float flag(bool set) { return set ? 1.0f : 0.0f; }

}  // namespace

common_thermal_device_pci_request_nvidia_capability::common_thermal_device_pci_request_nvidia_capability(int instance)
    : nvidia_request_device(row, "cap.", instance,
                            {{"support_core1_temp"},
                             {"support_core2_temp"},
                             {"support_core3_temp"},
                             {"support_core4_temp"},
                             {"support_hbm_temp"},
                             {"support_tlimit_temp"},
                             {"driver_load"},
                             {"cap0"},
                             {"cap1"},
                             {"cap2"}}) {}

bool common_thermal_device_pci_request_nvidia_capability::is_support_core_temp(unsigned core) const {
    return core >= 1 && core <= cores && _values[support_core1_temp + core - 1] > 0.0f;
}

bool common_thermal_device_pci_request_nvidia_capability::is_support_hbm_temp() const {
    return _values[support_hbm_temp] > 0.0f;
}

bool common_thermal_device_pci_request_nvidia_capability::is_support_tlimit_temp() const {
    return _values[support_tlimit_temp] > 0.0f;
}

bool common_thermal_device_pci_request_nvidia_capability::is_driver_loaded() const {
    return _values[driver_load] > 0.0f;
}

nvidia_request_device::status_t common_thermal_device_pci_request_nvidia_capability::request_page(
    std::uint32_t token, status_t state, std::uint32_t number, agent_t* agent, std::uint32_t& value) const {
    return request_word(token, state, agent, pages[number].command, pages[number].operation, value);
}

nvidia_request_device::status_t common_thermal_device_pci_request_nvidia_capability::request_capability(
    std::uint32_t token, status_t state, std::uint32_t step, agent_t* agent, std::uint32_t& value) const {
    if (step >= page_count) {
        return utils::cmd_failed;
    }
    return _caps_settled && step < _same_count.size() ? utils::cmd_skipped
                                                      : request_page(token, state, step, agent, value);
}

bool common_thermal_device_pci_request_nvidia_capability::is_cap_val_changed(unsigned index, float old_value,
                                                                             std::uint32_t new_value) {
    if (new_value == 0 && old_value == 0.0f) {
        return false;
    }
    const bool changed = static_cast<float>(new_value) != old_value;
    if (index < _same_count.size()) {
        std::uint8_t& count = _same_count[index];
        if (changed) {
            count = 0;
        } else if (count < std::numeric_limits<std::uint8_t>::max()) {
            ++count;
        }
    }
    if (!changed && LOG::is_enabled(log_mask::life_cycle)) {
        LOG::log(log_source, log_mask::life_cycle, "%s::%s-[%02X][%08lX]\n", row.class_name, "is_cap_val_changed",
                 index, static_cast<unsigned long>(new_value));
    }
    return changed;
}

void common_thermal_device_pci_request_nvidia_capability::take_page(std::uint32_t value) {
    float& raw = _values[cap0 + _cap_step];
    if (!is_cap_val_changed(_cap_step, raw, value)) {
        return;
    }
    raw = static_cast<float>(value);
    if (_cap_step == support_page) {
        const bool forced = is_card_forced(forces_cores);
        for (unsigned core = 0; core < cores; ++core) {
            _values[support_core1_temp + core] = flag(has_bit(value, core) || forced);
        }
        _values[support_hbm_temp] = flag(has_bit(value, hbm_bit));
        _values[support_tlimit_temp] = flag(has_bit(value, tlimit_bit));
    } else if (_cap_step == driver_page) {
        _values[driver_load] = flag(!has_bit(value, driver_missing_bit));
    }
}

void common_thermal_device_pci_request_nvidia_capability::ask_for_page(agent_t& agent) {
    const std::string_view name = page_name();
    const std::uint32_t token = take_token(agent, name);
    if (LOG::is_enabled(log_mask::life_cycle)) {
        LOG::log(log_source, log_mask::life_cycle, "%s::%s-%.*s-%d\n", row.class_name, "poll",
                 static_cast<int>(name.size()), name.data(), get_instance());
    }
    if (token == 0) {
        return;
    }
    std::uint32_t value = 0;
    const status_t result =
        advance(agent, [&](status_t state) { return request_capability(token, state, _cap_step, &agent, value); });
    if (result == utils::cmd_pending) {
        return;
    }
    if (result == utils::cmd_complete) {
        take_page(value);
    } else if (result == utils::cmd_failed) {
        _values[cap0 + _cap_step] = static_cast<float>(value);
    }
    ++_cap_step;
}

void common_thermal_device_pci_request_nvidia_capability::start_anew() {
    for (std::size_t position = 0; position < word_count; ++position) {
        _values[position] = 0.0f;
    }
    _same_count = {};
    _caps_settled = false;
}

void common_thermal_device_pci_request_nvidia_capability::log_poll() const {
    if (LOG::is_enabled(log_mask::life_cycle)) {
        const unsigned state = _exchange.in_flight() ? utils::cmd_pending : utils::cmd_idle;
        LOG::log(log_source, log_mask::life_cycle, "%s::%s-%d Force4core:[%02X]\n", row.class_name, "poll",
                 get_instance(), is_card_forced(forces_cores) ? 1u : 0u);
        LOG::log(log_source, log_mask::life_cycle, "%s::%s-%d[%02X]\n", row.class_name, "poll", get_instance(), state);
    }
}

void common_thermal_device_pci_request_nvidia_capability::poll(common_thermal_dao* dao, unsigned long) {
    if (_cap_step >= page_count) {
        _cap_step = 0;
        visit_next_agent();
    }
    if (is_card_supported()) {
        if (auto* agent = visited_agent<agent_t>(); agent != nullptr) {
            ask_for_page(*agent);
        }
        log_poll();
        if (std::all_of(_same_count.begin(), _same_count.end(),
                        [](std::uint8_t count) { return count > settled_after; })) {
            _caps_settled = true;
        }
    } else {
        if (_exchange.in_flight()) {
            give_up(visited_agent<agent_t>(), page_name());
        }
        start_anew();
    }
    _values.publish(dao, common_thermal_dao::spike_none);
}
