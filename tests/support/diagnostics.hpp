#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <string_view>

#include "foundation/diagnostic_file.hpp"

// Files of snapshots and histories, by what stands behind "debug_thermal_" in their name.
inline std::string diagnostic_path(const std::string& name) {
    return std::string(diagnostics_directory) + "/debug_thermal_" + name;
}

inline std::set<std::string> diagnostic_names() {
    constexpr std::string_view prefix = "debug_thermal_";
    std::set<std::string> found;
    for (const auto& entry : std::filesystem::directory_iterator(diagnostics_directory)) {
        const std::string name = entry.path().filename().string();
        if (name.starts_with(prefix)) found.insert(name.substr(prefix.size()));
    }
    return found;
}

inline std::string diagnostic_text(const std::string& name) {
    std::ifstream file(diagnostic_path(name), std::ios::binary);
    return file ? std::string(std::istreambuf_iterator<char>(file), {}) : "none";
}

// Nothing can be written under this name until it is gone.
inline void block_diagnostics(const std::string& name) { std::filesystem::create_directory(diagnostic_path(name)); }

inline void remove_diagnostics() {
    for (const std::string& name : diagnostic_names()) std::filesystem::remove_all(diagnostic_path(name));
}

// Their names are fixed, so that only one test of the machine at a time may have them. It finds and leaves none.
class diagnostics_to_itself {
public:
    diagnostics_to_itself() : _lock(::open("/tmp/thermal_test.lock", O_RDWR | O_CREAT | O_CLOEXEC, 0666)) {
        EXPECT_EQ(::flock(_lock, LOCK_EX), 0);
        ::mkdir(diagnostics_directory, 0755);
        remove_diagnostics();
    }
    ~diagnostics_to_itself() {
        remove_diagnostics();
        ::close(_lock);
    }
    diagnostics_to_itself(const diagnostics_to_itself&) = delete;
    diagnostics_to_itself& operator=(const diagnostics_to_itself&) = delete;

private:
    int _lock;
};
