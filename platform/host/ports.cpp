#include "platform/host/ports.hpp"

#include <algorithm>
#include <cerrno>

namespace thermal_host {

namespace {

constexpr int port_status_failed = EIO;

int status_of(bool success) { return success ? port_status_success : port_status_failed; }

}  // namespace

bool number_line::load(std::uint32_t& value) {
    if (!begin_read() || (_file && !_file->read(_value))) {
        return false;
    }
    value = _value;
    return true;
}

bool number_line::store(std::uint32_t value) {
    if (!begin_write() || (_file && !_file->write(value))) {
        return false;
    }
    _value = value;
    _was_written = true;
    return true;
}

std::uint8_t number_line::get(int& status) { return read(status) != 0 ? 1 : 0; }

void number_line::set(std::uint8_t value, int& status) { write(std::uint32_t{value}, status); }

std::uint32_t number_line::read(int& status) {
    std::uint32_t value = 0;
    status = status_of(load(value));
    return value;
}

void number_line::write(std::uint32_t value, int& status) { status = status_of(store(value)); }

void number_line::write(const TACHData& configuration, int& status) {
    const bool success = begin_write();
    if (success) {
        _tachometer = configuration;
    }
    status = status_of(success);
}

int number_line::read(TACHData& data, int& status) {
    std::uint32_t speed = 0;
    status = status_of(load(speed));
    if (status == port_status_success) {
        data.tach = speed;
    }
    return static_cast<int>(speed);
}

std::uint32_t block_line::read(std::uint32_t position, std::uint8_t* buffer, std::uint32_t max, int& status) {
    const std::uint64_t offset = std::uint64_t{position} * _bytes_per_position;
    if (!begin_read() || offset >= _bytes.size()) {
        status = port_status_failed;
        return 0;
    }
    const auto count = static_cast<std::uint32_t>(std::min<std::uint64_t>(max, _bytes.size() - offset));
    std::copy_n(_bytes.data() + offset, count, buffer);
    status = port_status_success;
    return count;
}

void block_line::write(std::uint32_t position, const std::uint8_t* buffer, std::uint32_t size, int& status) {
    const std::uint64_t offset = std::uint64_t{position} * _bytes_per_position;
    if (!begin_write() || offset + size > _bytes.size()) {
        status = port_status_failed;
        return;
    }
    std::copy_n(buffer, size, _bytes.data() + offset);
    status = port_status_success;
}

std::uint32_t block_line::write_read(const std::uint8_t* out, std::uint32_t size, std::uint8_t* in, std::uint32_t max,
                                     int& status) {
    const bool written = begin_write();
    const bool read = begin_read();
    if (!written || !read || !_script) {
        status = port_status_failed;
        return 0;
    }
    status = port_status_success;
    return std::min(_script(out, size, in, max, status), max);
}

template <class Line>
Line& port_registry::add(const port_id& id, std::unique_ptr<Line> line) {
    Line& added = *line;
    if (id.key()) {
        _keyed[*id.key()] = std::move(line);
    } else {
        _numbered[id.number()] = std::move(line);
    }
    change();
    return added;
}

number_line& port_registry::add_number(const port_id& id, std::uint32_t value) {
    return add(id, std::make_unique<number_line>(value));
}

number_line& port_registry::add_file(const port_id& id, std::string path, file_scale scale) {
    return add(id, std::make_unique<number_line>(file_number(std::move(path), scale)));
}

block_line& port_registry::add_block(const port_id& id, std::vector<std::uint8_t> content,
                                     std::uint32_t bytes_per_position) {
    return add(id, std::make_unique<block_line>(std::move(content), bytes_per_position));
}

void port_registry::remove(const port_id& id) {
    if (id.key()) {
        _keyed.erase(*id.key());
    } else {
        _numbered.erase(id.number());
    }
    change();
}

port_line* port_registry::find(std::uint32_t number) const {
    const auto found = _numbered.find(number);
    return found != _numbered.end() ? found->second.get() : nullptr;
}

port_line* port_registry::find(const std::string& key) const {
    const auto found = _keyed.find(key);
    return found != _keyed.end() ? found->second.get() : nullptr;
}

// One row of numbers for all registries of the process: a binding of an earlier host can never pass for a present one.
void port_registry::change() {
    static std::uint64_t last_generation = 0;
    _generation = ++last_generation;
}

}  // namespace thermal_host
