#pragma once

#include <cstddef>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace sim {

// what() is "file:line: what is wrong"; line 0 stands for the file as a whole.
class csv_error : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// A comma-separated file with a header line, such as a trace or a load profile. Empty lines, lines that begin with '#',
// CR LF and blanks around a cell are fine; quoted cells are not. Cells are converted when a column is asked for, so a
// column of words does no harm until somebody wants numbers from it. Everything that can fail throws csv_error.
class csv_table {
public:
    static csv_table read(const std::string& file);
    // `file` is the name that errors show.
    static csv_table parse(std::string_view text, std::string file);

    std::size_t row_count() const { return _lines.size(); }
    // For errors that only a caller can see. `row` counts from 0; the message takes the form of all others.
    [[noreturn]] void fail_in_row(std::size_t row, const std::string& what) const { fail(_lines.at(row), what); }
    [[noreturn]] void fail(std::size_t line, const std::string& what) const;
    const std::vector<std::string>& columns() const { return _columns; }
    bool has(std::string_view column) const;

    // The column as finite numbers, decimal point whatever the locale.
    std::vector<double> numbers(std::string_view column) const;
    // The column as seconds that never decrease: plain numbers as they are; times count
    // from the first row (2025-10-28T08:00:00.4Z, 08:00:00.4).
    std::vector<double> seconds(std::string_view column) const;

private:
    std::size_t index_of(std::string_view column) const;
    void add_line(std::string_view line, std::size_t number);
    template <typename Convert>
    std::vector<double> convert(std::string_view column, const char* kind, Convert&& conversion) const;

    std::string _file;
    std::vector<std::string> _columns;
    std::vector<std::string> _cells;  // row by row
    std::vector<std::size_t> _lines;  // line number of each row
};

}  // namespace sim
