#include "platform/events.hpp"

#include <cstdio>
#include <cstdlib>

#include "platform/host/host.hpp"
#include "platform/log.hpp"

using thermal_host::platform;

QActive::~QActive() = default;

QTimeEvt::QTimeEvt(std::uint16_t signal) : QEvent{signal, 0} {}

QTimeEvt::~QTimeEvt() { disarm(); }

void QTimeEvt::arm_(QActive* receiver, unsigned ticks) {
    if (platform* host = platform::current()) {
        host->loop.arm(*this, receiver, ticks);
    }
}

void QTimeEvt::disarm() {  // NOLINT(readability-make-member-function-const)
    if (platform* host = platform::current()) {
        host->loop.disarm(*this);
    }
}

QEvent* QF::new_(unsigned size, QSignal signal) {
    platform* host = platform::current();
    return host != nullptr ? host->loop.new_event(size, signal) : nullptr;
}

void QF::publish_(QEvent* event, const char* sender) {
    if (platform* host = platform::current()) {
        host->loop.send(thermal_host::recorded_event::published, event, sender);
    }
}

void QF::fatal_(const char* what) {
    const char* text = what != nullptr ? what : "no reason given";
    platform* host = platform::current();
    if (host != nullptr) {
        LOG::err(thermal_host::host_log_source, "fatal: %s\n", text);
        if (host->on_fatal) {
            host->on_fatal(text);
        }
    } else {
        std::fprintf(stderr, "fatal: %s\n", text);
    }
    std::abort();
}

void EM::register_state_table(state_table* table) {
    platform* host = platform::current();
    if (host != nullptr && table != nullptr) {
        host->machines.state_tables.push_back(table);
    }
}

int EM::register_overloaded_signal(const char* name) {
    platform* host = platform::current();
    return host != nullptr ? host->machines.number_of(name != nullptr ? name : "") : 1;
}

void EM::postFIFO(controller_types receiver, QEvent* event) {
    if (platform* host = platform::current()) {
        host->loop.send(receiver, event, "postFIFO");
    }
}
