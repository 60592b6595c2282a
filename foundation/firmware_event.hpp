#pragma once

#include "platform/events.hpp"

// An event to fill and to publish or post. Never null: without storage the process ends with that text, because a
// restart loses less than an event that the firmware waits for.
inline bmc_event* new_firmware_event(QSignal signal, const char* no_storage) {
    QEvent* event = QF::new_(sizeof(bmc_event), signal);
    if (event == nullptr) {
        QF::fatal_(no_storage);
    }
    return static_cast<bmc_event*>(event);
}
