#include "platform/host/host.hpp"
#include "tests/platform/platform_under_test.hpp"

struct platform_under_test::implementation {
    thermal_host::platform host{{.virtual_time = true}};
};

platform_under_test::platform_under_test() : _implementation(std::make_unique<implementation>()) {
    _implementation->host.log.set_file(nullptr);
}

platform_under_test::~platform_under_test() = default;

void platform_under_test::make_number(std::uint32_t port, const std::string& key, std::uint32_t value) {
    _implementation->host.ports.add_number(port, value);
    _implementation->host.ports.add_number(key, value);
}

void platform_under_test::make_block(std::uint32_t port, const std::string& key,
                                     const std::vector<std::uint8_t>& content) {
    _implementation->host.ports.add_block(port, content);
    _implementation->host.ports.add_block(key, content);
}

void platform_under_test::fail_lines(std::uint32_t port, const std::string& key) {
    for (port_line* line : {_implementation->host.ports.find(port), _implementation->host.ports.find(key)}) {
        line->fail_reads();
        line->fail_writes();
    }
}

void platform_under_test::remove_lines(std::uint32_t port, const std::string& key) {
    _implementation->host.ports.remove(port);
    _implementation->host.ports.remove(key);
}

void platform_under_test::wait_ticks(unsigned ticks) {
    _implementation->host.loop.run_for(ticks * thermal_host::default_tick);
}

std::uint8_t platform_under_test::request(const ipmi_command_key& key, const std::vector<std::uint8_t>& bytes,
                                          std::vector<std::uint8_t>& response) {
    auto future = _implementation->host.ipmi.request(key, bytes);
    _implementation->host.loop.run_pending();
    auto answer = future.get();
    response = answer.data;
    return answer.completion_code;
}
