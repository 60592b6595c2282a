#pragma once

#include <cstdint>

#include "platform/api.hpp"

class logical_device;

using QSignal = std::uint16_t;
using bmc_signal = QSignal;

// Header of every event: four bytes on the wire.
struct QEvent {
    QSignal sig = 0;
    std::uint16_t header = 0;
};

// The firmware's event, 20 bytes: header, two 32-bit words, one 16-bit word, two bytes.
struct bmc_event : QEvent {
    std::uint32_t data_dword0 = 0;
    std::uint32_t data_dword1 = 0;
    std::uint16_t data_word = 0;
    std::uint8_t data_byte0 = 0;
    std::uint8_t data_byte1 = 0;
    std::uint32_t reserved = 0;
};
static_assert(sizeof(bmc_event) == 20, "other firmware processes read this record");

// Active objects of the firmware that this library talks to.
enum controller_types : int {
    thermal_controller = 2,
    power_capping_controller = 4,
    storage_controller = 5,
};

// Sensor and capping code runs on one active object: one event at a time, to completion.
class PLATFORM_API QActive {
public:
    virtual ~QActive();
};

class PLATFORM_API controller : public QActive {
public:
    // Subscribes `device` to `signal`: its dispatch_event() gets each event of that signal. False if refused.
    virtual bool register_bmc_event(bmc_signal signal, logical_device* device, bool enable) = 0;

    // Reserves a timer signal near `base` and returns its number, the one that a QTimeEvt made with it delivers.
    virtual int reserve_timer_signal(int base, int, int, int) = 0;

    // The device that stands for this controller in the device tree; null where it has none.
    virtual logical_device* device() = 0;
};

// One-shot timer in platform ticks (10 ms on the host). Expiry delivers `sig` to the active object it was armed for.
struct PLATFORM_API QTimeEvt : QEvent {
    explicit QTimeEvt(std::uint16_t signal);
    ~QTimeEvt();
    QTimeEvt(const QTimeEvt&) = delete;
    QTimeEvt& operator=(const QTimeEvt&) = delete;

    // `ticks` from now, at least one. Arming an armed timer is a fault of the caller: disarm first.
    void arm_(QActive* receiver, unsigned ticks);
    // Harmless on a timer that is not armed.
    void disarm();

    unsigned interval = 0;  // ticks between repeats; 0 for one shot
};

// Allocation and broadcast of events. The platform takes an event back once it is published or posted, and only
// takes events that came from new_().
struct PLATFORM_API QF {
    // Storage for an event of `size` bytes with `sig` set and the rest zero; null if none is left.
    static QEvent* new_(unsigned size, QSignal signal);
    // To every device that subscribed to the event's signal. `sender` is a text for traces.
    static void publish_(QEvent* event, const char* sender);
    // For a failure after which going on is worse than a restart; ends the process.
    [[noreturn]] static void fatal_(const char* what);
};

class state_table;

struct PLATFORM_API EM {
    // Announces a state machine's table for introspection, until the table is destroyed.
    static void register_state_table(state_table* table);
    // A number, never 0, for a name that travels in data_word of signal 87. The same name gives the same number.
    static int register_overloaded_signal(const char* name);
    // To one controller's queue, behind what waits there. Returns at once; nobody answers.
    static void postFIFO(controller_types receiver, QEvent* event);
};
