#pragma once

#include <sstream>
#include <string>

#include "foundation/ini_file.hpp"

// The rule file with this text, read.
struct rules_text : ini_file::std_handler {
    explicit rules_text(const std::string& text) {
        std::istringstream stream(text);
        ini_file::ini_file_reader(this).read_file(stream);
    }
};
