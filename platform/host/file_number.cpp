#include "platform/host/file_number.hpp"

#include <algorithm>
#include <charconv>
#include <limits>
#include <string_view>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

namespace thermal_host {

namespace {

constexpr std::uint64_t max_port_value = std::numeric_limits<std::uint32_t>::max();

// Numerator * to / from, rounded to the nearest.
std::uint64_t convert(std::uint64_t value, std::uint32_t from, std::uint32_t to) {
    return (value * to + from / 2) / from;
}

// A descriptor that closes itself.
class open_file {
public:
    open_file(const std::string& path, int flags) : _descriptor(::open(path.c_str(), flags | O_CLOEXEC | O_NONBLOCK)) {}
    ~open_file() {
        if (_descriptor >= 0) {
            ::close(_descriptor);
        }
    }
    open_file(const open_file&) = delete;
    open_file& operator=(const open_file&) = delete;

    operator int() const { return _descriptor; }

private:
    int _descriptor;
};

bool is_blank(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

}  // namespace

file_number::file_number(std::string path, file_scale scale)
    : _path(std::move(path)), _scale{std::max(scale.file, 1u), std::max(scale.port, 1u)} {}

bool file_number::read(std::uint32_t& value) const {
    char buffer[64];
    const open_file file(_path, O_RDONLY);
    const ssize_t size = file < 0 ? -1 : ::read(file, buffer, sizeof(buffer));
    if (size <= 0 || size == sizeof(buffer)) {
        return false;
    }
    const char* const end = buffer + size;
    std::int64_t number = 0;
    const auto [rest, error] = std::from_chars(std::find_if_not<const char*>(buffer, end, is_blank), end, number);
    if (error != std::errc() || !std::all_of(rest, end, is_blank)) {
        return false;
    }
    const auto magnitude = static_cast<std::uint64_t>(std::max<std::int64_t>(number, 0));
    if (magnitude > std::numeric_limits<std::uint64_t>::max() / 2 / _scale.port) {
        return false;
    }
    const std::uint64_t converted = convert(magnitude, _scale.file, _scale.port);
    if (converted > max_port_value) {
        return false;
    }
    value = static_cast<std::uint32_t>(converted);
    return true;
}

bool file_number::write(std::uint32_t value) const {
    char buffer[32];
    char* end = std::to_chars(buffer, buffer + sizeof(buffer) - 1, convert(value, _scale.port, _scale.file)).ptr;
    *end++ = '\n';
    const open_file file(_path, O_WRONLY | O_TRUNC);
    return file >= 0 && ::write(file, buffer, static_cast<std::size_t>(end - buffer)) == end - buffer;
}

}  // namespace thermal_host
