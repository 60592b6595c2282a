#pragma once

#include "device/pci/agent_nvidia.hpp"
#include "device/pci/mailbox_exchange.hpp"
#include "device/pci/request_device.hpp"
#include "device/pci/supported_list.hpp"

class common_thermal_device_pci_request_nvidia_capability;

constexpr pci_request_device::kind nvidia_kind(const char* class_name, common_thermal_utils::tdev_type_t type) {
    return {class_name, type, pci_group::nvidia_gpu, common_thermal_utils::tdev_pci_agent_nvidia};
}

// Asks the mailboxes of a card, one request to one agent at a time. A request that the card does not answer at once
// goes on at the next poll and keeps the agent's token until its end.
class THERMAL_API nvidia_request_device : public pci_request_device {
public:
    using agent_t = common_thermal_device_pci_agent_nvidia;
    using status_t = common_thermal_utils::nv_cmd_status_t;

protected:
    nvidia_request_device(const kind& row, const char* token_prefix, int instance,
                          std::initializer_list<published_values::start_value> values);

    // One step of the request `command`, whose name in the log is `operation`; cmd_failed without an agent.
    status_t request_word(std::uint32_t token, status_t state, agent_t* agent, const mailbox::frame& command,
                          std::string_view operation, std::uint32_t& word) const;

    // The token for the next step under this name. 0 while another request has the agent: nothing is in flight then.
    std::uint32_t take_token(agent_t& agent, std::string_view name);
    // Calls `request(state)` for the next step and gives the token back unless the card has not finished.
    template <class Request>
    status_t advance(agent_t& agent, Request&& request) {
        const status_t result = _exchange.step(request);
        if (result != common_thermal_utils::cmd_pending) {
            agent.release_agent_token();
        }
        return result;
    }
    // Gives the token back if this name has it.
    void release_owned_token(agent_t& agent, std::string_view name) const;
    // For a gate that shuts on a request in flight: ends it, so that the next card finds the agent free.
    void give_up(agent_t* agent, std::string_view name);

    token_name _token_name;
    mailbox_exchange _exchange;
};

// Asks the card only for what a capability device says it can answer. Visits each agent in turn for the first capability
// device, then each one for the second, and so on.
class THERMAL_API nvidia_supported_request : public nvidia_request_device {
protected:
    using nvidia_request_device::nvidia_request_device;

    struct target {
        agent_t* agent = nullptr;
        const common_thermal_device_pci_request_nvidia_capability* capability = nullptr;

        // False unless the device depends on at least one of each.
        explicit operator bool() const { return agent != nullptr && capability != nullptr; }
    };
    // Whose turn it is: the same until visit_next_agent(). Not looked for again while its request `goes_on`.
    target choose_target(bool goes_on);
    // Name of the token for the target chosen last.
    std::string_view target_name() { return _token_name.of(_capability_index, _agent_index); }
    // The agent of that target.
    agent_t* target_agent() const { return depend_at<agent_t>(_kind.agent, _agent_index); }

private:
    std::uint32_t _capability_index = 0;
    target _target;
};
