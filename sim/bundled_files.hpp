#pragma once

#include <string>
#include <string_view>

namespace sim {

// Files below examples/ as they were at build time, so that a program finds them from anywhere.
extern const std::string_view bundled_rules;
extern const std::string_view bundled_profile;

// A file below the temporary directory, for code that reads by path; removed with the object.
class temporary_file {
public:
    explicit temporary_file(std::string_view content);
    ~temporary_file();
    temporary_file(const temporary_file&) = delete;
    temporary_file& operator=(const temporary_file&) = delete;

    const std::string& path() const { return _path; }
    void write(std::string_view content) const;

private:
    std::string _path;
};

}  // namespace sim
