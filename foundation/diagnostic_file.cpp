#include "foundation/diagnostic_file.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace {

// -1 unless the directory is ours, and only we can put anything there.
int open_directory() {
    constexpr mode_t others_may_write = S_IWGRP | S_IWOTH;
    const int directory = ::open(diagnostics_directory, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    struct stat status {};
    if (directory >= 0 && (::fstat(directory, &status) != 0 || status.st_uid != ::geteuid() ||
                           (status.st_mode & others_may_write) != 0)) {
        ::close(directory);
        return -1;
    }
    return directory;
}

// A pipe that nobody reads fails instead of waiting.
int open_in(int directory, const char* name) {
    constexpr int flags = O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
    return ::openat(directory, name, flags, 0644);
}

}  // namespace

// NOLINTNEXTLINE(cppcoreguidelines-pro-type-member-init): the buffer is read as far as it was written
diagnostic_file::diagnostic_file(const char* name, ...) {
    std::array<char, NAME_MAX + 1> composed{};
    std::va_list arguments;
    va_start(arguments, name);
    const int size = std::vsnprintf(composed.data(), composed.size(), name, arguments);
    va_end(arguments);
    if (size < 0 || static_cast<std::size_t>(size) >= composed.size() || std::strchr(composed.data(), '/') != nullptr) {
        return;
    }
    const int directory = open_directory();
    if (directory >= 0) {
        _file = open_in(directory, composed.data());
        ::close(directory);
    }
}

bool diagnostic_file::is_directory_ours() {
    const int directory = open_directory();
    if (directory >= 0) {
        ::close(directory);
    }
    return directory >= 0;
}

diagnostic_file::~diagnostic_file() {
    if (is_open()) {
        flush();
        ::close(_file);
    }
}

void diagnostic_file::text(std::string_view text) {
    while (!text.empty()) {
        if (_used == _buffer.size()) {
            flush();
        }
        const std::size_t taken = text.copy(_buffer.data() + _used, _buffer.size() - _used);
        _used += taken;
        text.remove_prefix(taken);
    }
}

void diagnostic_file::line(const char* format, ...) {
    std::array<char, 512> line;  // NOLINT(cppcoreguidelines-pro-type-member-init): written ahead of use
    std::va_list arguments;
    va_start(arguments, format);
    const int size = std::vsnprintf(line.data(), line.size(), format, arguments);
    va_end(arguments);
    if (size > 0) {
        text({line.data(), std::min(static_cast<std::size_t>(size), line.size() - 1)});
    }
}

void diagnostic_file::metadata(unsigned long timestamp, unsigned long records) {
    line("metadata=[timestamp:%ld, rcords:%ld]\n", static_cast<long>(timestamp), static_cast<long>(records));
}

bool diagnostic_file::finish() {
    flush();
    return is_open() && _is_whole;
}

void diagnostic_file::flush() {
    std::size_t written = 0;
    while (is_open() && written < _used) {
        const ssize_t size = ::write(_file, _buffer.data() + written, _used - written);
        if (size < 0 && errno == EINTR) {
            continue;
        }
        if (size <= 0) {
            _is_whole = false;
            break;
        }
        written += static_cast<std::size_t>(size);
    }
    _used = 0;
}
