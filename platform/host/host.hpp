#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "platform/host/clock.hpp"
#include "platform/host/device_directory.hpp"
#include "platform/host/drives.hpp"
#include "platform/host/event_loop.hpp"
#include "platform/host/ipmi.hpp"
#include "platform/host/log.hpp"
#include "platform/host/pcie_devices.hpp"
#include "platform/host/ports.hpp"
#include "platform/host/processors.hpp"
#include "platform/host/properties.hpp"
#include "platform/host/sensors.hpp"
#include "platform/host/services.hpp"
#include "platform/host/spd.hpp"
#include "platform/state_machine.hpp"

namespace thermal_host {

constexpr std::chrono::milliseconds default_tick{10};

// Source number of the host's own log lines.
constexpr int host_log_source = 1;

struct host_options {
    bool virtual_time = false;
    std::int64_t virtual_wall_start = 1'767'225'600'000'000'000;  // start of 2026
    nanoseconds tick = default_tick;
    std::size_t event_pool = 256;
    std::size_t event_queue = 256;
};

// State machines and names that the firmware only keeps a list of.
struct introspection {
    std::vector<const state_table*> state_tables;
    std::vector<std::string> overloaded_signals;  // signal n stands at n - 1
    unsigned state_machines = 0;
    bool refuse_state_machines = false;

    std::vector<std::string> state_table_names() const;
    // The same number for the same name, counted from 1.
    int number_of(std::string_view overloaded_signal);
};

// The Linux implementation of platform/, complete in one object. The free functions of platform/ go to the host that
// was constructed last; once that is gone they do nothing and report failure. Members belong to the loop's thread.
class platform {
public:
    explicit platform(const host_options& options = {});
    ~platform();
    platform(const platform&) = delete;
    platform& operator=(const platform&) = delete;

    // Reads the properties from `file`, and from then on writes changed ones to it every `flush_period` and at the end.
    // Without this call properties live in memory only.
    void open_properties(const std::string& file, nanoseconds flush_period = std::chrono::seconds(5));

    // Null without a host.
    static platform* current() { return _current; }

    log_writer log;
    host_clock clock;
    port_registry ports;
    property_store properties;
    event_loop loop;
    ipmi_dispatcher ipmi;
    sensor_list sensors{ports};
    settings_service settings;
    inventory_service inventory;
    enclosure_service enclosure;
    software_event_service software_events;
    nvme_service nvme;
    drive_cage drives{properties};
    pcie_devices pcie;
    device_directory devices;
    processor_list processors;
    introspection machines;
    spd_device spd;
    // Devices that the firmware finds by their place in its tree; not owned.
    std::map<std::string, logical_device*> device_paths{{dimm_spd_logical_device::path, &spd}};
    std::map<unsigned, std::string> pin_names;
    // Called by QF::fatal_ ahead of the abort; a test may throw from it.
    std::function<void(const char*)> on_fatal;

private:
    inline static platform* _current = nullptr;
};

}  // namespace thermal_host
