#pragma once

#include "device/common_thermal_device.hpp"
#include "platform/host_cpu.hpp"

// What a processor is. Each value is read until it once succeeds, and again when the processor comes back after a time
// in which it could not be asked; until then it keeps what it was. The cores are read once for good. The count of bus
// failures is the interface's while the processor can be asked, otherwise 0.0.
class THERMAL_API common_thermal_device_cpu_info : public common_thermal_device {
public:
    // Binds the port that hands the TDP on, "CPU" + instance + "_TDP".
    explicit common_thermal_device_cpu_info(int instance);

    std::uint32_t get_family() const;  // 255 while unknown
    std::uint32_t get_type() const;    // 255 while unknown
    std::uint8_t get_power_unit() const;
    std::uint8_t get_energy_unit() const;
    float get_tjmax() const;      // degrees Celsius
    float get_tdp_power() const;  // W, 0.0 while unknown
    float get_core_num() const;

    // Hands the TDP in W to the port and to the firmware; 0 is none and goes nowhere.
    void send_CPU_tdp_ready_signal(unsigned short watts);

    void poll(common_thermal_dao* dao, unsigned long now) override;
    std::string debug() override { return _values.debug_text(); }

private:
    struct needs {
        bool family = true;
        bool type = true;
        bool units = true;
        bool tjmax = true;
        bool tdp = true;
        bool cores = true;
    };

    void read_identity(host_cpu_interface& processor, std::uint8_t address);
    void read_limits(host_cpu_interface& processor, std::uint8_t address);

    published_values _values;
    needs _need;
    device_port _tdp_port;
};
