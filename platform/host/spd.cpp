#include "platform/host/spd.hpp"

dimm_spd_logical_device::~dimm_spd_logical_device() = default;

thermal_host::memory_module thermal_host::spd_device::find(unsigned index) const {
    const auto found = modules.find(index);
    return found != modules.end() ? found->second : memory_module{};
}
