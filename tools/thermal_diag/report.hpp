#pragma once

#include <cstdio>
#include <optional>
#include <string>
#include <vector>

#include "tools/thermal_diag/history_files.hpp"

// What thermal-diag prints, as a table or as CSV.
namespace thermal_diag {

struct style {
    bool csv = false;
    bool seconds = false;  // times since 1970 in place of local ones
};

struct row {
    history_id id;
    span what;
};

struct file_row {
    std::string name;
    history_id id;
    std::optional<std::int64_t> time;  // when it was written
    std::optional<std::int64_t> records;
    std::string fault;  // empty if it is whole
};

void print_winners(std::FILE* file, std::vector<row> rows, const rule_names& names, const style& style);
void print_log(std::FILE* file, std::vector<row> rows, const rule_names& names, const style& style);
// Newest first.
void print_files(std::FILE* file, std::vector<file_row> rows, const style& style);

// By number, or by name with blanks, '-' or '_' between its words; nothing of another text.
std::optional<std::int64_t> cap_kind_of(std::string text);
// "processors, memory, ..."
std::string cap_names();

// Without control characters, which a terminal would obey.
std::string printable(std::string text);

}  // namespace thermal_diag
