#include "platform/host/properties.hpp"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/host/host.hpp"
#include "platform/log.hpp"

namespace thermal_host {

namespace {

struct close_file {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using file_pointer = std::unique_ptr<std::FILE, close_file>;

constexpr off_t largest_file = 1 << 20;  // far beyond any tree of properties

// False with the reason in errno.
bool read_file(const std::string& path, std::string& content) {
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0) {
        return false;
    }
    if (!S_ISREG(status.st_mode) || status.st_size > largest_file) {
        errno = S_ISREG(status.st_mode) ? EFBIG : EINVAL;
        return false;
    }
    const file_pointer file(std::fopen(path.c_str(), "re"));
    if (!file) {
        return false;
    }
    char buffer[4096];
    while (const std::size_t size = std::fread(buffer, 1, sizeof(buffer), file.get())) {
        content.append(buffer, size);
        if (content.size() > largest_file) {
            errno = EFBIG;
            return false;
        }
    }
    return std::ferror(file.get()) == 0;
}

// A new file that is on the disk. False with the reason in errno.
bool write_file(const std::string& path, const std::string& content) {
    ::unlink(path.c_str());
    const file_pointer file(std::fopen(path.c_str(), "wxe"));
    return file && std::fwrite(content.data(), 1, content.size(), file.get()) == content.size() &&
           std::fflush(file.get()) == 0 && ::fsync(::fileno(file.get())) == 0;
}

// Keeps a rename in the file's directory through a loss of power, where the file system knows such a thing.
void sync_directory_of(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    const std::string directory = slash == std::string::npos ? "." : path.substr(0, slash + 1);
    const int descriptor = ::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor >= 0) {
        ::fsync(descriptor);
        ::close(descriptor);
    }
}

bool replace_file(const std::string& path, const std::string& content) {
    const std::string temporary = path + ".new";
    const bool replaced = write_file(temporary, content) && std::rename(temporary.c_str(), path.c_str()) == 0;
    if (replaced) {
        sync_directory_of(path);
    }
    return replaced;
}

}  // namespace

bool host_property::assign(std::uint32_t number) {
    return !_value.is_block() && _value.fits(number) && assign({_value.width, number, {}});
}

bool host_property::set(const std::uint8_t* bytes, unsigned size, std::uint16_t, std::uint8_t) {
    const std::optional<property_value> block = property_value::block_of(bytes, size);
    return _value.is_block() && block && assign(*block);
}

bool host_property::assign(const property_value& value) {
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

bool property_store::create(std::string_view path, std::optional<property_value> value) {
    if (!value || !is_usable_path(path) ||
        !_properties.try_emplace(std::string(path), *this, *std::move(value)).second) {
        return false;
    }
    changed();
    return true;
}

void property_store::remove(std::string_view path) {
    const auto found = _properties.find(path);
    if (found != _properties.end()) {
        _properties.erase(found);
        changed();
    }
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
    property_values values;
    if (const auto fault = read_property_file(content, values)) {
        refuse_file(*fault);
        return;
    }
    for (auto& [name, value] : values) {
        _properties.try_emplace(name, *this, std::move(value));
    }
}

void property_store::refuse_file(const property_file_fault& fault) {
    const std::string aside = _path + ".refused";
    LOG::err(host_log_source, "%s:%u: %s; no property is taken from it\n", _path.c_str(), fault.line, fault.why);
    if (std::rename(_path.c_str(), aside.c_str()) == 0) {
        LOG::err(host_log_source, "%s: kept as %s\n", _path.c_str(), aside.c_str());
    } else {
        LOG::err(host_log_source, "%s: cannot be kept as %s: %s; nothing will be saved\n", _path.c_str(), aside.c_str(),
                 std::strerror(errno));
        _path.clear();
    }
}

bool property_store::flush() {
    if (_path.empty() || !_unsaved) {
        return true;
    }
    const bool saved = replace_file(_path, property_file_text(kept_values()));
    if (!saved && !_save_failed) {
        LOG::err(host_log_source, "%s: cannot be written: %s\n", _path.c_str(), std::strerror(errno));
    }
    _save_failed = !saved;
    _unsaved = !saved;
    return saved;
}

// Those that outlive the controller; the others are the host's, whose state is not known after a restart.
property_values property_store::kept_values() const {
    property_values values;
    for (const auto& [path, property] : _properties) {
        if (path.starts_with("/ac/")) {
            values.emplace_hint(values.end(), path, property.value());
        }
    }
    return values;
}

}  // namespace thermal_host

using thermal_host::platform;
using thermal_host::property_value;

namespace {

bool create_property(const std::string& path, const std::optional<property_value>& value) {
    platform* host = platform::current();
    return host != nullptr && host->properties.create(path, value);
}

template <class Number>
bool create_number(const std::string& path, Number value) {
    return create_property(path, property_value::number_of(sizeof(value), value));
}

}  // namespace

bmc_property::~bmc_property() = default;

bool bmc_property::create(const std::string& path, std::uint8_t value, std::uint16_t) {
    return create_number(path, value);
}

bool bmc_property::create(const std::string& path, std::uint16_t value, std::uint16_t) {
    return create_number(path, value);
}

bool bmc_property::create(const std::string& path, std::uint32_t value, std::uint16_t) {
    return create_number(path, value);
}

bool bmc_property::create(const std::string& path, const std::uint8_t* bytes, unsigned size, std::uint16_t) {
    return create_property(path, property_value::block_of(bytes, size));
}
