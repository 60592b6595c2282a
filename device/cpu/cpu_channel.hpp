#pragma once

#include "device/common_thermal_device.hpp"
#include "platform/host_cpu.hpp"

// The gate to a processor: 1.0 while it is there, not disabled, and the host far enough to be asked. Finds the
// processor's agent, and tells the firmware when the processor comes and goes.
class THERMAL_API common_thermal_device_cpu_channel : public common_thermal_device {
public:
    explicit common_thermal_device_cpu_channel(int instance);

    // Null until the first poll with an agent.
    host_cpu_interface* get_host_cpu_channel() const { return _host_cpu_channel; }
    std::uint8_t get_host_cpu_address() const { return _host_cpu_address; }
    // Asks the data path stage anew, so that it falls before the published value does. False without a device to ask.
    bool is_actived() const;

    // Publishes each change once; the first call counts as one.
    void send_CPU_presence_signal(bool present);

    void poll(common_thermal_dao* dao, unsigned long now) override;
    std::string debug() override { return _values.debug_text(); }

private:
    void find_agent();
    bool check_processor();

    published_values _values;
    host_cpu_interface* _host_cpu_channel = nullptr;
    std::uint8_t _host_cpu_address = 0;
    bool _present_signal_armed = true;
    bool _absent_signal_armed = true;
};
