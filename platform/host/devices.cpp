#include "platform/devices.hpp"

#include "platform/host/host.hpp"
#include "platform/log.hpp"
#include "platform/state_machine.hpp"

using thermal_host::platform;

// This host keeps no device tree: parent, type and record have nobody to go to.
logical_device::logical_device(logical_device*, const char* name, const char*, bool)
    : _device_name(name != nullptr ? name : "") {}

logical_device::~logical_device() {
    if (platform* host = platform::current()) {
        host->loop.thermal().forget(this);
    }
}

void logical_device::ldd_report() { LOG::log(thermal_host::host_log_source, 2, "device %s\n", _device_name.c_str()); }

void logical_device::dispatch_event(const QEvent* event) {
    if (_fsm_object != nullptr && event != nullptr) {
        _fsm_object->dispatch(event);
    }
}

int logical_device::initialize(controller*) { return 1; }

int logical_device::dispatch_command(bmc_message_buffer&) { return 0; }

controller* DM::get_controller(int type) {
    platform* host = platform::current();
    return host != nullptr && type == thermal_controller ? &host->loop.thermal() : nullptr;
}

bmc_property* DM::get_property(const char* path) {
    platform* host = platform::current();
    return host != nullptr && path != nullptr ? host->properties.find(path) : nullptr;
}

bmc_property* DM::get_property(const std::string& path) { return get_property(path.c_str()); }

void DM::del_property(const std::string& path) {
    if (platform* host = platform::current()) {
        host->properties.remove(path);
    }
}

logical_device* DM::find_logical_device_instance(const std::string& path) {
    const platform* host = platform::current();
    if (host == nullptr) {
        return nullptr;
    }
    const auto found = host->device_paths.find(path);
    return found != host->device_paths.end() ? found->second : nullptr;
}

logical_device* DM::find_logical_device(std::uint8_t entity, std::uint8_t instance) {
    const platform* host = platform::current();
    return host != nullptr ? host->devices.find(entity, instance) : nullptr;
}
