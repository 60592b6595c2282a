#include "platform/host/ipmi.hpp"

#include <exception>
#include <memory>
#include <utility>

#include "platform/host/host.hpp"
#include "platform/log.hpp"

namespace thermal_host {

void ipmi_dispatcher::register_command(const ipmi_command_key& key, ipmi_command_handler handler) {
    if (handler) {
        _handlers[key] = std::move(handler);
    } else {
        _handlers.erase(key);
    }
}

void ipmi_dispatcher::request(const ipmi_command_key& key, std::vector<std::uint8_t> bytes,
                              std::function<void(ipmi_answer)> done) {
    _loop.post([this, key, request = std::move(bytes), answer = std::move(done)]() mutable {
        ipmi_answer result = execute(key, std::move(request));
        if (answer) {
            answer(std::move(result));
        }
    });
}

std::future<ipmi_answer> ipmi_dispatcher::request(const ipmi_command_key& key, std::vector<std::uint8_t> bytes) {
    auto promise = std::make_shared<std::promise<ipmi_answer>>();
    std::future<ipmi_answer> future = promise->get_future();
    request(key, std::move(bytes), [promise](ipmi_answer answer) { promise->set_value(std::move(answer)); });
    return future;
}

ipmi_answer ipmi_dispatcher::execute(const ipmi_command_key& key, std::vector<std::uint8_t> bytes) {
    const auto found = _handlers.find(key);
    if (found == _handlers.end()) {
        return {ipmi_invalid_command, {}};
    }
    // A copy: the handler may register its command anew.
    const ipmi_command_handler handler = found->second;
    ipmi_message message{bmc_message_buffer(std::move(bytes)), {}};
    try {
        const std::uint8_t completion_code = handler(message);
        return {completion_code, message.response.bytes()};
    } catch (const std::exception& failure) {
        LOG::err(host_log_source, "IPMI command %02X on function %02X: %s\n", key.command, key.network_function,
                 failure.what());
        return {ipmi_unspecified_error, {}};
    }
}

}  // namespace thermal_host

using thermal_host::platform;

void IPMI::register_command(ipmi_command_key key, ipmi_command_handler handler) {
    if (platform* host = platform::current()) {
        host->ipmi.register_command(key, std::move(handler));
    }
}

void IPMI::progress_notify(int code, int detail) {
    if (platform* host = platform::current()) {
        host->ipmi.progress_notes().add({code, detail});
    }
}

void IPMI::send_pciegen_pwrbrk_enabled_disabled_overriden(const char* what, const char* state) {
    if (platform* host = platform::current()) {
        host->ipmi.brake_notices().add({what, state});
    }
}
