#pragma once

#include <array>

#include "device/pci/nvidia_request.hpp"

// What a card can report, from three pages that its agents are asked for in turn. Once the first two have stayed the
// same, only the third one is read again, which follows the driver on the host. Publishes zeros while no such card is
// there, and starts anew with the next one.
class THERMAL_API common_thermal_device_pci_request_nvidia_capability : public nvidia_request_device {
public:
    explicit common_thermal_device_pci_request_nvidia_capability(int instance);

    // Cores count from 1 to 4; false for any other.
    bool is_support_core_temp(unsigned core) const;
    bool is_support_hbm_temp() const;
    bool is_support_tlimit_temp() const;
    bool is_driver_loaded() const;

    // One step of the request for a page; `value` is set with cmd_complete only.
    status_t request_capability0(std::uint32_t token, status_t state, agent_t* agent, std::uint32_t& value) const {
        return request_page(token, state, 0, agent, value);
    }
    status_t request_capability1(std::uint32_t token, status_t state, agent_t* agent, std::uint32_t& value) const {
        return request_page(token, state, 1, agent, value);
    }
    status_t request_capability2(std::uint32_t token, status_t state, agent_t* agent, std::uint32_t& value) const {
        return request_page(token, state, 2, agent, value);
    }
    // By number of the page. cmd_skipped without a word to the card for a page that is settled; cmd_failed above 2.
    status_t request_capability(std::uint32_t token, status_t state, std::uint32_t step, agent_t* agent,
                                std::uint32_t& value) const;

    void poll(common_thermal_dao* dao, unsigned long now) override;

private:
    status_t request_page(std::uint32_t token, status_t state, std::uint32_t number, agent_t* agent,
                          std::uint32_t& value) const;
    std::string_view page_name() { return _token_name.of(_cap_step, _agent_index); }
    void ask_for_page(agent_t& agent);
    // With the answer for the page whose turn it is.
    void take_page(std::uint32_t value);
    // Counts the reads of the first two pages that found nothing new; an empty page that was empty counts as nothing.
    bool is_cap_val_changed(unsigned index, float old_value, std::uint32_t new_value);
    void start_anew();
    void log_poll() const;

    std::uint32_t _cap_step = 0;
    std::array<std::uint8_t, 2> _same_count{};  // reads in a row that found page 0 or 1 unchanged
    bool _caps_settled = false;
};
