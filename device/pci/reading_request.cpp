#include "device/pci/reading_request.hpp"

using utils = common_thermal_utils;

reading_request::reading_request(const row& request, int instance,
                                 std::initializer_list<published_values::start_value> values)
    : pci_request_device(request.device, instance, values),
      _row(request),
      _reading(values.size() - 1),
      _token_name(request.token_prefix) {}

void reading_request::set_valid(bool valid) {
    if (_reading != 0) {
        _values[0] = valid ? 1.0f : 0.0f;
    }
}

float reading_request::next_reading(plain_pci_agent& agent) {
    float reading = _row.on_refusal == refusal::zero ? 0.0f : _values[_reading];
    const agent_hold hold(agent, _token_name.of(_agent_index));
    if (hold) {
        const bool complete = request_reading(hold.token(), agent, &reading) == utils::cmd_complete;
        if (complete || _row.failure_ends_validity) {
            set_valid(complete);
        }
    } else if (_row.on_refusal == refusal::last_not_valid) {
        set_valid(false);
    }
    if (hold || _row.moves_on_when_refused) {
        visit_next_agent();
    }
    return reading;
}

void reading_request::poll(common_thermal_dao* dao, unsigned long) {
    auto* agent = is_card_supported() ? visited_agent<plain_pci_agent>() : nullptr;
    if (agent == nullptr) {
        return;
    }
    const float reading = next_reading(*agent);
    if (is_valid()) {
        tell_slots(_row.tell, reading * _row.slot_unit);
    } else if (_row.tells_zero_while_not_valid) {
        tell_slots(_row.tell, 0.0f);
    }
    _values[_reading] = reading;
    _values.publish(dao, common_thermal_dao::spike_none);
}
