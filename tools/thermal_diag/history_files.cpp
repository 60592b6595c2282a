#include "tools/thermal_diag/history_files.hpp"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>
#include <tuple>
#include <utility>

namespace thermal_diag {

namespace {

constexpr std::size_t longest_line = 512;
constexpr std::int64_t latest_time = 253402300799;  // end of the year 9999

// In a pattern '#' stands for a number. The last one is the turn, the one ahead of it id.number, then id.group.
struct name_pattern {
    file_kind kind;
    std::string_view pattern;
    bool has_key = false;  // behind all that
};

constexpr name_pattern name_patterns[] = {
    {file_kind::fan, "debug_thermal_fan#.log.#"},
    {file_kind::cap, "debug_thermal_cap#.log.#"},
    {file_kind::slot, "debug_thermal_pwrlmt_#-#.log.#"},
    {file_kind::log, "log.#.#.#.", true},
    {file_kind::devices, "debug_thermal_device.log.#"},
    {file_kind::algorithms, "debug_thermal_algorithm.log.#"},
    {file_kind::schedule, "debug_thermal_device_scheduler.log.#"},
    {file_kind::store, "debug_thermal_dao.log.#"},
    {file_kind::sensor_keys, "debug_thermal_ipmi_sdr_map.log.#"},
};

// The whole text as a number, decimal point whatever the locale.
template <class Number>
std::optional<Number> number_of(std::string_view text) {
    Number number{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size()) {
        return std::nullopt;
    }
    return number;
}

std::optional<std::int64_t> time_of(std::string_view text) {
    const auto time = number_of<std::int64_t>(text);
    return time && *time >= 0 && *time <= latest_time ? time : std::nullopt;
}

std::optional<double> value_of(std::string_view text) {
    const auto value = number_of<double>(text);
    return value && std::isfinite(*value) ? value : std::nullopt;
}

// Takes `begin` and `end` from both sides of a line.
bool unwrap(std::string_view& line, std::string_view begin, std::string_view end) {
    if (line.size() < begin.size() + end.size() || !line.starts_with(begin) || !line.ends_with(end)) {
        return false;
    }
    line = line.substr(begin.size(), line.size() - begin.size() - end.size());
    return true;
}

std::pair<std::string_view, std::string_view> split(std::string_view text, std::string_view separator) {
    const std::size_t place = text.find(separator);
    return place == std::string_view::npos ? std::pair{text, std::string_view()}
                                           : std::pair{text.substr(0, place), text.substr(place + separator.size())};
}

// "metadata=[timestamp:1767225600, rcords:12]"
std::optional<closing_line> closing_of(std::string_view line) {
    if (!unwrap(line, "metadata=[timestamp:", "]")) {
        return std::nullopt;
    }
    const auto [seconds, count] = split(line, ", rcords:");
    const auto time = time_of(seconds);
    const auto records = number_of<std::int64_t>(count);
    return time && records ? std::optional<closing_line>({*time, *records}) : std::nullopt;
}

// "1767225600-common_thermal_algorithm_pid_v2.25-32.000000"; a name may have both signs in it.
std::optional<entry> winner_of(std::string_view line) {
    const std::size_t front = line.find('-');
    const std::size_t back = line.rfind('-');
    if (front == std::string_view::npos || front == back) {
        return std::nullopt;
    }
    const std::string_view rule = line.substr(front + 1, back - front - 1);
    const std::size_t point = rule.rfind('.');
    if (point == std::string_view::npos) {
        return std::nullopt;
    }
    const auto time = time_of(line.substr(0, front));
    const auto instance = number_of<std::int64_t>(rule.substr(point + 1));
    const auto value = value_of(line.substr(back + 1));
    if (!time || !instance || !value) {
        return std::nullopt;
    }
    return entry{*time, std::string(rule.substr(0, point)), *instance, *value};
}

// "3=[1767225600, 41.500000]"
std::optional<entry> sample_of(std::string_view line) {
    auto [number, sample] = split(line, "=");
    if (!number_of<std::uint32_t>(number) || !unwrap(sample, "[", "]")) {
        return std::nullopt;
    }
    const auto [seconds, reading] = split(sample, ", ");
    const auto time = time_of(seconds);
    const auto value = value_of(reading);
    return time && value ? std::optional<entry>({*time, {}, 0, *value}) : std::nullopt;
}

// Calls visit(line) for each line that has its end: a line without one was cut off.
template <class Visit>
void for_each_line(std::string_view text, Visit&& visit) {
    for (std::size_t end = text.find('\n'); end != std::string_view::npos; end = text.find('\n')) {
        visit(text.substr(0, end));
        text.remove_prefix(end + 1);
    }
}

// Takes what the pattern says from the front of a name.
bool match(std::string_view pattern, std::string_view& name, file_name& found) {
    constexpr std::size_t most_digits = 9;
    for (const char each : pattern) {
        if (each != '#') {
            if (!name.starts_with(each)) {
                return false;
            }
            name.remove_prefix(1);
            continue;
        }
        const std::size_t digits = std::min(name.find_first_not_of("0123456789"), name.size());
        const auto number = number_of<std::int32_t>(name.substr(0, std::min(digits, most_digits)));
        if (!number || digits > most_digits) {
            return false;
        }
        name.remove_prefix(digits);
        found.id.group = std::exchange(found.id.number, std::exchange(found.turn, *number));
    }
    return true;
}

bool is_same(const entry& one, const entry& other) {
    return std::tie(one.winner, one.instance, one.value) == std::tie(other.winner, other.instance, other.value);
}

// Where a file stands among the others of its history; one that was cut off, ahead of the next attempt.
std::tuple<std::int64_t, std::int64_t, bool> place_of(const history_file& file) {
    const auto& [entries, end, strange, first_strange] = file.text;
    const std::int64_t last = end ? end->time : entries.empty() ? 0 : entries.back().time;
    return {entries.empty() ? last : entries.front().time, last, end.has_value()};
}

// What did not reach a file as a whole, on a full disk for instance, the next one has again.
void drop_what_comes_again(std::vector<history_file>& files) {
    for (std::size_t i = 0; i + 1 < files.size(); ++i) {
        const auto& next = files[i + 1].text.entries;
        if (!files[i].text.end && !next.empty()) {
            std::erase_if(files[i].text.entries, [&next](const entry& each) { return each.time >= next.front().time; });
        }
    }
}

void append(const history_file& file, std::vector<span>& spans) {
    const auto& entries = file.text.entries;
    bool is_first = true;
    for (const entry& each : entries) {
        const bool is_repeated =
            is_first && !spans.empty() && spans.back().until == each.time && is_same(spans.back().what, each);
        if (!is_first) {
            spans.back().until = each.time;
            spans.back().went_on = false;
        }
        if (!is_repeated) {
            // Only the file of turn 0 begins with a change; the others with what the one ahead of them ended with.
            const bool began_before = is_first && file.turn != 0;
            spans.push_back({each.time, each.time, began_before, true, each, each.value});
        }
        is_first = false;
    }
    if (!entries.empty() && file.text.end) {
        spans.back().until = file.text.end->time;
    }
}

}  // namespace

std::optional<file_name> identify(std::string_view name) {
    for (const name_pattern& row : name_patterns) {
        file_name found{{row.kind}};
        std::string_view rest = name;
        if (!match(row.pattern, rest, found)) {
            continue;
        }
        found.id.key = rest;
        const bool has_instance = number_of<std::int64_t>(rest.substr(rest.rfind('.') + 1)).has_value();
        const bool is_key = row.has_key ? has_instance && rest.find('.') != std::string_view::npos : rest.empty();
        const bool is_kind = row.kind != file_kind::cap || found.id.number < cap_kinds;
        return is_key && is_kind ? std::optional(std::move(found)) : std::nullopt;
    }
    return std::nullopt;
}

file_text parse(file_kind kind, std::string_view text) {
    file_text parsed;
    std::size_t number = 0;
    for_each_line(text, [&](std::string_view line) {
        ++number;
        parsed.end = closing_of(line);
        if (line.empty() || parsed.end || is_snapshot(kind)) {
            return;
        }
        std::optional<entry> read;
        if (line.size() <= longest_line) {
            read = kind == file_kind::log ? sample_of(line) : winner_of(line);
        }
        if (read) {
            parsed.entries.push_back(std::move(*read));
        } else if (parsed.strange_lines++ == 0) {
            parsed.first_strange_line = number;
        }
    });
    return parsed;
}

history merge(std::vector<history_file> files) {
    std::ranges::stable_sort(files, {}, place_of);
    drop_what_comes_again(files);
    history merged;
    for (const history_file& file : files) {
        if (!merged.spans.empty() && !file.text.entries.empty() &&
            file.text.entries.front().time < merged.spans.back().until) {
            merged.overlapping.push_back(file.name);
        }
        append(file, merged.spans);
    }
    return merged;
}

std::vector<span> by_winner(const std::vector<span>& spans) {
    std::vector<span> merged;
    for (const span& each : spans) {
        if (merged.empty() || merged.back().until != each.from || merged.back().what.winner != each.what.winner ||
            merged.back().what.instance != each.what.instance) {
            merged.push_back(each);
            continue;
        }
        span& last = merged.back();
        last.until = each.until;
        last.went_on = each.went_on;
        last.what.value = std::min(last.what.value, each.what.value);
        last.highest = std::max(last.highest, each.highest);
    }
    return merged;
}

rule_names names_in_snapshot(std::string_view text) {
    enum class expected { rule_head, rule, result } next = expected::rule_head;
    rule_names names;
    std::string rule;
    for_each_line(text, [&](std::string_view line) {
        if (line == "[name.instance]") {
            next = expected::rule;
        } else if (next == expected::rule) {
            rule = line;
            next = expected::result;
        } else if (next == expected::result && line.starts_with("custom.")) {
            line = line.substr(0, line.rfind('='));
            if (unwrap(line, "custom.", ".result.1")) {
                names[rule] = line;
            }
            next = expected::rule_head;
        }
    });
    return names;
}

}  // namespace thermal_diag
