#include "platform/host/properties.hpp"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <utility>

#include <unistd.h>

#include "platform/host/host.hpp"
#include "platform/log.hpp"

namespace thermal_host {

namespace {

constexpr std::pair<std::string_view, unsigned> widths[] = {{"byte", 1}, {"word", 2}, {"dword", 4}};
constexpr const char* blanks = " \t\r\n";

struct close_file {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using file_pointer = std::unique_ptr<std::FILE, close_file>;

bool fits(unsigned width, std::uint32_t value) {
    return width >= sizeof(value) || value < std::uint32_t{1} << (8 * width);
}

std::string_view next_word(std::string_view& line) {
    line.remove_prefix(std::min(line.find_first_not_of(blanks), line.size()));
    const std::string_view word = line.substr(0, line.find_first_of(blanks));
    line.remove_prefix(word.size());
    return word;
}

bool read_file(const std::string& path, std::string& content) {
    const file_pointer file(std::fopen(path.c_str(), "re"));
    if (!file) {
        return false;
    }
    char buffer[4096];
    while (const std::size_t size = std::fread(buffer, 1, sizeof(buffer), file.get())) {
        content.append(buffer, size);
    }
    return std::ferror(file.get()) == 0;
}

}  // namespace

bool host_property::assign(std::uint32_t value) {
    if (!fits(_width, value)) {
        return false;
    }
    if (value != _value) {
        _value = value;
        _store.changed();
    }
    return true;
}

host_property* property_store::find(std::string_view path) {
    const auto found = _properties.find(path);
    return found != _properties.end() ? &found->second : nullptr;
}

bool property_store::create(std::string_view path, unsigned width, std::uint32_t value) {
    if (path.empty() || path.find_first_of(blanks) != std::string_view::npos ||
        path.find('\0') != std::string_view::npos) {
        return false;
    }
    if (!_properties.try_emplace(std::string(path), *this, width, value).second) {
        return false;
    }
    changed();
    return true;
}

void property_store::open(std::string path) {
    _path = std::move(path);
    std::string content;
    if (!read_file(_path, content)) {
        if (errno != ENOENT) {
            LOG::err(host_log_source, "%s: %s; nothing will be saved\n", _path.c_str(), std::strerror(errno));
            _path.clear();
        }
        return;
    }
    std::string_view rest = content;
    for (unsigned number = 1; !rest.empty(); ++number) {
        const std::string_view line = rest.substr(0, rest.find('\n'));
        rest.remove_prefix(std::min(line.size() + 1, rest.size()));
        const char* problem = nullptr;
        if (!read_line(line, problem)) {
            LOG::err(host_log_source, "%s:%u: %s\n", _path.c_str(), number, problem);
            _unreadable.emplace_back(line);
        }
    }
    _unsaved = false;
}

bool property_store::read_line(std::string_view line, const char*& problem) {
    const std::string_view path = next_word(line);
    if (path.empty()) {
        return true;
    }
    const std::string_view width_name = next_word(line);
    const std::string_view text = next_word(line);
    unsigned width = 0;
    for (const auto& [name, bytes] : widths) {
        width = name == width_name ? bytes : width;
    }
    std::uint32_t value = 0;
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, value);
    if (width == 0) {
        problem = "expected \"path byte|word|dword value\"";
    } else if (text.empty() || error != std::errc() || rest != end || !fits(width, value)) {
        problem = "the value is no number of that width";
    } else if (!next_word(line).empty()) {
        problem = "more than one value";
    } else if (!create(path, width, value)) {
        problem = "the property is here twice, or its path is unusable";
    }
    return problem == nullptr;
}

bool property_store::flush() {
    if (_path.empty() || !_unsaved) {
        return true;
    }
    const bool saved = save();
    if (!saved && !_save_failed) {
        LOG::err(host_log_source, "%s: cannot be written: %s\n", _path.c_str(), std::strerror(errno));
    }
    _save_failed = !saved;
    _unsaved = !saved;
    return saved;
}

std::string property_store::text() const {
    std::string content;
    for (const auto& [path, property] : _properties) {
        content += path;
        for (const auto& [name, bytes] : widths) {
            if (bytes == property.width()) {
                content.append(" ").append(name);
            }
        }
        content.append(" ").append(std::to_string(property.get_dword())).append("\n");
    }
    for (const std::string& line : _unreadable) {
        content.append(line).append("\n");
    }
    return content;
}

bool property_store::save() const {
    const std::string temporary = _path + ".new";
    const std::string content = text();
    file_pointer file(std::fopen(temporary.c_str(), "we"));
    if (!file) {
        return false;
    }
    const bool written = std::fwrite(content.data(), 1, content.size(), file.get()) == content.size() &&
                         std::fflush(file.get()) == 0 && ::fsync(::fileno(file.get())) == 0;
    file.reset();
    return written && std::rename(temporary.c_str(), _path.c_str()) == 0;
}

}  // namespace thermal_host

using thermal_host::platform;

namespace {

template <class Value>
bool create_property(const std::string& path, Value value) {
    platform* host = platform::current();
    return host != nullptr && host->properties.create(path, sizeof(Value), value);
}

}  // namespace

bmc_property::~bmc_property() = default;

bool bmc_property::create(const std::string& path, std::uint8_t value, std::uint16_t) {
    return create_property(path, value);
}

bool bmc_property::create(const std::string& path, std::uint16_t value, std::uint16_t) {
    return create_property(path, value);
}

bool bmc_property::create(const std::string& path, std::uint32_t value, std::uint16_t) {
    return create_property(path, value);
}
