#pragma once

#include <atomic>
#include <cstddef>
#include <functional>
#include <mutex>
#include <vector>

#include <poll.h>

#include "platform/events.hpp"
#include "platform/host/bounded_record.hpp"
#include "platform/host/clock.hpp"
#include "platform/host/event_pool.hpp"
#include "platform/host/thermal_active.hpp"

namespace thermal_host {

// A published or posted event as it left its sender.
struct recorded_event {
    static constexpr int published = 0;

    nanoseconds time;
    int receiver;     // `published`, or the controller it was posted to
    bmc_event event;  // a shorter event reads as 0 behind its end
    char sender[32];  // cut to fit
};

// One thread, one queue, run to completion. Unless an operation says otherwise it belongs to the thread that runs the
// loop. Times count from the construction of the host. Nothing allocates once timers and calls are set up.
class event_loop {
public:
    using task = std::function<void()>;
    using event_handler = std::function<void(const QEvent&)>;

    // `pool` events can exist at a time, `queue` of them can wait.
    event_loop(host_clock& clock, nanoseconds tick, std::size_t pool, std::size_t queue);
    ~event_loop();
    event_loop(const event_loop&) = delete;
    event_loop& operator=(const event_loop&) = delete;

    nanoseconds now() const { return _clock.now(); }

    // Run until stop(); a loop in virtual time also ends when nothing is left to wait for.
    void run() { run_until(never); }
    // Do everything due up to and including that time. False if stop() ended it earlier.
    bool run_until(nanoseconds time);
    bool run_for(nanoseconds duration) { return run_until(now() + duration); }
    // Do what is ready now, without waiting.
    void run_pending() { run_until(now()); }
    // Do what is ready, then go on to the next timer or call and do what is due there. False if there is none.
    bool step();

    // From any thread: runs `work` on the loop's thread, between events.
    void post(task work);
    // From any thread or signal handler: ends the present run, or the next one if none is under way.
    void stop() noexcept;

    // Runs `work` once at `time`, or every `period` from now on. Work that is due at the same time as a timer runs in
    // the order in which the two were set up. Returns an identity for cancel().
    unsigned at(nanoseconds time, task work);
    unsigned call_every(nanoseconds period, task work);
    void cancel(unsigned identity);

    // Runs `work` whenever `descriptor` can be read, as long as nothing else is ready. Real time only: a loop in virtual
    // time does not wait for the world outside, and never looks at a descriptor. Each has one work; it stays the
    // caller's, who unwatches it before it is closed.
    void watch(int descriptor, task work);
    void unwatch(int descriptor);

    // Sends a copy of `event`, as the firmware's other parts would. False if it had to be dropped.
    bool publish(const bmc_event& event, const char* sender);
    // Who gets events posted to a controller other than the thermal one; without a handler they are dropped.
    void set_handler(controller_types receiver, event_handler handler);
    thermal_active& thermal() { return _thermal; }

    // Keeps the last `capacity` published and posted events; off by default.
    bounded_record<recorded_event>& recorded_events() { return _recorded; }
    // Events lost to a full queue.
    unsigned overflows() const { return _overflows; }
    std::size_t free_events() const { return _pool.available(); }

    // What the platform's declarations come down to.
    QEvent* new_event(std::size_t size, QSignal signal) { return _pool.take(size, signal); }
    // Takes `event` from the sender. False if it had to be dropped.
    bool send(int receiver, QEvent* event, const char* sender);
    void arm(QTimeEvt& timer, const QActive* receiver, unsigned ticks);
    void disarm(const QTimeEvt& timer);

private:
    struct queued_event {
        QEvent* event;
        int receiver;
    };
    struct scheduled {
        nanoseconds due{0};
        std::uint64_t order = 0;
        nanoseconds period{0};      // zero for once
        QTimeEvt* timer = nullptr;  // otherwise the call of that identity runs
        unsigned identity = 0;
    };
    struct call {
        unsigned identity;
        task work;
    };
    struct watched {
        int descriptor;
        task work;
    };
    struct other_controller {
        int receiver;
        event_handler handler;
    };

    // Does one thing that is ready; false if nothing was.
    bool work_once();
    void run_posted();
    void dispatch_next();
    void fire(std::size_t index);
    void run_call(scheduled entry);
    task& work_of(unsigned identity);
    void forget_call(unsigned identity);
    void wait_until(nanoseconds time);
    void run_watched(int descriptor);
    void record(int receiver, const QEvent& event, const char* sender);
    unsigned schedule(nanoseconds due, nanoseconds period, task work);
    void unschedule(std::size_t index);
    std::size_t earliest() const;  // number of entries if there is none
    nanoseconds next_due() const;
    nanoseconds next_on_grid(nanoseconds due, nanoseconds period) const;

    host_clock& _clock;
    nanoseconds _tick;
    event_pool _pool;
    thermal_active _thermal;
    std::vector<other_controller> _others;

    std::vector<queued_event> _queue;  // a ring
    std::size_t _queue_head = 0;
    std::size_t _queue_count = 0;
    unsigned _overflows = 0;

    std::vector<scheduled> _schedule;
    std::vector<call> _calls;
    std::uint64_t _next_order = 0;
    unsigned _last_identity = 0;
    std::vector<watched> _watched;
    std::vector<pollfd> _polled;     // the wake-up, then what is watched
    unsigned _running_identity = 0;  // of the call under way; 0 once it is cancelled
    bool _running = false;

    std::mutex _posted_mutex;
    std::vector<task> _posted;
    std::vector<task> _posted_now;
    std::atomic<bool> _has_posted{false};
    std::atomic<bool> _stop{false};
    int _wake;  // eventfd

    bounded_record<recorded_event> _recorded;
};

}  // namespace thermal_host
