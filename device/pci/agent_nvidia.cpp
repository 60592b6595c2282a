#include "device/pci/agent_nvidia.hpp"

#include <algorithm>

#include "device/pci/slot_bus_file.hpp"
#include "foundation/log_masks.hpp"

using utils = common_thermal_utils;

namespace {

constexpr pci_agent::identity agent_identity{"common_thermal_device_pci_agent_nvidia", utils::tdev_pci_agent_nvidia,
                                             "PCI_AGENT_NVIDIA", true};
constexpr const char* log_name = agent_identity.class_name;

constexpr unsigned mask = log_mask::life_cycle;

// A text of a log line, as "%.*s" takes it.
int size_of(std::string_view text) { return static_cast<int>(text.size()); }

// Whose request it is, at the end of a log line.
struct requester {
    std::string_view name;
    unsigned instance;
};

void log_written(const char* function, const mailbox::frame& bytes, const requester& who) {
    LOG::log(log_source, mask, "%s::%s REQ[W][0x%x, 0x%x, 0x%x, 0x%x, 0x%x, 0x%x]%.*s.%d\n", log_name, function,
             bytes[0], bytes[1], bytes[2], bytes[3], bytes[4], bytes[5], size_of(who.name), who.name.data(),
             static_cast<int>(who.instance));
}

void log_read(const char* function, const mailbox::frame& bytes, const requester& who) {
    LOG::log(log_source, mask, "%s::%s REQ[R][0x%x, 0x%x, 0x%x, 0x%x, 0x%x, 0x%x]%.*s.%d\n", log_name, function,
             bytes[0], bytes[1], bytes[2], bytes[3], bytes[4], bytes[5], size_of(who.name), who.name.data(),
             static_cast<int>(who.instance));
}

}  // namespace

common_thermal_device_pci_agent_nvidia::common_thermal_device_pci_agent_nvidia(int instance)
    : pci_agent(agent_identity, instance) {}

void common_thermal_device_pci_agent_nvidia::set_num(unsigned slot, unsigned num) {
    _slot_num = slot == 0 ? 1 : slot;
    set_num(num);
    if (num == 1) {
        write_slot_bus_file(_slot_num, _port.get_key_string());
    }
}

std::uint32_t common_thermal_device_pci_agent_nvidia::get_agent_token(std::string_view name) {
    const bool held = _token.in_use();
    const std::uint32_t token = pci_agent::get_agent_token(name);
    if (logs_now()) {
        constexpr const char* function = "get_agent_token";
        LOG::log(log_source, mask, "%s.%d::%s Req[%.*s]\n", log_name, get_instance(), function, size_of(name),
                 name.data());
        LOG::log(log_source, mask, "%s.%d::%s %s %s.%d\n", log_name, get_instance(), function,
                 held ? "InUsed" : "NewOne", _token.owner().c_str(), get_instance());
    }
    return token;
}

bool common_thermal_device_pci_agent_nvidia::owned_agent_token(std::string_view name) const {
    if (logs_now()) {
        constexpr const char* function = "owned_agent_token";
        LOG::log(log_source, mask, "%s.%d::%s Req[%.*s]\n", log_name, get_instance(), function, size_of(name),
                 name.data());
        if (_token.in_use()) {
            LOG::log(log_source, mask, "%s.%d::%s %s.%d\n", log_name, get_instance(), function, _token.owner().c_str(),
                     get_instance());
        }
    }
    return _token.is_owned_by(name);
}

bool common_thermal_device_pci_agent_nvidia::read_register(std::uint8_t register_number, frame& rx) {
    rx = {};
    return transfer({&register_number, 1}, std::span(rx).first(mailbox::answer_length));
}

bool common_thermal_device_pci_agent_nvidia::exchange(const char* function, const frame& tx, frame& rx,
                                                      std::string_view name, unsigned instance) {
    const bool logs = logs_now();
    if (!transfer(tx, {})) {
        return false;
    }
    if (logs) {
        log_written(function, tx, {name, instance});
    }
    if (!read_register(tx.front(), rx)) {
        return false;
    }
    if (logs) {
        log_read(function, rx, {name, instance});
    }
    return true;
}

pci_agent::status_t common_thermal_device_pci_agent_nvidia::write_to_bus(const frame& tx, frame& rx,
                                                                         std::string_view name, unsigned instance) {
    constexpr const char* function = "write_to_bus";
    if (!exchange(function, tx, rx, name, instance)) {
        return utils::cmd_failed;
    }
    if (mailbox::opcode_of(tx) != mailbox::echo_of(rx)) {
        LOG::log(log_source, mask, "%s::%s WRONG RESP[%02X][%02X]!!!\n", log_name, function, mailbox::opcode_of(tx),
                 mailbox::echo_of(rx));
        return utils::cmd_failed;
    }
    return utils::cmd_pending;
}

pci_agent::status_t common_thermal_device_pci_agent_nvidia::read_from_bus(std::uint8_t register_number, frame& rx,
                                                                          std::string_view name, unsigned instance) {
    constexpr const char* function = "read_from_bus";
    const bool logs = logs_now();
    if (logs) {
        LOG::log(log_source, mask, "%s::%s entered %.*s.%d\n", log_name, function, size_of(name), name.data(),
                 static_cast<int>(instance));
    }
    if (!read_register(register_number, rx)) {
        return utils::cmd_failed;
    }
    if (logs) {
        LOG::log(log_source, mask, "%s::%s RES[0x%x, 0x%x, 0x%x, 0x%x, 0x%x]%.*s.%d\n", log_name, function, rx[0],
                 rx[1], rx[2], rx[3], rx[4], size_of(name), name.data(), static_cast<int>(instance));
    }
    return utils::cmd_pending;
}

pci_agent::status_t common_thermal_device_pci_agent_nvidia::write_command(std::uint32_t token, status_t state,
                                                                          const frame& tx, frame& rx,
                                                                          std::string_view name, unsigned instance) {
    if (!_token.is_current(token)) {
        return utils::cmd_wrong_token;
    }
    if (state != utils::cmd_idle && state != utils::cmd_pending) {
        return utils::cmd_idle;
    }
    const status_t answered =
        state == utils::cmd_idle ? write_to_bus(tx, rx, name, instance) : read_from_bus(tx.front(), rx, name, instance);
    if (answered != utils::cmd_pending) {
        return utils::cmd_failed;
    }
    const std::uint8_t status = mailbox::status_of(rx);
    const status_t result = mailbox::judge(status);
    if (result == utils::cmd_failed && !mailbox::is_refusal(status)) {
        LOG::log(log_source, mask, "%s::%s UNEXPECT REQ STATUS[%x]%.*s.%d wait\n", log_name, "write_command",
                 static_cast<unsigned>(state), size_of(name), name.data(), static_cast<int>(instance));
    }
    return result;
}

pci_agent::status_t common_thermal_device_pci_agent_nvidia::read_data(std::uint32_t token, status_t state, frame& rx,
                                                                      std::string_view name, unsigned instance) {
    if (!_token.is_current(token)) {
        return utils::cmd_wrong_token;
    }
    if (state != utils::cmd_data_ready) {
        return utils::cmd_idle;
    }
    if (read_from_bus(mailbox::data_register, rx, name, instance) != utils::cmd_pending) {
        LOG::log(log_source, mask, "%s::%s UNEXPECT REQ STATUS[%x]%.*s.%d\n", log_name, "read_data",
                 static_cast<unsigned>(state), size_of(name), name.data(), static_cast<int>(instance));
        return utils::cmd_failed;
    }
    return utils::cmd_complete;
}

pci_agent::status_t common_thermal_device_pci_agent_nvidia::write_data(std::uint32_t token, status_t state,
                                                                       const frame& tx, frame& rx,
                                                                       std::string_view name, unsigned instance) {
    constexpr const char* function = "write_data";
    if (!_token.is_current(token)) {
        return utils::cmd_wrong_token;
    }
    if (state != utils::cmd_idle || !exchange(function, tx, rx, name, instance)) {
        return utils::cmd_failed;
    }
    if (!std::equal(tx.begin() + 2, tx.end(), rx.begin() + 1)) {
        LOG::log(log_source, mask, "%s::%s readback mismatch!!!\n", log_name, function);
        return utils::cmd_failed;
    }
    return utils::cmd_complete;
}

pci_agent::status_t common_thermal_device_pci_agent_nvidia::request_word(std::uint32_t token, status_t state,
                                                                         const frame& tx, std::uint32_t& word,
                                                                         std::string_view name, unsigned instance) {
    frame rx{};
    status_t result = write_command(token, state, tx, rx, name, instance);
    if (result == utils::cmd_data_ready) {
        result = read_data(token, result, rx, name, instance);
    }
    if (result == utils::cmd_complete) {
        word = mailbox::word_of(rx);
    }
    return result;
}
