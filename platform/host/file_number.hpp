#pragma once

#include <cstdint>
#include <string>

namespace thermal_host {

// How a file's unit relates to the port's: so many in the file are so many at the port. {1000, 1} turns millidegrees
// into degrees, {255, 100} a raw duty into percent.
struct file_scale {
    std::uint32_t file = 1;
    std::uint32_t port = 1;
};

// A decimal number in a text file, opened anew at each access because a driver may come and go.
class file_number {
public:
    file_number(std::string path, file_scale scale);

    // Rounds to the nearest. False if the file is missing or holds anything but one number of the port's range.
    // Ports carry no sign: a negative number, a temperature below zero for instance, reads as 0.
    bool read(std::uint32_t& value) const;
    // Never creates the file.
    bool write(std::uint32_t value) const;

private:
    std::string _path;
    file_scale _scale;
};

}  // namespace thermal_host
