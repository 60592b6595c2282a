#pragma once

#include <unordered_map>
#include <vector>

#include "platform/events.hpp"

namespace thermal_host {

// The active object on which sensor and capping code runs. Gives each event to the devices that subscribed to it.
class thermal_active : public controller {
public:
    bool register_bmc_event(bmc_signal signal, logical_device* device, bool enable) override;
    // `base`, or the next number that is not reserved yet.
    int reserve_timer_signal(int base, int, int, int) override;
    logical_device* device() override { return _device; }

    void set_device(logical_device* device) { _device = device; }
    void deliver(const QEvent& event);
    // Ends all subscriptions of a device, also from inside deliver().
    void forget(logical_device* device);

private:
    // The subscribers of a signal; null for one that went, so that positions stand while an event is delivered.
    std::unordered_map<bmc_signal, std::vector<logical_device*>> _subscribers;
    std::vector<int> _timer_signals;
    logical_device* _device = nullptr;
};

}  // namespace thermal_host
