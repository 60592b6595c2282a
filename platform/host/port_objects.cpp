#include <utility>

#include "platform/host/host.hpp"
#include "platform/ports.hpp"

using thermal_host::block_line;
using thermal_host::number_line;
using thermal_host::platform;

namespace {

// The line behind a port, looked up again only after the registry changed; null if it is missing or of another kind.
template <class Line, class Id>
Line* resolve(port_binding& binding, const Id& id) {
    const platform* host = platform::current();
    if (host == nullptr) {
        return nullptr;
    }
    if (binding.generation != host->ports.generation()) {
        binding = {dynamic_cast<Line*>(host->ports.find(id)), host->ports.generation()};
    }
    return static_cast<Line*>(binding.line);
}

}  // namespace

bit_accessor::~bit_accessor() = default;
integer_accessor::~integer_accessor() = default;
block_accessor::~block_accessor() = default;
fantach_accessor::~fantach_accessor() = default;

logical_port::logical_port(port_record record, const std::string& name) : _record(record), _name(name) {}
logical_port::~logical_port() = default;

void logical_port::assign(std::uint32_t port) {
    _port = port;
    _binding = {};
}

bit_port::bit_port(const std::string& name) : logical_port(port_record::bit, name) {}
bit_accessor* bit_port::accessor() const { return resolve<number_line>(_binding, port()); }

integer_port::integer_port(const std::string& name) : logical_port(port_record::integer, name) {}
integer_accessor* integer_port::accessor() const { return resolve<number_line>(_binding, port()); }

block_port::block_port(const std::string& name) : logical_port(port_record::block, name) {}
block_accessor* block_port::accessor() const { return resolve<block_line>(_binding, port()); }

fantach_hal_port::fantach_hal_port(const std::string& name) : logical_port(port_record::integer, name) {}
fantach_accessor* fantach_hal_port::accessor() const { return resolve<number_line>(_binding, port()); }

cio_port::cio_port(const logical_device&, const std::string&) {}
cio_port::~cio_port() = default;

void cio_port::assign(const std::string& key) {
    _key = key;
    _binding = {};
}

bool cio_bit_port::is_bound() const { return resolve<number_line>(_binding, key()) != nullptr; }

int cio_bit_port::get() {
    std::uint32_t value = 0;
    number_line* line = resolve<number_line>(_binding, key());
    if (line == nullptr || !line->load(value)) {
        return -1;
    }
    return value != 0 ? 1 : 0;
}

int cio_bit_port::set(std::uint8_t value) {
    number_line* line = resolve<number_line>(_binding, key());
    return line != nullptr && line->store(value) ? 0 : -1;
}

bool cio_integer_port::is_bound() const { return resolve<number_line>(_binding, key()) != nullptr; }

int cio_integer_port::read(std::uint32_t* value) {
    number_line* line = resolve<number_line>(_binding, key());
    return line != nullptr && value != nullptr && line->load(*value) ? 0 : -1;
}

int cio_integer_port::write(std::uint32_t value) {
    number_line* line = resolve<number_line>(_binding, key());
    return line != nullptr && line->store(value) ? 0 : -1;
}

bool cio_block_port::is_bound() const { return resolve<block_line>(_binding, key()) != nullptr; }

void cio_block_port::seek(std::uint32_t position) { _position = position; }

std::uint32_t cio_block_port::read(std::uint8_t* buffer, std::uint32_t max, bool) {
    block_line* line = resolve<block_line>(_binding, key());
    int status = -1;
    return line != nullptr ? line->read(_position, buffer, max, status) : 0;
}

int cio_block_port::write(const std::uint8_t* buffer, std::uint32_t size) {
    block_line* line = resolve<block_line>(_binding, key());
    int status = -1;
    if (line != nullptr) {
        line->write(_position, buffer, size, status);
    }
    return status;
}

int cio_block_port::write_read(const std::uint8_t* out, std::uint32_t size, std::uint8_t* in, std::uint32_t max, bool,
                               int) {
    block_line* line = resolve<block_line>(_binding, key());
    int status = -1;
    if (line != nullptr) {
        line->write_read(out, size, in, max, status);
    }
    return status;
}

std::string physical_io_locator::rev_find_pin_name(unsigned port) {
    const platform* host = platform::current();
    if (host == nullptr) {
        return {};
    }
    const auto found = host->pin_names.find(port);
    return found != host->pin_names.end() ? found->second : std::string();
}

std::string physical_io_locator::rev_find_all(unsigned port) { return rev_find_pin_name(port); }
