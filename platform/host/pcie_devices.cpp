#include "platform/host/pcie_devices.hpp"

#include "platform/host/host.hpp"

namespace thermal_host {

bool managed_adapter::set_polling_interval(std::uint32_t seconds) {
    const bool taken = begin_write();
    if (taken) {
        _polling_interval = seconds;
    }
    return taken;
}

bool managed_adapter::answer(device_temperature_margin& out) {
    const bool answered = begin_read();
    if (answered) {
        out = latest;
    }
    return answered;
}

managed_adapter* pcie_devices::find(std::uint32_t key) {
    const auto found = _adapters.find(key);
    return found != _adapters.end() ? &found->second : nullptr;
}

}  // namespace thermal_host

namespace {

thermal_host::managed_adapter* adapter_of(std::uint32_t key) {
    auto* host = thermal_host::platform::current();
    return host != nullptr ? host->pcie.find(key) : nullptr;
}

}  // namespace

std::uint32_t pcie_device_manager::polling_mode = 0;

int pcie_device_manager::set_polling_interval(std::uint32_t key, std::uint32_t seconds) {
    auto* adapter = adapter_of(key);
    return adapter != nullptr && adapter->set_polling_interval(seconds) ? 1 : 0;
}

std::uint32_t pcie_device_manager::get_polling_interval(std::uint32_t key) {
    const auto* adapter = adapter_of(key);
    return adapter != nullptr ? adapter->polling_interval() : 0;
}

int pcie_device_manager::get_device_temperature_margin(std::uint32_t key, device_temperature_margin& out) {
    auto* adapter = adapter_of(key);
    return adapter != nullptr && adapter->answer(out) ? 1 : 0;
}
