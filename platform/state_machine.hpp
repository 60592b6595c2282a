#pragma once

#include <string>
#include <utility>

#include "platform/events.hpp"

constexpr QSignal state_entry_signal = 1;

class PLATFORM_API QFsm {
public:
    virtual ~QFsm();
    virtual void init(const QEvent* event) = 0;
    virtual void dispatch(const QEvent* event) = 0;
};

class QHsm;

// What a state handler answers: the state to ask next. A handler that answers `top` has dealt with the event.
struct QState {
    using handler = QState (QHsm::*)(const QEvent*);
    handler parent = nullptr;
};

// A hierarchical state machine.
class PLATFORM_API QHsm : public QFsm {
public:
    explicit QHsm(QState::handler initial);

    // Runs the initial handler, which calls enter(), then sends that state the entry signal.
    void init(const QEvent* event) override;
    void dispatch(const QEvent* event) override;

    QState top(const QEvent* event);

protected:
    void enter(QState::handler state);
    QState::handler current() const { return _state; }

private:
    QState::handler _state;
};

struct PLATFORM_API QFM {
    // Enters the machine in the firmware's list; all ones if the list refuses it.
    static unsigned add_qfsm_object(QFsm* machine, logical_device* owner);
};

// Introspection: names for the states of a machine.
class PLATFORM_API state_table {
public:
    explicit state_table(std::string name);
    virtual ~state_table();
    state_table(const state_table&) = delete;
    state_table& operator=(const state_table&) = delete;

    const std::string& name() const { return _name; }

private:
    std::string _name;
};

// One row per state; a row with a null handler ends a table.
struct state_row {
    QState::handler handler;
    const char* name;
};

template <class Machine>
class Tstate_table : public state_table {
public:
    Tstate_table(std::string name, const Machine& machine) : state_table(std::move(name)), _machine(machine) {}
    virtual QState::handler current_state() const { return _machine.current_state(); }

    static const state_row table[];

private:
    const Machine& _machine;
};
