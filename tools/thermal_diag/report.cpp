#include "tools/thermal_diag/report.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <ctime>
#include <string_view>
#include <tuple>
#include <utility>

#include "tools/text.hpp"

namespace thermal_diag {

namespace {

constexpr double no_cap = 65535.0;
constexpr std::int64_t host_power = 6;

struct cap {
    const char* name;
    const char* unit;
};
// By kind.
constexpr std::array<cap, cap_kinds> caps{{{"processors", "W"},
                                           {"memory", "W"},
                                           {"system", "W"},
                                           {"drives", "level"},
                                           {"memory share", "%"},
                                           {"fan maximum", "%"},
                                           {"host power", ""}}};

const cap& cap_of(const history_id& id) { return caps[static_cast<std::size_t>(id.number)]; }

// The shortest text that reads back as the same number.
std::string number_text(double value) {
    std::array<char, 400> text{};
    const auto end = std::to_chars(text.data(), text.data() + text.size(), value, std::chars_format::fixed).ptr;
    return {text.data(), end};
}

std::string time_text(std::int64_t time, const style& style) {
    const auto seconds = static_cast<std::time_t>(time);
    std::tm local{};
    std::array<char, 32> text{};
    if (style.seconds || ::localtime_r(&seconds, &local) == nullptr ||
        std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%S", &local) == 0) {
        return std::to_string(time);
    }
    return text.data();
}

// "1:02:05", with "> " ahead where it lasted longer than the files know.
std::string lasted_text(const span& span) {
    const std::int64_t seconds = span.until - span.from;
    if (seconds < 0) {
        return "clock set back";
    }
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%s%lld:%02lld:%02lld", span.began_before || span.went_on ? "> " : "",
                  static_cast<long long>(seconds / 3600), static_cast<long long>(seconds / 60 % 60),
                  static_cast<long long>(seconds % 60));
    return text.data();
}

bool is_nobody(const entry& entry) { return entry.winner.empty() || entry.winner == "NA"; }

bool is_no_limit(const history_id& id, double value) {
    return (id.kind == file_kind::cap && value == no_cap) ||
           (id.kind == file_kind::slot && (value == 0.0 || value == 100.0));
}

const char* unit_of(const history_id& id) { return id.kind == file_kind::cap ? cap_of(id).unit : "%"; }

std::string value_text(const history_id& id, double value) {
    const bool is_host_power = id.kind == file_kind::cap && id.number == host_power;
    if (is_no_limit(id, value)) {
        return id.kind == file_kind::slot ? "no limit" : is_host_power ? "allowed" : "no cap";
    }
    if (is_host_power) {
        return value == 0.0 ? "withdrawn" : "allowed";
    }
    const std::string number = number_text(value);
    const std::string unit = unit_of(id);
    return unit == "level" ? "level " + number : number + " " + unit;
}

std::string value_text(const row& row) {
    const std::string lowest = value_text(row.id, row.what.what.value);
    const std::string highest = value_text(row.id, row.what.highest);
    return lowest == highest ? lowest : lowest + " to " + highest;
}

std::string type_text(const entry& entry) {
    constexpr std::string_view prefix = "common_thermal_algorithm_";
    const std::string_view name = entry.winner;
    const std::string_view type = name.starts_with(prefix) ? name.substr(prefix.size()) : name;
    return is_nobody(entry) ? "" : printable(std::string(type) + "." + std::to_string(entry.instance));
}

// The rule's NAME, empty if it is not known, or who it was that is no rule.
std::string winner_text(const entry& entry, const rule_names& names) {
    if (is_nobody(entry)) {
        return "nobody";
    }
    if (entry.winner == "manual_fan_speed") {
        return "operator";
    }
    const auto name = names.find(entry.winner + "." + std::to_string(entry.instance));
    return name != names.end() ? printable(name->second) : "";
}

std::string subject_text(const history_id& id, const std::vector<std::int64_t>& numbers) {
    const std::string several = numbers.size() > 1 ? "s " : " ";
    if (id.kind == file_kind::cap) {
        return std::string("cap ") + cap_of(id).name;
    }
    return id.kind == file_kind::fan
               ? "fan" + several + ranges_text(numbers)
               : "location " + std::to_string(id.group) + " slot" + several + ranges_text(numbers);
}

const char* kind_text(file_kind kind) {
    return kind == file_kind::fan ? "fan" : kind == file_kind::cap ? "cap" : "slot";
}

std::string csv_subject(const history_id& id) {
    return id.kind == file_kind::cap    ? cap_of(id).name
           : id.kind == file_kind::slot ? std::to_string(id.group) + "-" + std::to_string(id.number)
                                        : std::to_string(id.number);
}

std::string content_text(const history_id& id) {
    switch (id.kind) {
        case file_kind::log:
            return "log of rule " + std::to_string(id.group) + ", record " + std::to_string(id.number);
        case file_kind::devices:
            return "state of all devices";
        case file_kind::algorithms:
            return "state of all rules";
        case file_kind::schedule:
            return "schedule";
        case file_kind::store:
            return "all values";
        case file_kind::sensor_keys:
            return "values of the IPMI sensors";
        default:
            return "winners of " + subject_text(id, {id.number});
    }
}

using cells = std::vector<std::string>;

// The first row is the head; an empty cell is "-".
void print_table(std::FILE* file, const std::vector<cells>& rows) {
    std::vector<std::size_t> widths(rows.front().size());
    for (const cells& row : rows) {
        for (std::size_t i = 0; i < row.size(); ++i) {
            widths[i] = std::max({widths[i], columns_of(row[i]), std::size_t{1}});
        }
    }
    for (const cells& row : rows) {
        std::string line;
        for (std::size_t i = 0; i < row.size(); ++i) {
            line += padded(row[i].empty() ? "-" : row[i], widths[i] + 2);
        }
        std::fprintf(file, "%s\n", line.substr(0, line.find_last_not_of(' ') + 1).c_str());
    }
}

std::string csv_cell(const std::string& text) {
    if (text.find_first_of(",\"\r\n") == std::string::npos) {
        return text;
    }
    std::string quoted = "\"";
    for (const char each : text) {
        quoted.append(each == '"' ? 2 : 1, each);
    }
    return quoted + '"';
}

void print_csv(std::FILE* file, const std::vector<cells>& rows) {
    for (const cells& row : rows) {
        for (std::size_t i = 0; i < row.size(); ++i) {
            std::fprintf(file, "%s%s", i > 0 ? "," : "", csv_cell(row[i]).c_str());
        }
        std::fprintf(file, "\n");
    }
}

void print_legend(std::FILE* file, const std::vector<row>& rows) {
    if (std::ranges::any_of(rows, [](const row& row) { return row.what.began_before || row.what.went_on; })) {
        std::fprintf(file,
                     "\n> at least: it stood there before the files begin, or still did when they were written\n");
    }
}

// What fans or slots have in common when they do the same at the same time.
auto doing(const row& row) {
    const auto& [from, until, began_before, went_on, what, highest] = row.what;
    return std::tie(from, row.id.kind, row.id.group, until, began_before, went_on, what.winner, what.instance,
                    what.value, highest);
}

bool are_alike(const row& one, const row& other) { return one.id.kind != file_kind::cap && doing(one) == doing(other); }

void print_winners_csv(std::FILE* file, const std::vector<row>& rows, const rule_names& names, const style& style) {
    std::vector<cells> lines{{"target", "id", "from", "until", "lasted_s", "rule", "class", "instance", "lowest",
                              "highest", "unit", "began_before", "went_on"}};
    for (const row& row : rows) {
        const span& span = row.what;
        const bool is_nobody_there = is_nobody(span.what);
        const auto number = [&row](double value) { return is_no_limit(row.id, value) ? "" : number_text(value); };
        lines.push_back({kind_text(row.id.kind), csv_subject(row.id), time_text(span.from, style),
                         time_text(span.until, style), std::to_string(span.until - span.from),
                         winner_text(span.what, names), is_nobody_there ? "" : printable(span.what.winner),
                         is_nobody_there ? "" : std::to_string(span.what.instance), number(span.what.value),
                         number(span.highest), unit_of(row.id), span.began_before ? "1" : "0",
                         span.went_on ? "1" : "0"});
    }
    print_csv(file, lines);
}

void sort_by_time(std::vector<row>& rows) {
    std::ranges::stable_sort(rows, {}, [](const row& row) { return std::tie(row.what.from, row.id); });
}

}  // namespace

void print_winners(std::FILE* file, std::vector<row> rows, const rule_names& names, const style& style) {
    sort_by_time(rows);
    if (style.csv) {
        return print_winners_csv(file, rows, names, style);
    }
    std::ranges::stable_sort(rows, {}, doing);
    std::vector<cells> lines{{"from", "until", "lasted", "target", "value", "rule", "type.place"}};
    for (std::size_t begin = 0, end = 0; begin < rows.size(); begin = end) {
        const row& first = rows[begin];
        std::vector<std::int64_t> numbers;
        for (end = begin; end == begin || (end < rows.size() && are_alike(first, rows[end])); ++end) {
            numbers.push_back(rows[end].id.number);
        }
        lines.push_back({time_text(first.what.from, style), time_text(first.what.until, style), lasted_text(first.what),
                         subject_text(first.id, numbers), value_text(first), winner_text(first.what.what, names),
                         type_text(first.what.what)});
    }
    print_table(file, lines);
    print_legend(file, rows);
}

void print_log(std::FILE* file, std::vector<row> rows, const rule_names& names, const style& style) {
    sort_by_time(rows);
    std::vector<cells> lines;
    if (style.csv) {
        lines.push_back(
            {"from", "until", "lasted_s", "value", "key", "rule", "instance", "record", "began_before", "went_on"});
    } else {
        lines.push_back({"from", "until", "lasted", "value", "key", "rule", "place"});
    }
    for (const row& row : rows) {
        const span& span = row.what;
        const std::string rule =
            winner_text({.winner = "common_thermal_algorithm_log", .instance = row.id.group}, names);
        cells line{time_text(span.from, style),
                   time_text(span.until, style),
                   style.csv ? std::to_string(span.until - span.from) : lasted_text(span),
                   number_text(span.what.value),
                   printable(row.id.key),
                   rule,
                   std::to_string(row.id.group)};
        if (style.csv) {
            line.insert(line.end(),
                        {std::to_string(row.id.number), span.began_before ? "1" : "0", span.went_on ? "1" : "0"});
        }
        lines.push_back(std::move(line));
    }
    if (style.csv) {
        print_csv(file, lines);
    } else {
        print_table(file, lines);
        print_legend(file, rows);
    }
}

void print_files(std::FILE* file, std::vector<file_row> rows, const style& style) {
    std::ranges::stable_sort(rows, std::greater{}, [](const file_row& row) { return row.time.value_or(-1); });
    std::vector<cells> lines{{"written", "records", "file", "content", "state"}};
    for (const file_row& row : rows) {
        lines.push_back({row.time ? time_text(*row.time, style) : "", row.records ? std::to_string(*row.records) : "",
                         printable(row.name), content_text(row.id), row.fault.empty() ? "whole" : row.fault});
    }
    if (style.csv) {
        print_csv(file, lines);
    } else {
        print_table(file, lines);
    }
}

std::optional<std::int64_t> cap_kind_of(std::string text) {
    std::ranges::replace_if(
        text, [](char each) { return each == '-' || each == '_'; }, ' ');
    for (std::size_t kind = 0; kind < caps.size(); ++kind) {
        if (text == caps[kind].name || text == std::to_string(kind)) {
            return static_cast<std::int64_t>(kind);
        }
    }
    return std::nullopt;
}

std::string cap_names() {
    std::string names;
    for (const cap& each : caps) {
        names.append(names.empty() ? "" : ", ").append(each.name);
    }
    return names;
}

// A character of two bytes, 0xC2 and one from 0x80 to 0x9F, is a control character too.
std::string printable(std::string text) {
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        const bool is_second =
            i > 0 && static_cast<unsigned char>(text[i - 1]) == 0xC2u && byte >= 0x80u && byte < 0xA0u;
        if (byte < 0x20u || byte == 0x7Fu || is_second) {
            text[i] = '?';
        }
    }
    return text;
}

}  // namespace thermal_diag
