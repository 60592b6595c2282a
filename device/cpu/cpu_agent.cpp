#include "device/cpu/cpu_agent.hpp"

using utils = common_thermal_utils;

namespace {

constexpr const char* intel_interface = "intel_interface";
constexpr const char* amd_interface = "amd_interface";
constexpr std::uint32_t peci_setting = 32;
constexpr unsigned peci_base_address = 0x30;
constexpr unsigned peci_client_bits = 0x07;

}  // namespace

cpu_agent::cpu_agent(const char* class_name, int instance, tdev_type_t type, const char* interface_name,
                     host_cpu_vendor vendor, const host_cpu_bus& bus)
    : common_thermal_device(class_name, class_name, instance, type),
      _interface(utils::thermal_controller_device(), interface_name, "host_cpu_interface", "sys_power_good", vendor,
                 bus) {}

common_thermal_device_cpu_agent_intel::common_thermal_device_cpu_agent_intel(int instance)
    : cpu_agent("common_thermal_device_cpu_agent_intel", instance, utils::tdev_cpu_agent_intel, intel_interface,
                host_cpu_vendor::intel,
                nm_peci_interface{utils::thermal_controller_device(), intel_interface, peci_setting}),
      _port(*this, device_port::kind::integer, "PORT_CPU_AGENT_INTEL") {}

void common_thermal_device_cpu_agent_intel::poll(common_thermal_dao*, unsigned long) {
    if (_address != 0) {
        return;
    }
    std::uint32_t strapped = 0;
    const bool read = _port.is_bound() && _port.read_port_integer(&strapped);
    const unsigned client = read ? strapped & peci_client_bits : static_cast<unsigned>(get_instance()) - 1;
    _address = static_cast<std::uint8_t>(client | peci_base_address);
}

common_thermal_device_cpu_agent_amd::common_thermal_device_cpu_agent_amd(int instance)
    : cpu_agent("common_thermal_device_cpu_agent_amd", instance, utils::tdev_cpu_agent_amd, amd_interface,
                host_cpu_vendor::amd, apml_interface{utils::thermal_controller_device(), amd_interface}) {
    _address = static_cast<std::uint8_t>(static_cast<unsigned>(instance) - 1);
}
