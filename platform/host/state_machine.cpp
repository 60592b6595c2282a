#include "platform/state_machine.hpp"

#include <algorithm>
#include <utility>

#include "platform/devices.hpp"
#include "platform/host/host.hpp"

using thermal_host::platform;

QFsm::~QFsm() = default;

QHsm::QHsm(QState::handler initial) : _state(initial) {}

void QHsm::init(const QEvent* event) {
    const QState::handler initial = std::exchange(_state, nullptr);
    if (initial != nullptr) {
        (this->*initial)(event);
    }
    const QEvent entry{state_entry_signal, 0};
    dispatch(&entry);
}

void QHsm::dispatch(const QEvent* event) {
    for (QState::handler next = _state; next != nullptr;) {
        next = (this->*next)(event).parent;
    }
}

QState QHsm::top(const QEvent*) { return {}; }

void QHsm::enter(QState::handler state) { _state = state; }

state_table::state_table(std::string name) : _name(std::move(name)) {}

state_table::~state_table() {
    if (platform* host = platform::current()) {
        std::erase(host->machines.state_tables, this);
    }
}

unsigned QFM::add_qfsm_object(QFsm* machine, logical_device*) {
    platform* host = platform::current();
    if (host == nullptr || machine == nullptr || host->machines.refuse_state_machines) {
        return ~0u;
    }
    return host->machines.state_machines++;
}
