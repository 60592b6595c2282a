#include "platform/host/event_loop.hpp"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <system_error>
#include <utility>

#include <sys/eventfd.h>
#include <unistd.h>

#include "platform/host/host.hpp"
#include "platform/log.hpp"

namespace thermal_host {

namespace {

constexpr std::size_t usual_timers = 32;
constexpr std::size_t usual_posts = 32;

// Runs `end` when the block is left, also by an exception.
template <class End>
class at_exit {
public:
    explicit at_exit(End end) : _end(std::move(end)) {}
    ~at_exit() { _end(); }
    at_exit(const at_exit&) = delete;
    at_exit& operator=(const at_exit&) = delete;

private:
    End _end;
};

}  // namespace

event_loop::event_loop(host_clock& clock, nanoseconds tick, std::size_t pool, std::size_t queue)
    : _clock(clock),
      _tick(std::max(tick, nanoseconds(1))),
      _pool(pool),
      _queue(std::max<std::size_t>(queue, 1)),
      _wake(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (_wake < 0) {
        throw std::system_error(errno, std::generic_category(), "eventfd");
    }
    _schedule.reserve(usual_timers);
    _calls.reserve(usual_timers);
    _posted.reserve(usual_posts);
    _posted_now.reserve(usual_posts);
}

event_loop::~event_loop() { ::close(_wake); }

bool event_loop::run_until(nanoseconds time) {
    if (_running) {
        LOG::err(host_log_source, "event loop: run from inside a handler refused\n");
        return false;
    }
    _running = true;
    const at_exit end([this] { _running = false; });
    while (!_stop.exchange(false)) {
        if (work_once()) {
            continue;
        }
        if (_clock.now() >= time) {
            return true;
        }
        const nanoseconds next = std::min(next_due(), time);
        if (next == never && _clock.is_virtual()) {
            return false;
        }
        wait_until(next);
    }
    return false;
}

bool event_loop::step() {
    run_pending();
    const nanoseconds next = next_due();
    return next != never && run_until(next);
}

bool event_loop::work_once() {
    if (_has_posted.exchange(false)) {
        run_posted();
        return true;
    }
    if (_queue_count != 0) {
        dispatch_next();
        return true;
    }
    const std::size_t index = earliest();
    if (index < _schedule.size() && _schedule[index].due <= _clock.now()) {
        fire(index);
        return true;
    }
    return false;
}

void event_loop::wait_until(nanoseconds time) {
    if (_clock.is_virtual()) {
        _clock.advance_to(time);
        return;
    }
    const nanoseconds wait = std::max(time - _clock.now(), nanoseconds(0));
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(wait);
    const timespec timeout{static_cast<time_t>(seconds.count()), static_cast<long>((wait - seconds).count())};
    _polled.assign(1, {_wake, POLLIN, 0});
    for (const watched& each : _watched) {
        _polled.push_back({each.descriptor, POLLIN, 0});
    }
    if (::ppoll(_polled.data(), _polled.size(), time == never ? nullptr : &timeout, nullptr) <= 0) {
        return;
    }
    if (_polled.front().revents != 0) {
        eventfd_t count = 0;
        ::eventfd_read(_wake, &count);
    }
    for (std::size_t i = 1; i < _polled.size(); ++i) {
        if (_polled[i].revents != 0) {
            run_watched(_polled[i].fd);
        }
    }
}

void event_loop::watch(int descriptor, task work) {
    unwatch(descriptor);
    _watched.push_back({descriptor, std::move(work)});
}

void event_loop::unwatch(int descriptor) {
    std::erase_if(_watched, [=](const watched& each) { return each.descriptor == descriptor; });
}

void event_loop::run_watched(int descriptor) {
    const auto found = std::ranges::find(_watched, descriptor, &watched::descriptor);
    if (found != _watched.end()) {
        // A copy: the work may end its own watch.
        const task work = found->work;
        work();
    }
}

void event_loop::post(task work) {
    {
        const std::lock_guard lock(_posted_mutex);
        _posted.push_back(std::move(work));
    }
    _has_posted.store(true);
    ::eventfd_write(_wake, 1);
}

void event_loop::stop() noexcept {
    static_assert(std::atomic<bool>::is_always_lock_free, "stop() is called from signal handlers");
    const int interrupted_errno = errno;
    _stop.store(true);
    ::eventfd_write(_wake, 1);
    errno = interrupted_errno;
}

void event_loop::run_posted() {
    {
        const std::lock_guard lock(_posted_mutex);
        _posted_now.swap(_posted);
    }
    const at_exit end([this] { _posted_now.clear(); });
    for (task& work : _posted_now) {
        work();
    }
}

// Timers and calls

unsigned event_loop::at(nanoseconds time, task work) { return schedule(time, nanoseconds(0), std::move(work)); }

unsigned event_loop::call_every(nanoseconds period, task work) {
    period = std::max(period, nanoseconds(1));
    return schedule(now() + period, period, std::move(work));
}

unsigned event_loop::schedule(nanoseconds due, nanoseconds period, task work) {
    _calls.push_back({++_last_identity, std::move(work)});
    _schedule.push_back({due, _next_order++, period, nullptr, _last_identity});
    return _last_identity;
}

void event_loop::cancel(unsigned identity) {
    if (identity == _running_identity) {
        _running_identity = 0;
        return;
    }
    for (std::size_t i = 0; i < _schedule.size(); ++i) {
        if (_schedule[i].timer == nullptr && _schedule[i].identity == identity) {
            unschedule(i);
            forget_call(identity);
            return;
        }
    }
}

event_loop::task& event_loop::work_of(unsigned identity) {
    return std::find_if(_calls.begin(), _calls.end(), [=](const call& each) { return each.identity == identity; })
        ->work;
}

void event_loop::forget_call(unsigned identity) {
    std::erase_if(_calls, [=](const call& each) { return each.identity == identity; });
}

void event_loop::arm(QTimeEvt& timer, const QActive* receiver, unsigned ticks) {
    if (receiver != &_thermal) {
        LOG::err(host_log_source, "timer %u: armed for an active object that this host does not run\n", timer.sig);
        return;
    }
    const auto armed = [&timer](const scheduled& entry) { return entry.timer == &timer; };
    if (std::any_of(_schedule.begin(), _schedule.end(), armed)) {
        LOG::err(host_log_source, "timer %u: armed twice\n", timer.sig);
        disarm(timer);
    }
    _schedule.push_back({now() + std::max(ticks, 1u) * _tick, _next_order++, timer.interval * _tick, &timer, 0});
}

void event_loop::disarm(const QTimeEvt& timer) {
    for (std::size_t i = 0; i < _schedule.size(); ++i) {
        if (_schedule[i].timer == &timer) {
            unschedule(i);
            return;
        }
    }
}

void event_loop::unschedule(std::size_t index) {
    _schedule[index] = _schedule.back();
    _schedule.pop_back();
}

std::size_t event_loop::earliest() const {
    std::size_t first = 0;
    for (std::size_t i = 1; i < _schedule.size(); ++i) {
        const scheduled& entry = _schedule[i];
        const scheduled& best = _schedule[first];
        if (entry.due < best.due || (entry.due == best.due && entry.order < best.order)) {
            first = i;
        }
    }
    return first;
}

nanoseconds event_loop::next_due() const {
    const std::size_t index = earliest();
    return index < _schedule.size() ? _schedule[index].due : never;
}

// The first instant of the grid that is still to come: a loop that fell behind leaves out what it missed.
nanoseconds event_loop::next_on_grid(nanoseconds due, nanoseconds period) const {
    const nanoseconds late = std::max(now() - due, nanoseconds(0));
    return due + (late / period + 1) * period;
}

void event_loop::fire(std::size_t index) {
    scheduled entry = _schedule[index];
    unschedule(index);
    if (entry.timer == nullptr) {
        run_call(entry);
        return;
    }
    // A copy, and re-armed ahead of the delivery: the receiver may disarm or destroy its timer.
    const QEvent expiry{entry.timer->sig, entry.timer->header};
    if (entry.period > nanoseconds(0)) {
        entry.due = next_on_grid(entry.due, entry.period);
        _schedule.push_back(entry);
    }
    _thermal.deliver(expiry);
}

// The work is taken out while it runs: it may set up and cancel calls, its own among them.
void event_loop::run_call(scheduled entry) {
    task work = std::move(work_of(entry.identity));
    _running_identity = entry.identity;
    work();
    const bool again = _running_identity != 0 && entry.period > nanoseconds(0);
    _running_identity = 0;
    if (!again) {
        forget_call(entry.identity);
        return;
    }
    work_of(entry.identity) = std::move(work);
    entry.due = next_on_grid(entry.due, entry.period);
    _schedule.push_back(entry);
}

// Events

bool event_loop::publish(const bmc_event& event, const char* sender) {
    QEvent* copy = new_event(sizeof(bmc_event), event.sig);
    if (copy == nullptr) {
        ++_overflows;
        return false;
    }
    std::memcpy(static_cast<void*>(copy), &event, sizeof(event));
    return send(recorded_event::published, copy, sender);
}

void event_loop::set_handler(controller_types receiver, event_handler handler) {
    for (other_controller& other : _others) {
        if (other.receiver == receiver) {
            other.handler = std::move(handler);
            return;
        }
    }
    _others.push_back({receiver, std::move(handler)});
}

bool event_loop::send(int receiver, QEvent* event, const char* sender) {
    if (!_pool.is_taken(event)) {
        LOG::err(host_log_source, "event from %s refused: not one of the pool\n", sender != nullptr ? sender : "?");
        return false;
    }
    record(receiver, *event, sender);
    if (_queue_count == _queue.size()) {
        ++_overflows;
        LOG::err(host_log_source, "event %u dropped: the queue is full\n", event->sig);
        _pool.give_back(event);
        return false;
    }
    _queue[(_queue_head + _queue_count) % _queue.size()] = {event, receiver};
    ++_queue_count;
    return true;
}

void event_loop::record(int receiver, const QEvent& event, const char* sender) {
    if (!_recorded.is_recording()) {
        return;
    }
    recorded_event entry{now(), receiver, {}, {}};
    // Pool blocks are larger than any record, and zero behind what the sender asked for.
    std::memcpy(static_cast<void*>(&entry.event), &event, sizeof(entry.event));
    std::snprintf(entry.sender, sizeof(entry.sender), "%s", sender != nullptr ? sender : "");
    _recorded.add(entry);
}

void event_loop::dispatch_next() {
    const queued_event next = _queue[_queue_head];
    _queue_head = (_queue_head + 1) % _queue.size();
    --_queue_count;
    const at_exit end([this, &next] { _pool.give_back(next.event); });
    if (next.receiver == recorded_event::published || next.receiver == thermal_controller) {
        _thermal.deliver(*next.event);
        return;
    }
    for (const other_controller& other : _others) {
        if (other.receiver == next.receiver && other.handler) {
            other.handler(*next.event);
            return;
        }
    }
}

}  // namespace thermal_host
