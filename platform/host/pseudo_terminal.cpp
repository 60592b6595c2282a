#include "platform/host/pseudo_terminal.hpp"

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

namespace thermal_host {

namespace {

namespace files = std::filesystem;

[[noreturn]] void fail(const std::string& what) { throw std::system_error(errno, std::generic_category(), what); }

int open_own_side() {
    const int own = ::posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    if (own < 0) {
        fail("pseudo-terminal");
    }
    return own;
}

std::string device_of(int own) {
    char name[64];
    if (::grantpt(own) != 0 || ::unlockpt(own) != 0 || ::ptsname_r(own, name, sizeof(name)) != 0) {
        fail("pseudo-terminal");
    }
    return name;
}

int open_client_side(const std::string& device) {
    const int client = ::open(device.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    if (client < 0) {
        fail(device);
    }
    return client;
}

}  // namespace

pseudo_terminal::open_descriptor::~open_descriptor() { ::close(_number); }

pseudo_terminal::pseudo_terminal(std::string link)
    : _link(std::move(link)), _own(open_own_side()), _device(device_of(_own)), _client(open_client_side(_device)) {
    termios mode{};
    if (::tcgetattr(_client, &mode) != 0) {
        fail(_device);
    }
    ::cfmakeraw(&mode);
    constexpr mode_t for_us_alone = 0600;  // the system gives terminals to a group too
    if (::tcsetattr(_client, TCSANOW, &mode) != 0 || ::fchmod(_client, for_us_alone) != 0) {
        fail(_device);
    }
    make_link();
}

pseudo_terminal::~pseudo_terminal() {
    std::error_code error;
    if (files::read_symlink(_link, error) == _device && !error) {
        files::remove(_link, error);
    }
}

// Over an old link by way of a new name, so that a client finds one of the two at any time.
void pseudo_terminal::make_link() const {
    std::error_code error;
    files::create_symlink(_device, _link, error);
    if (error == std::errc::file_exists) {
        if (!files::is_symlink(_link)) {
            throw std::runtime_error(_link + ": exists and is no symbolic link");
        }
        const std::string fresh = _link + "." + std::to_string(::getpid());
        files::create_symlink(_device, fresh);
        files::rename(fresh, _link, error);
        if (error) {
            std::error_code ignored;
            files::remove(fresh, ignored);
        }
    }
    if (error) {
        throw std::system_error(error, _link);
    }
}

std::optional<std::size_t> pseudo_terminal::read(std::span<char> characters) const {
    const ssize_t count = ::read(_own, characters.data(), characters.size());
    if (count > 0) {
        return static_cast<std::size_t>(count);
    }
    const bool is_momentary = count < 0 && (errno == EAGAIN || errno == EINTR);
    return is_momentary ? std::optional<std::size_t>(0) : std::nullopt;
}

bool pseudo_terminal::write(std::string_view text) const {
    return ::write(_own, text.data(), text.size()) == static_cast<ssize_t>(text.size());
}

std::size_t pseudo_terminal::unread() const {
    int count = 0;
    return ::ioctl(_client, FIONREAD, &count) == 0 ? static_cast<std::size_t>(count) : 0;
}

}  // namespace thermal_host
