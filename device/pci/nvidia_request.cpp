#include "device/pci/nvidia_request.hpp"

#include "device/pci/nvidia_capability.hpp"
#include "foundation/log_masks.hpp"

using utils = common_thermal_utils;

nvidia_request_device::nvidia_request_device(const kind& row, const char* token_prefix, int instance,
                                             std::initializer_list<published_values::start_value> values)
    : pci_request_device(row, instance, values), _token_name(token_prefix) {}

nvidia_request_device::status_t nvidia_request_device::request_word(std::uint32_t token, status_t state, agent_t* agent,
                                                                    const mailbox::frame& command,
                                                                    std::string_view operation,
                                                                    std::uint32_t& word) const {
    return agent == nullptr
               ? utils::cmd_failed
               : agent->request_word(token, state, command, word, operation, static_cast<unsigned>(get_instance()));
}

std::uint32_t nvidia_request_device::take_token(agent_t& agent, std::string_view name) {
    const std::uint32_t token = agent.get_agent_token(name);
    if (token == 0) {
        _exchange.reset();
    }
    return token;
}

void nvidia_request_device::release_owned_token(agent_t& agent, std::string_view name) const {
    if (agent.owned_agent_token(name)) {
        LOG::log(log_source, log_mask::life_cycle, "%s::release_owned_token [%d]\n", get_name().c_str(),
                 static_cast<int>(_agent_index));
        agent.release_agent_token();
    }
}

void nvidia_request_device::give_up(agent_t* agent, std::string_view name) {
    if (agent != nullptr) {
        release_owned_token(*agent, name);
    }
    _exchange.reset();
}

nvidia_supported_request::target nvidia_supported_request::choose_target(bool goes_on) {
    using capability_t = common_thermal_device_pci_request_nvidia_capability;
    if (goes_on && _target) {
        return _target;
    }
    _target.agent = target_agent();
    if (_target.agent == nullptr) {
        ++_capability_index;
        _agent_index = 0;
        _target.agent = target_agent();
    }
    _target.capability = depend_at<capability_t>(utils::tdev_pci_request_nvidia_capability, _capability_index);
    if (_target.capability == nullptr) {
        _capability_index = 0;
        _target.capability = depend_at<capability_t>(utils::tdev_pci_request_nvidia_capability, 0);
    }
    return _target;
}
