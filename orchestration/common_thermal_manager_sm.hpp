#pragma once

#include <string>

#include "foundation/export.hpp"
#include "platform/state_machine.hpp"

class common_thermal_manager;

// The manager's one state, which is never left: every event of the firmware and every tick passes through `running`.
class THERMAL_API common_thermal_manager_sm : public QHsm {
public:
    explicit common_thermal_manager_sm(common_thermal_manager& manager);

    // All ones if the firmware did not take the machine.
    bool is_registered() const { return _object_number != ~0u; }
    void set_object_number(unsigned number) { _object_number = number; }
    QState::handler current_state() const { return current(); }
    const std::string& state_signature() const { return _state_signature; }

    QState initial(const QEvent* event);
    QState running(const QEvent* event);

private:
    void handle(const QEvent& event);

    common_thermal_manager& _manager;
    unsigned _object_number = ~0u;
    Tstate_table<common_thermal_manager_sm> _table;
    std::string _state_signature;
};

template <>
const state_row Tstate_table<common_thermal_manager_sm>::table[];
