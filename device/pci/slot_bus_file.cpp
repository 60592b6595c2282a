#include "device/pci/slot_bus_file.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cstdio>

void write_slot_bus_file(std::uint32_t slot_number, const std::string& port_key) {
    std::array<char, 64> path{};
    std::snprintf(path.data(), path.size(), "/tmp/.slot%lu_cioname", static_cast<unsigned long>(slot_number));
    // A pipe that nobody reads fails instead of waiting.
    const int file = ::open(path.data(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0644);
    if (file < 0) {
        return;
    }
    const std::string line = port_key + "\n";
    [[maybe_unused]] const ssize_t written = ::write(file, line.data(), line.size());
    ::close(file);
}
