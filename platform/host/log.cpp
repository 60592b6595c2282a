#include "platform/log.hpp"

#include <algorithm>
#include <ctime>

#include "platform/clock.hpp"
#include "platform/host/host.hpp"

namespace thermal_host {

namespace {

constexpr std::int64_t nanoseconds_per_second = 1'000'000'000;
constexpr std::int64_t nanoseconds_per_millisecond = 1'000'000;

void print(std::FILE* file, const log_line& line) {
    const auto seconds = static_cast<std::time_t>(line.time / nanoseconds_per_second);
    const auto milliseconds = static_cast<int>(line.time % nanoseconds_per_second / nanoseconds_per_millisecond);
    std::tm date{};
    ::gmtime_r(&seconds, &date);
    char stamp[32];
    std::strftime(stamp, sizeof(stamp), "%Y-%m-%dT%H:%M:%S", &date);
    // Some texts end with a line break and some do not; the file gets one each.
    const std::size_t size = line.text.find_last_not_of('\n') + 1;
    std::fprintf(file, "%s.%03d %c %d %.*s\n", stamp, milliseconds, static_cast<char>(line.level), line.source,
                 static_cast<int>(size), line.text.data());
}

}  // namespace

void log_writer::set_file(std::FILE* file) {
    _file = file;
    _sink = nullptr;
}

void log_writer::write(log_level level, int source, unsigned mask, const char* format, std::va_list arguments) {
    char buffer[max_text];
    const int size = std::vsnprintf(buffer, sizeof(buffer), format, arguments);
    if (size < 0) {
        return;
    }
    const std::size_t kept = std::min(static_cast<std::size_t>(size), sizeof(buffer) - 1);
    const log_line line{platform_clock::wall_nanoseconds(), level, source, mask, {buffer, kept}};
    if (_captured.is_recording()) {
        _captured.add({line.time, level, source, mask, std::string(line.text)});
    }
    if (_sink) {
        _sink(line);
    } else if (_file != nullptr) {
        print(_file, line);
    }
}

}  // namespace thermal_host

using thermal_host::log_level;
using thermal_host::platform;

bool LOG::is_enabled(unsigned mask) {
    const platform* host = platform::current();
    return host != nullptr && host->log.is_enabled(mask);
}

void LOG::log(int source, unsigned mask, const char* format, ...) {
    if (is_enabled(mask)) {
        std::va_list arguments;
        va_start(arguments, format);
        platform::current()->log.write(log_level::log, source, mask, format, arguments);
        va_end(arguments);
    }
}

void LOG::warn(int source, unsigned mask, const char* format, ...) {
    if (is_enabled(mask)) {
        std::va_list arguments;
        va_start(arguments, format);
        platform::current()->log.write(log_level::warning, source, mask, format, arguments);
        va_end(arguments);
    }
}

void LOG::err(int source, const char* format, ...) {
    if (platform* host = platform::current()) {
        std::va_list arguments;
        va_start(arguments, format);
        host->log.write(log_level::error, source, 0, format, arguments);
        va_end(arguments);
    }
}
