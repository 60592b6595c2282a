#pragma once

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <string>
#include <string_view>

#include "platform/host/bounded_record.hpp"

namespace thermal_host {

enum class log_level : char { log = 'L', warning = 'W', error = 'E' };

struct log_line {
    std::int64_t time;  // wall clock, nanoseconds since 1970
    log_level level;
    int source;
    unsigned mask;          // 0 for an error
    std::string_view text;  // as formatted, line breaks included
};

struct captured_line {
    std::int64_t time;
    log_level level;
    int source;
    unsigned mask;
    std::string text;
};

// Writes lines as "2026-01-31T12:00:00.000 W 2 text" to a file (the standard error output at first) or to a function.
class log_writer {
public:
    using sink = std::function<void(const log_line&)>;

    // Port type problems and sensor errors.
    static constexpr unsigned default_mask = 1;
    // A longer text is cut.
    static constexpr std::size_t max_text = 2048;

    unsigned mask() const { return _mask; }
    void set_mask(unsigned mask) { _mask = mask; }
    bool is_enabled(unsigned mask) const { return (_mask & mask) != 0; }

    // Null silences the log. The file stays the caller's.
    void set_file(std::FILE* file);
    void set_sink(sink write) { _sink = std::move(write); }

    // Keeps the last `capacity` lines, besides writing them; off by default.
    bounded_record<captured_line>& captured() { return _captured; }

    void write(log_level level, int source, unsigned mask, const char* format, std::va_list arguments)
        __attribute__((format(printf, 5, 0)));

private:
    unsigned _mask = default_mask;
    std::FILE* _file = stderr;
    sink _sink;
    bounded_record<captured_line> _captured;
};

}  // namespace thermal_host
