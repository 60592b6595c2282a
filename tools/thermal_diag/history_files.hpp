#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

// The files that the library leaves for a service engineer: their names, their text, and the unbroken story that the
// files of one history tell together. Text may be torn, foreign or hostile; what makes no sense is counted and left out.
// Times are seconds since 1970.
namespace thermal_diag {

enum class file_kind { fan, cap, slot, log, devices, algorithms, schedule, store, sensor_keys };

constexpr std::int64_t cap_kinds = 7;

constexpr bool is_snapshot(file_kind kind) { return kind > file_kind::log; }

// What the files of one rotation are about.
struct history_id {
    file_kind kind = file_kind::fan;
    std::int64_t group = 0;   // location of a slot, rule of a log
    std::int64_t number = 0;  // fan, kind of cap, slot, record in a log's rule
    std::string key{};        // value that is logged

    bool operator==(const history_id&) const = default;
    bool operator<(const history_id& other) const {
        return std::tie(kind, group, number, key) < std::tie(other.kind, other.group, other.number, other.key);
    }
};

struct file_name {
    history_id id{};
    std::int32_t turn = 0;  // number in the rotation
};
std::optional<file_name> identify(std::string_view name);

// Who won, or a logged value, which nobody won.
struct entry {
    std::int64_t time = 0;
    std::string winner{};       // class of the rule
    std::int64_t instance = 0;  // place of the rule among those built, from 1
    double value = 0.0;
};

struct closing_line {
    std::int64_t time = 0;
    std::int64_t records = 0;

    bool operator==(const closing_line&) const = default;
};

struct file_text {
    std::vector<entry> entries{};        // none of a snapshot
    std::optional<closing_line> end{};   // nothing where the file was cut off
    std::size_t strange_lines = 0;       // that are no entries
    std::size_t first_strange_line = 0;  // from 1
};
file_text parse(file_kind kind, std::string_view text);

// A winner, or a logged value, for as long as it stood.
struct span {
    std::int64_t from = 0;
    std::int64_t until = 0;
    bool began_before = false;  // it stood there already when the files begin
    bool went_on = false;       // it still stood there when its file was written
    entry what{};
    double highest = 0.0;
};

struct history {
    std::vector<span> spans;
    std::vector<std::string> overlapping;  // names of files that begin before the one ahead of them ends
};

struct history_file {
    std::string name{};
    int turn = 0;
    file_text text{};
};
// The files of one history in any order: what a file repeats of the one ahead of it is one span.
history merge(std::vector<history_file> files);

// Spans that follow each other and have the same winner become one, from its lowest value to its highest.
std::vector<span> by_winner(const std::vector<span>& spans);

// The NAME of each rule, by class and place ("common_thermal_algorithm_pid.3").
using rule_names = std::map<std::string, std::string, std::less<>>;
rule_names names_in_snapshot(std::string_view text);

}  // namespace thermal_diag
