#include "platform/host/thermal_active.hpp"

#include <algorithm>

#include "platform/devices.hpp"

namespace thermal_host {

bool thermal_active::register_bmc_event(bmc_signal signal, logical_device* device, bool enable) {
    if (device == nullptr) {
        return false;
    }
    std::vector<logical_device*>& devices = _subscribers[signal];
    const auto present = std::find(devices.begin(), devices.end(), device);
    if (!enable) {
        std::replace(devices.begin(), devices.end(), device, static_cast<logical_device*>(nullptr));
    } else if (present == devices.end()) {
        devices.push_back(device);
    }
    return true;
}

int thermal_active::reserve_timer_signal(int base, int, int, int) {
    int number = base;
    while (std::find(_timer_signals.begin(), _timer_signals.end(), number) != _timer_signals.end()) {
        ++number;
    }
    _timer_signals.push_back(number);
    return number;
}

void thermal_active::deliver(const QEvent& event) {
    const auto subscribed = _subscribers.find(event.sig);
    if (subscribed == _subscribers.end()) {
        return;
    }
    // By index: a device may subscribe, and so grow the list, while it handles the event.
    const std::vector<logical_device*>& devices = subscribed->second;
    // NOLINTNEXTLINE(modernize-loop-convert)
    for (std::size_t i = 0; i < devices.size(); ++i) {
        if (logical_device* device = devices[i]) {
            device->dispatch_event(&event);
        }
    }
}

void thermal_active::forget(logical_device* device) {
    for (auto& [signal, devices] : _subscribers) {
        std::replace(devices.begin(), devices.end(), device, static_cast<logical_device*>(nullptr));
    }
    if (_device == device) {
        _device = nullptr;
    }
}

}  // namespace thermal_host
