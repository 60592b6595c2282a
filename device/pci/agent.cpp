#include "device/pci/agent.hpp"

#include <algorithm>

#include "foundation/log_masks.hpp"

using utils = common_thermal_utils;

struct plain_pci_agent::row {
    identity agent{};
    bool (*is_good)(std::span<const std::uint8_t> answer) = nullptr;  // null takes any answer
    std::uint8_t missing = 0;
};

namespace {

using plain = plain_pci_agent::row;

bool is_drive_status(std::span<const std::uint8_t> answer) {
    return answer.size() >= 5 && answer[0] == 6 && (answer[3] & 0x80) == 0 && answer[4] < 255;
}

constexpr plain pci_agent_amd{
    {"common_thermal_device_pci_agent_amd", utils::tdev_pci_agent_amd, "PCI_AGENT_AMD", true}};
constexpr plain pci_agent_intel_nic{
    {"common_thermal_device_pci_agent_intel_nic", utils::tdev_pci_agent_intel_nic, "PCI_AGENT_INTEL_NIC", true}};
constexpr plain pci_agent_xilinx{
    {"common_thermal_device_pci_agent_xilinx", utils::tdev_pci_agent_xilinx, "PCI_AGENT_XILINX"}};
constexpr plain pci_agent_intel_fpga{
    {"common_thermal_device_pci_agent_intel_fpga", utils::tdev_pci_agent_intel_fpga, "PCI_AGENT_XILINX"}};
constexpr plain pci_agent_pensando_cpld{
    {"common_thermal_device_pci_agent_pensando_cpld", utils::tdev_pci_agent_pensando_cpld, "PCI_AGENT_PENSANDO_CPLD"}};
constexpr plain pci_agent_nvmemi{
    {"common_thermal_device_pci_agent_nvmemi", utils::tdev_pci_agent_nvmemi, "PCI_AGENT_NVMEMI"},
    is_drive_status,
    0xFF};

}  // namespace

std::uint32_t agent_token::take(std::string_view name) {
    if (_in_use) {
        return name == _owner ? _token : 0;
    }
    _owner.append(name);  // empty between two holds; cheaper than an assignment
    _in_use = true;
    return ++_token;
}

void agent_token::release() {
    _owner.clear();
    _in_use = false;
}

pci_agent::pci_agent(const identity& agent, int instance)
    : common_thermal_device(agent.class_name, agent.class_name, instance, agent.type),
      _identity(agent),
      _port(*this, device_port::kind::block, agent.port_name) {}

bool pci_agent::logs_now() const { return _identity.logs && LOG::is_enabled(log_mask::life_cycle); }

std::uint32_t pci_agent::get_agent_token(std::string_view name) { return _token.take(name); }

bool pci_agent::transfer(std::span<const std::uint8_t> tx, std::span<std::uint8_t> rx, std::uint8_t missing) {
    std::fill(rx.begin(), rx.end(), missing);
    return _port.write_read_port_block(tx.data(), static_cast<std::uint32_t>(tx.size()), rx.data(),
                                       static_cast<std::uint32_t>(rx.size()));
}

plain_pci_agent::plain_pci_agent(const row& kind, int instance) : pci_agent(kind.agent, instance), _row(kind) {}

plain_pci_agent::status_t plain_pci_agent::write_read_bus(std::span<const std::uint8_t> tx, std::span<std::uint8_t> rx,
                                                          std::string_view name, unsigned) {
    if (logs_now()) {
        LOG::log(log_source, log_mask::life_cycle, "%s::%s %.*s[%02X]\n", get_name().c_str(), "write_read_bus",
                 static_cast<int>(name.size()), name.data(), tx.empty() ? 0u : tx.front());
    }
    return transfer(tx, rx, _row.missing) ? utils::cmd_complete : utils::cmd_failed;
}

plain_pci_agent::status_t plain_pci_agent::write_read_command(std::uint32_t token, status_t state,
                                                              std::span<const std::uint8_t> tx,
                                                              std::span<std::uint8_t> rx, std::string_view name,
                                                              unsigned instance) {
    if (!_token.is_current(token)) {
        return utils::cmd_wrong_token;
    }
    status_t result = utils::cmd_idle;
    if (state == utils::cmd_idle) {
        result = write_read_bus(tx, rx, name, instance);
        if (result == utils::cmd_complete && _row.is_good != nullptr && !_row.is_good(rx)) {
            result = utils::cmd_failed;
        }
    }
    if (logs_now()) {
        LOG::log(log_source, log_mask::life_cycle, "%s::%s %.*s.%d[%x]->[%x]\n", get_name().c_str(),
                 "write_read_command", static_cast<int>(name.size()), name.data(), static_cast<int>(instance),
                 static_cast<unsigned>(state), static_cast<unsigned>(result));
    }
    return result;
}

#define THERMAL_PLAIN_AGENT(name) \
    common_thermal_device_##name::common_thermal_device_##name(int instance) : plain_pci_agent(name, instance) {}

THERMAL_PLAIN_AGENT(pci_agent_amd)
THERMAL_PLAIN_AGENT(pci_agent_intel_nic)
THERMAL_PLAIN_AGENT(pci_agent_xilinx)
THERMAL_PLAIN_AGENT(pci_agent_intel_fpga)
THERMAL_PLAIN_AGENT(pci_agent_pensando_cpld)
THERMAL_PLAIN_AGENT(pci_agent_nvmemi)

#undef THERMAL_PLAIN_AGENT
