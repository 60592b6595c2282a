#include "device/pci/rf_agents.hpp"

#include "device/pci/slot_bus_file.hpp"
#include "foundation/log_masks.hpp"
#include "foundation/seq_str.hpp"

using utils = common_thermal_utils;

namespace {

// Both sides of the number of the module; without a suffix the sensor belongs to all modules.
struct sensor_name {
    const char* prefix = nullptr;
    const char* suffix = nullptr;
};

struct rf_sensor {
    const char* port_name = nullptr;
    sensor_name name{};
    const char* unbound_name = nullptr;
    bool refused = false;
    bool logs_instance = false;
};

constexpr std::uint32_t no_reading = 0xFFFFFFFF;

}  // namespace

struct rf_agent::row {
    const char* class_name = nullptr;
    tdev_type_t type{};
    std::array<rf_sensor, rf_reading::count> sensors{};  // by reading, from 1 on
};

namespace {

constexpr rf_agent::row pci_agent_nvidia_rf{
    "common_thermal_device_pci_agent_nvidia_rf",
    utils::tdev_pci_agent_nvidia_rf,
    {{{"PCI_AGENT_NVIDIA_RF_TEMP_FST", {"HGX_GPU_SXM_", "_TEMP_0"}, "CIO_TEMP_FIRST"},
      {"PCI_AGENT_NVIDIA_RF_TEMP_SEC", {"HGX_GPU_SXM_", "_TEMP_1"}, "CIO_TEMP_SECOND"},
      {"PCI_AGENT_NVIDIA_RF_TEMP_MEM", {"HGX_GPU_SXM_", "_DRAM_0_TEMP_0"}, "CIO_TEMP_MEMORY"},
      {"PCI_AGENT_NVIDIA_RF_TEMP_RET", {"HGX_PCIE_RETIMER_", "_TEMP_0"}, "CIO_TEMP_RETIMER"},
      {"PCI_AGENT_NVIDIA_RF_POWER", {"HGX_GPU_SXM_", "_POWER_0"}, "CIO_POWER"}}}};
constexpr rf_agent::row pci_agent_amd_rf{
    "common_thermal_device_pci_agent_amd_rf",
    utils::tdev_pci_agent_amd_rf,
    {{{"PCI_AGENT_AMD_RF_TEMP", {"GPU_", "_DIE_TEMP"}, "CIO_TEMP", false, true},
      {"PCI_AGENT_AMD_RF_TEMP_MEM", {"GPU_", "_MEMORY_TEMP"}, "CIO_TEMP_MEMORY"},
      {"PCI_AGENT_AMD_RF_TEMP_RET", {"GPU_RETIMER_", "_TEMP"}, "CIO_TEMP_RETIMER"},
      {"PCI_AGENT_AMD_RF_TEMP_CON", {"GPU_TCONTROL_CONSOLIDATED_TEMP"}, "CIO_TEMP_RETIMER"},
      {"PCI_AGENT_AMD_RF_POWER", {"GPU_", "_POWER"}, "CIO_POWER"}}}};
constexpr rf_agent::row pci_agent_intel_gaudi3{
    "common_thermal_device_pci_agent_intel_gaudi3",
    utils::tdev_pci_agent_intel_gaudi3,
    {{{"PCI_AGENT_INTEL_GAUDI3_TEMP_FST", {"GPU_", "_DIE_TEMP"}, "CIO_TEMP_FIRST"},
      {"PCI_AGENT_INTEL_GAUDI3_TEMP_SEC", {"GPU_OAM_", "_MIN_TEMP_MARGIN"}, "CIO_TEMP_SECOND"},
      {"PCI_AGENT_INTEL_GAUDI3_TEMP_MEM", {"GPU_OAM", "_DRAM_MAX_TEMP"}, "CIO_TEMP_MEMORY", true},
      {"PCI_AGENT_INTEL_GAUDI3_TEMP_RET", {"GPU_RETIMER_", "_TEMP"}, "CIO_TEMP_RETIMER"},
      {"PCI_AGENT_INTEL_GAUDI3_POWER", {"GPU_OAM", "_POWER"}, "CIO_POWER", true}}}};

}  // namespace

rf_agent::rf_agent(const row& kind, int instance)
    : common_thermal_device(kind.class_name, kind.class_name, instance, kind.type),
      _row(kind),
      _ports{device_port(*this, device_port::kind::integer, kind.sensors[0].port_name),
             device_port(*this, device_port::kind::integer, kind.sensors[1].port_name),
             device_port(*this, device_port::kind::integer, kind.sensors[2].port_name),
             device_port(*this, device_port::kind::integer, kind.sensors[3].port_name),
             device_port(*this, device_port::kind::integer, kind.sensors[4].port_name)} {}

std::string rf_agent::shown_name(const common_thermal_device& device, bool with_instance) {
    return with_instance ? device.get_name() + "." + std::to_string(device.get_instance()) : device.get_name();
}

void rf_agent::log_unbound(std::size_t place, std::string_view name, unsigned instance) const {
    const rf_sensor& sensor = _row.sensors[place];
    LOG::log(log_source, log_mask::life_cycle, "%s::%s %s not bound. %.*s.%d\n",
             shown_name(*this, sensor.logs_instance).c_str(), "read_data", sensor.unbound_name,
             static_cast<int>(name.size()), name.data(), static_cast<int>(instance));
}

void rf_agent::bind_sensors(unsigned num) {
    for (std::size_t place = 0; place < _ports.size(); ++place) {
        const sensor_name& name = _row.sensors[place].name;
        _ports[place].bind(name.suffix == nullptr ? std::string(name.prefix)
                                                  : seq_str(name.prefix, static_cast<int>(num), name.suffix).text());
    }
}

rf_agent::status_t rf_agent::read_data(reading_type type, std::uint32_t* value, std::string_view name,
                                       unsigned instance) {
    const std::size_t place = std::size_t{type} - 1;
    if (place >= _ports.size() || _row.sensors[place].refused) {
        return utils::cmd_failed;
    }
    device_port& port = _ports[place];
    if (!port.is_bound()) {
        if (LOG::is_enabled(log_mask::life_cycle)) {
            log_unbound(place, name, instance);
        }
        return utils::cmd_failed;
    }
    std::uint32_t raw = no_reading;
    if (!port.read_port_integer(&raw) || raw == no_reading) {
        return utils::cmd_failed;
    }
    *value = raw;
    return utils::cmd_complete;
}

common_thermal_device_pci_agent_nvidia_rf::common_thermal_device_pci_agent_nvidia_rf(int instance)
    : rf_agent(pci_agent_nvidia_rf, instance), _port(*this, device_port::kind::block, "PCI_AGENT_NVIDIA_RF") {}

void common_thermal_device_pci_agent_nvidia_rf::set_num(unsigned slot, unsigned num) {
    _num = num == 0 ? 1 : num;
    write_slot_bus_file(slot == 0 ? 1 : slot, _port.get_key_string());
    bind_sensors(num);
}

#define THERMAL_RF_AGENT(name)                                                                             \
    common_thermal_device_##name::common_thermal_device_##name(int instance) : rf_agent(name, instance) {} \
    void common_thermal_device_##name::set_num(unsigned num) {                                             \
        _num = num;                                                                                        \
        bind_sensors(num);                                                                                 \
    }

THERMAL_RF_AGENT(pci_agent_amd_rf)
THERMAL_RF_AGENT(pci_agent_intel_gaudi3)

#undef THERMAL_RF_AGENT
