#pragma once

#include <cstdint>
#include <map>

#include "platform/host/ports.hpp"
#include "platform/pcie_device_manager.hpp"

namespace thermal_host {

// One adapter as the manager remembers it: refuses queries (a read) and intervals (a write) as a script says.
class managed_adapter : public port_line {
public:
    // The adapter's side. It goes quiet by nobody moving the time stamp on.
    device_temperature_margin latest{255, 0, 0};

    std::uint32_t polling_interval() const { return _polling_interval; }
    bool set_polling_interval(std::uint32_t seconds);
    bool answer(device_temperature_margin& out);

private:
    std::uint32_t _polling_interval = 0;
};

// The adapters that speak PLDM, which come and go while the machine runs. Loop thread only. A reference to an adapter
// is good until it is pulled. The polling mode is process-wide: a new host starts with 0.
class pcie_devices {
public:
    pcie_devices() { pcie_device_manager::polling_mode = 0; }

    // The one that is there, if any.
    managed_adapter& plug(std::uint32_t key) { return _adapters[key]; }
    void pull(std::uint32_t key) { _adapters.erase(key); }
    // Null for an adapter that is not there.
    managed_adapter* find(std::uint32_t key);

private:
    std::map<std::uint32_t, managed_adapter> _adapters;
};

}  // namespace thermal_host
