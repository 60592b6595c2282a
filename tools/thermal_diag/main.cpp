#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <cstdio>
#include <ctime>
#include <functional>
#include <limits>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "foundation/diagnostic_file.hpp"
#include "tools/thermal_diag/diagnostic_directory.hpp"
#include "tools/thermal_diag/report.hpp"

using namespace thermal_diag;

namespace {

constexpr int exit_done = 0;
constexpr int exit_bad_input = 2;

struct arguments {
    std::string directory = diagnostics_directory;
    std::vector<std::int64_t> fans;
    std::vector<std::string> caps;
    std::vector<std::string> slots;
    std::vector<std::string> keys;
    std::string since;
    std::string until;
    std::string rules;
    bool brief = false;
    style shown;
};

// A message for the user and exit code 2.
struct bad_input : std::runtime_error {
    using std::runtime_error::runtime_error;
};

constexpr const char* description =
    "Shows what the thermal library wrote for a service engineer: which rule won each fan, cap and slot, and when.\n"
    "\n"
    "The library writes when it is asked to, or when a history is full. To ask: an IPMI command with the network\n"
    "function 0x3A and the command 0x06, followed by 2 for histories, 1 for snapshots, 0 for logs, 3 for the "
    "schedule;\n"
    "or thermal-sim --snapshot. A rule has its NAME from the newest snapshot of the rules.";

constexpr const char* footer =
    "Exit: 0 done, 2 bad usage or a directory that cannot be read. A file that is torn or strange is told on the\n"
    "standard error output; what it holds is shown.\n"
    "\n"
    "Examples:\n"
    "  thermal-diag --fan 3 --brief\n"
    "  thermal-diag --cap processors --cap system --since 2026-01-01T12:00\n"
    "  thermal-diag winners /mnt/copy --csv --seconds > winners.csv\n"
    "  thermal-diag log --key inlet\n"
    "  thermal-diag files";

struct commands {
    CLI::App* log;
    CLI::App* files;
};

commands add_options(CLI::App& app, arguments& given) {
    app.footer("Caps: " + cap_names() + "; or their numbers, from 0.\n" + footer);
    app.require_subcommand(0, 1);
    app.fallthrough();
    app.add_option("directory", given.directory, "where the files are, /tmp/thermal unless given")
        ->type_name("DIRECTORY");
    app.add_flag("--csv", given.shown.csv, "comma-separated values in place of the table");
    app.add_flag("--seconds", given.shown.seconds, "times as seconds since 1970 in place of local time");
    app.add_option("--since", given.since, "leave out what was over by then: 2026-01-01T12:30:00, or seconds")
        ->type_name("TIME");
    app.add_option("--until", given.until, "leave out what came later")->type_name("TIME");
    app.add_option("--rules", given.rules, "take the NAME of each rule from this rule file")->type_name("FILE");
    auto* fans = app.add_option("--fan", given.fans, "this fan; repeatable, as the next two")->type_name("NUMBER");
    auto* caps =
        app.add_option("--cap", given.caps, "this cap: " + cap_names() + ", or its number from 0")->type_name("NAME");
    auto* slots = app.add_option("--slot", given.slots, "this slot, also as LOCATION-NUMBER")->type_name("NUMBER");
    auto* brief = app.add_flag("--brief", given.brief, "a row for each winner, with its lowest and highest value");

    app.add_subcommand("winners", "who won each fan, cap and slot; done unless another one is named");
    auto* log = app.add_subcommand("log", "what log rules recorded");
    log->add_option("--key", given.keys, "values whose name has this in it; repeatable")
        ->type_name("TEXT")
        ->allow_extra_args(false);
    auto* files = app.add_subcommand("files", "which files there are, newest first");
    for (CLI::Option* of_winners : {fans, caps, slots, brief}) {
        of_winners->allow_extra_args(false);
        log->excludes(of_winners);
        files->excludes(of_winners);
    }
    return {log, files};
}

std::optional<std::int64_t> whole_number(std::string_view text) {
    std::int64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end == text.data() + text.size() ? std::optional(number) : std::nullopt;
}

std::int64_t time_of(const char* option, const std::string& text, std::int64_t unless_given) {
    if (text.empty()) {
        return unless_given;
    }
    if (const auto seconds = whole_number(text)) {
        return *seconds;
    }
    for (const char* format :
         {"%Y-%m-%dT%H:%M:%S", "%Y-%m-%d %H:%M:%S", "%Y-%m-%dT%H:%M", "%Y-%m-%d %H:%M", "%Y-%m-%d"}) {
        std::tm local{};
        local.tm_isdst = -1;
        const char* end = ::strptime(text.c_str(), format, &local);
        if (end != nullptr && *end == '\0') {
            return std::mktime(&local);
        }
    }
    throw bad_input(std::string(option) + ": '" + text + "' is neither a time, as 2026-01-01T12:30:00, nor seconds");
}

// Whose winners are shown: all, unless some are named.
class wanted_winners {
public:
    explicit wanted_winners(const arguments& given) {
        for (const std::int64_t fan : given.fans) {
            _fans_and_caps.emplace_back(file_kind::fan, fan);
        }
        for (const std::string& name : given.caps) {
            const auto kind = cap_kind_of(name);
            if (!kind) {
                throw bad_input("--cap: '" + name + "' is none of " + cap_names());
            }
            _fans_and_caps.emplace_back(file_kind::cap, *kind);
        }
        for (const std::string& slot : given.slots) {
            add_slot(slot);
        }
    }

    bool contain(const history_id& id) const {
        if (id.kind == file_kind::log) {
            return false;
        }
        const bool all = _fans_and_caps.empty() && _slots.empty();
        return all || std::ranges::count(_fans_and_caps, std::pair{id.kind, id.number}) > 0 ||
               (id.kind == file_kind::slot && std::ranges::any_of(_slots, [&id](const auto& slot) {
                    return slot.second == id.number && slot.first.value_or(id.group) == id.group;
                }));
    }

private:
    void add_slot(const std::string& text) {
        const std::size_t separator = text.find('-');
        const auto location = whole_number(std::string_view(text).substr(0, separator));
        const auto number =
            separator == std::string::npos ? location : whole_number(std::string_view(text).substr(separator + 1));
        if (!location || !number) {
            throw bad_input("--slot: '" + text + "' is neither NUMBER nor LOCATION-NUMBER");
        }
        _slots.emplace_back(separator == std::string::npos ? std::nullopt : location, *number);
    }

    std::vector<std::pair<file_kind, std::int64_t>> _fans_and_caps;
    std::vector<std::pair<std::optional<std::int64_t>, std::int64_t>> _slots;  // location, if it matters, and number
};

bool is_wanted_log(const arguments& given, const history_id& id) {
    return id.kind == file_kind::log && (given.keys.empty() || std::ranges::any_of(given.keys, [&id](const auto& key) {
                                             return id.key.find(key) != std::string::npos;
                                         }));
}

std::vector<row> rows_of(const diagnostic_directory& directory, const arguments& given,
                         const std::function<bool(const history_id&)>& is_wanted) {
    const std::int64_t since = time_of("--since", given.since, std::numeric_limits<std::int64_t>::min());
    const std::int64_t until = time_of("--until", given.until, std::numeric_limits<std::int64_t>::max());
    std::vector<row> rows;
    for (const auto& [id, history] : directory.histories(is_wanted)) {
        for (const span& span : given.brief ? by_winner(history.spans) : history.spans) {
            if (std::max(span.from, span.until) >= since && span.from <= until) {
                rows.push_back({id, span});
            }
        }
    }
    if (rows.empty()) {
        std::fprintf(stderr, "%s: nothing to show; --help tells how to ask for files\n", directory.path().c_str());
    }
    return rows;
}

std::vector<file_row> file_rows(const diagnostic_directory& directory) {
    std::vector<file_row> rows;
    for (const auto& file : directory.files()) {
        const file_kind kind = file.is.id.kind;
        file_row shown{file.name, file.is.id, std::nullopt, std::nullopt, "unreadable"};
        if (const auto text = directory.read(file)) {
            const file_text parsed = parse(kind, *text);
            shown.fault = fault_of(kind, parsed);
            if (parsed.end) shown.time = parsed.end->time;
            if (!is_snapshot(kind)) {
                shown.records = static_cast<std::int64_t>(parsed.entries.size());
            } else if (parsed.end) {
                shown.records = parsed.end->records;
            }
        }
        rows.push_back(std::move(shown));
    }
    return rows;
}

void run(const arguments& given, const commands& called) {
    const diagnostic_directory directory(given.directory, [](const std::string& name, const std::string& what) {
        std::fprintf(stderr, "%s: %s\n", printable(name).c_str(), what.c_str());
    });
    if (called.files->parsed()) {
        return print_files(stdout, file_rows(directory), given.shown);
    }
    const rule_names names = given.rules.empty() ? directory.names() : names_in_rule_file(given.rules);
    if (called.log->parsed()) {
        const auto is_wanted = [&given](const history_id& id) { return is_wanted_log(given, id); };
        return print_log(stdout, rows_of(directory, given, is_wanted), names, given.shown);
    }
    const wanted_winners wanted(given);
    const auto is_wanted = [&wanted](const history_id& id) { return wanted.contain(id); };
    print_winners(stdout, rows_of(directory, given, is_wanted), names, given.shown);
}

}  // namespace

int main(int argc, char** argv) {
    try {
        arguments given;
        CLI::App app(description, "thermal-diag");
        const commands called = add_options(app, given);
        try {
            app.parse(argc, argv);
        } catch (const CLI::ParseError& error) {
            return app.exit(error) == 0 ? exit_done : exit_bad_input;
        }
        run(given, called);
        return exit_done;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return exit_bad_input;
    }
}
