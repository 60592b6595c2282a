#pragma once

#include <array>

#include "device/common_thermal_device.hpp"

// What an agent of an accelerator baseboard can be asked for. The second set has other meanings under the same numbers.
namespace rf_reading {
enum type : std::uint32_t { none = 0, first = 1, second = 2, memory = 3, retimer = 4, power = 5 };
constexpr type amd_die{1};
constexpr type amd_memory{2};
constexpr type amd_retimer{3};
constexpr type amd_consolidated{4};
constexpr type amd_power{5};
constexpr std::uint32_t count = 5;
}  // namespace rf_reading

// One module of an accelerator baseboard, as another firmware process shows it: a named integer port for each sensor.
// It has no bus and no token, and publishes nothing.
class THERMAL_API rf_agent : public common_thermal_device {
public:
    using status_t = common_thermal_utils::nv_cmd_status_t;
    using reading_type = rf_reading::type;
    struct row;

    std::uint32_t get_num() const { return _num; }

    // cmd_complete with the raw value of the sensor, or cmd_failed, which leaves `value` alone: no such sensor, nobody
    // serves it, it fails, or it has no reading. `name` and `instance` tell the log whose request it is.
    status_t read_data(reading_type type, std::uint32_t* value, std::string_view name, unsigned instance);

    // Of an agent, or of a device that asks it: some log lines tell the instance too.
    static std::string shown_name(const common_thermal_device& device, bool with_instance);

    void poll(common_thermal_dao*, unsigned long) override {}
    std::string debug() override { return {}; }

protected:
    rf_agent(const row& kind, int instance);

    // Binds every sensor of the module with this number, also of number 0.
    void bind_sensors(unsigned num);

    std::uint32_t _num = 1;

private:
    void log_unbound(std::size_t place, std::string_view name, unsigned instance) const;

    const row& _row;
    std::array<device_port, rf_reading::count> _ports;
};

class THERMAL_API common_thermal_device_pci_agent_nvidia_rf : public rf_agent {
public:
    explicit common_thermal_device_pci_agent_nvidia_rf(int instance);

    // The bus to the slot. Only its key is used, by the next set_num().
    void set_port_input(unsigned port) { _port.bind(port); }
    void set_port_input(const std::string& key) { _port.bind(key); }
    // Number of the module on its baseboard. Tells the rest of the firmware which bus leads to the slot; for both, 0
    // counts as 1, but not in the names of the sensors.
    void set_num(unsigned slot, unsigned num);

private:
    device_port _port;
};

#define THERMAL_RF_AGENT(name)                 \
    class THERMAL_API name : public rf_agent { \
    public:                                    \
        explicit name(int instance);           \
        void set_num(unsigned num);            \
    }

// One consolidated temperature serves all modules.
THERMAL_RF_AGENT(common_thermal_device_pci_agent_amd_rf);
// Has no reading for memory and power, though their ports are bound.
THERMAL_RF_AGENT(common_thermal_device_pci_agent_intel_gaudi3);

#undef THERMAL_RF_AGENT
