#pragma once

#include <array>
#include <cstddef>
#include <string_view>

#include "foundation/export.hpp"

// Where the files for a service engineer stand.
constexpr const char* diagnostics_directory = "/tmp/thermal";

// One text file in that directory, made or emptied, and written without the heap. A link in its place is not followed,
// and nothing is written where the directory belongs to another user, or others may put links there. A file that cannot be opened swallows its text.
class THERMAL_API diagnostic_file {
public:
    // The file's name, printf-like. A name that no file can have opens nothing.
    [[gnu::format(printf, 2, 3)]] explicit diagnostic_file(const char* name, ...);
    ~diagnostic_file();
    diagnostic_file(const diagnostic_file&) = delete;
    diagnostic_file& operator=(const diagnostic_file&) = delete;

    static bool is_directory_ours();
    bool is_open() const { return _file >= 0; }
    void text(std::string_view text);
    // At most a few hundred characters; what a longer one has beyond them is cut off.
    [[gnu::format(printf, 2, 3)]] void line(const char* format, ...);
    // The last line of every file.
    void metadata(unsigned long timestamp, unsigned long records);
    // Whether all of it reached the file.
    bool finish();

private:
    void flush();

    int _file = -1;
    bool _is_whole = true;
    std::size_t _used = 0;
    std::array<char, 4096> _buffer;
};
