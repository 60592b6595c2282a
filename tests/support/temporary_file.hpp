#pragma once

#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <string>

// A file with this text for the life of the object.
class temporary_file {
public:
    explicit temporary_file(const std::string& text)
        : _path("/tmp/thermal_test." + std::to_string(::getpid()) + "." + std::to_string(++_last)) {
        std::ofstream(_path, std::ios::binary) << text;
    }
    ~temporary_file() { std::remove(_path.c_str()); }
    temporary_file(const temporary_file&) = delete;
    temporary_file& operator=(const temporary_file&) = delete;

    const char* path() const { return _path.c_str(); }

private:
    inline static int _last = 0;
    std::string _path;
};
