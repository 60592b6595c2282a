#include "sim/csv.hpp"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cmath>
#include <cstring>
#include <fstream>
#include <optional>
#include <utility>

namespace sim {

namespace {

constexpr std::size_t largest_file = std::size_t{64} * 1024 * 1024;

std::string_view trimmed(std::string_view text) {
    constexpr std::string_view blanks = " \t\r";
    const std::size_t first = text.find_first_not_of(blanks);
    return first == std::string_view::npos ? std::string_view()
                                           : text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

// Takes the text up to `separator` off the front of `text`; without a separator all of it.
std::string_view cut(std::string_view& text, char separator) {
    const std::size_t end = std::min(text.find(separator), text.size());
    const std::string_view front = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    return front;
}

// Cells come from files of strangers: an error shows no more than a line can hold and no control characters.
std::string quoted(std::string_view cell) {
    std::string shown(cell.substr(0, 40));
    std::replace_if(
        shown.begin(), shown.end(), [](char c) { return static_cast<unsigned char>(c) < 0x20; }, '?');
    return "'" + shown + (cell.size() > 40 ? "...'" : "'");
}

template <typename Number>
std::optional<Number> number_in(std::string_view text) {
    Number value{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size()) {
        return std::nullopt;
    }
    return value;
}

std::optional<double> finite_number(std::string_view text) {
    const auto value = number_in<double>(text);
    return value && std::isfinite(*value) ? value : std::nullopt;
}

std::optional<double> days_since_1970(std::string_view date) {
    const auto year = number_in<int>(cut(date, '-'));
    const auto month = number_in<unsigned>(cut(date, '-'));
    const auto day = number_in<unsigned>(date);
    if (!year || !month || !day) {
        return std::nullopt;
    }
    const std::chrono::year_month_day ymd{std::chrono::year(*year), std::chrono::month(*month), std::chrono::day(*day)};
    if (!ymd.ok()) {
        return std::nullopt;
    }
    return static_cast<double>(std::chrono::sys_days(ymd).time_since_epoch().count());
}

std::optional<double> time_stamp(std::string_view text) {
    double days = 0.0;
    if (text.find('T') != std::string_view::npos) {
        const auto date = days_since_1970(cut(text, 'T'));
        if (!date) {
            return std::nullopt;
        }
        days = *date;
    }
    if (text.ends_with('Z')) {
        text.remove_suffix(1);
    }
    const auto hours = number_in<unsigned>(cut(text, ':'));
    const auto minutes = number_in<unsigned>(cut(text, ':'));
    const auto seconds = finite_number(text);
    if (!hours || *hours > 23 || !minutes || *minutes > 59 || !seconds || *seconds < 0.0 || *seconds >= 61.0) {
        return std::nullopt;
    }
    return days * 86400.0 + *hours * 3600.0 + *minutes * 60.0 + *seconds;
}

std::string contents(const std::string& file) {
    errno = 0;
    std::ifstream stream(file, std::ios::binary);
    std::string text;
    char block[4096];
    while (stream && text.size() <= largest_file) {
        stream.read(block, sizeof block);
        text.append(block, static_cast<std::size_t>(stream.gcount()));
    }
    if (!stream.eof() && text.size() <= largest_file) {
        throw csv_error(file + ":0: cannot be read" + (errno != 0 ? ": " + std::string(std::strerror(errno)) : ""));
    }
    if (text.size() > largest_file) {
        throw csv_error(file + ":0: larger than 64 MB");
    }
    return text;
}

}  // namespace

csv_table csv_table::read(const std::string& file) { return parse(contents(file), file); }

csv_table csv_table::parse(std::string_view text, std::string file) {
    csv_table table;
    table._file = std::move(file);
    if (text.starts_with("\xEF\xBB\xBF")) {
        text.remove_prefix(3);
    }
    for (std::size_t number = 1; !text.empty(); ++number) {
        const std::string_view line = trimmed(cut(text, '\n'));
        if (!line.empty() && line.front() != '#') {
            table.add_line(line, number);
        }
    }
    if (table._columns.empty()) {
        table.fail(0, "no header line");
    }
    return table;
}

void csv_table::add_line(std::string_view line, std::size_t number) {
    if (line.find('"') != std::string_view::npos || line.find('\0') != std::string_view::npos) {
        fail(number, "quotes and binary data are not supported");
    }
    const auto cells = static_cast<std::size_t>(std::count(line.begin(), line.end(), ',')) + 1;
    const bool header = _columns.empty();
    if (!header && cells != _columns.size()) {
        fail(number, std::to_string(cells) + " cells where the header has " + std::to_string(_columns.size()));
    }
    for (std::size_t cell = 0; cell < cells; ++cell) {
        const std::string_view content = trimmed(cut(line, ','));
        if (header && (content.empty() || has(content))) {
            fail(number, content.empty() ? "a column has no name" : "two columns are named " + quoted(content));
        }
        (header ? _columns : _cells).emplace_back(content);
    }
    if (!header) {
        _lines.push_back(number);
    }
}

bool csv_table::has(std::string_view column) const {
    return std::find(_columns.begin(), _columns.end(), column) != _columns.end();
}

std::size_t csv_table::index_of(std::string_view column) const {
    const auto found = std::find(_columns.begin(), _columns.end(), column);
    if (found == _columns.end()) {
        std::string names;
        for (const std::string& name : _columns) {
            names += " " + name;
        }
        fail(0, "no column " + quoted(column) + ", there are:" + names);
    }
    return static_cast<std::size_t>(found - _columns.begin());
}

void csv_table::fail(std::size_t line, const std::string& what) const {
    throw csv_error(_file + ":" + std::to_string(line) + ": " + what);
}

template <typename Convert>
std::vector<double> csv_table::convert(std::string_view column, const char* kind, Convert&& conversion) const {
    const std::size_t index = index_of(column);
    std::vector<double> values;
    values.reserve(row_count());
    for (std::size_t row = 0; row < row_count(); ++row) {
        const std::string& cell = _cells[row * _columns.size() + index];
        const std::optional<double> value = conversion(cell);
        if (!value) {
            fail(_lines[row], "column " + quoted(column) + ": " + quoted(cell) + " is no " + kind);
        }
        values.push_back(*value);
    }
    return values;
}

std::vector<double> csv_table::numbers(std::string_view column) const {
    return convert(column, "finite number", finite_number);
}

std::vector<double> csv_table::seconds(std::string_view column) const {
    const std::size_t index = index_of(column);
    const bool plain = row_count() > 0 && finite_number(_cells[index]).has_value();
    std::vector<double> times = plain ? numbers(column) : convert(column, "time", time_stamp);
    const double start = plain || times.empty() ? 0.0 : times.front();
    for (std::size_t row = 0; row < times.size(); ++row) {
        times[row] -= start;
        if (row > 0 && times[row] < times[row - 1]) {
            fail(_lines[row], "the time in column " + quoted(column) + " runs backwards");
        }
    }
    return times;
}

}  // namespace sim
