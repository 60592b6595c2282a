#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <system_error>

#include <unistd.h>

#include "sim/bundled_files.hpp"

namespace sim {

temporary_file::temporary_file(std::string_view content)
    : _path((std::filesystem::temp_directory_path() / "thermal_sim_XXXXXX").string()) {
    const int file = ::mkstemp(_path.data());
    if (file < 0) {
        throw std::system_error(errno, std::generic_category(), _path);
    }
    ::close(file);
    write(content);
}

temporary_file::~temporary_file() { std::remove(_path.c_str()); }

void temporary_file::write(std::string_view content) const {
    std::ofstream stream(_path, std::ios::binary | std::ios::trunc);
    if (!stream.write(content.data(), static_cast<std::streamsize>(content.size())).flush()) {
        throw std::system_error(errno, std::generic_category(), _path);
    }
}

}  // namespace sim
