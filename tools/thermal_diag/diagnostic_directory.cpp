#include "tools/thermal_diag/diagnostic_directory.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <limits>
#include <stdexcept>
#include <system_error>
#include <tuple>
#include <utility>

#include "algorithm/common_thermal_algorithm_parser.hpp"
#include "algorithm/rule_group.hpp"

namespace thermal_diag {

namespace {

// A history of 4096 records takes less than half of one, the state of 12,000 rules eight.
constexpr std::size_t megabytes_of(file_kind kind) { return is_snapshot(kind) ? 16 : 4; }

class opened_file {
public:
    // A pipe that nobody writes does not make us wait.
    explicit opened_file(const std::string& path)
        : _file(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC)) {}
    ~opened_file() {
        if (_file >= 0) {
            ::close(_file);
        }
    }
    opened_file(const opened_file&) = delete;
    opened_file& operator=(const opened_file&) = delete;

    bool is_open() const { return _file >= 0; }
    bool is_regular() const {
        struct stat status {};
        return ::fstat(_file, &status) == 0 && S_ISREG(status.st_mode);
    }
    // All of it, or a little more than `most` bytes of it; nothing if that fails.
    std::optional<std::string> read(std::size_t most) const {
        std::string text;
        std::array<char, 65536> buffer;  // NOLINT(cppcoreguidelines-pro-type-member-init): read as far as written
        while (text.size() <= most) {
            const ssize_t size = ::read(_file, buffer.data(), buffer.size());
            if (size < 0 && errno == EINTR) {
                continue;
            }
            if (size < 0) {
                return std::nullopt;
            }
            if (size == 0) {
                break;
            }
            text.append(buffer.data(), static_cast<std::size_t>(size));
        }
        return text;
    }

private:
    int _file;
};

int announced_rules(const ini_file::std_handler& rules, const std::string& path) {
    try {
        return rule_group(rules, "SUMMARY").integer("ALGORITHM_COUNT");
    } catch (const std::exception&) {
        throw std::runtime_error(path + ":0: ALGORITHM_COUNT is no number");
    }
}

}  // namespace

std::string fault_of(file_kind kind, const file_text& text) {
    std::string fault;
    const auto add = [&fault](const std::string& what) { fault.append(fault.empty() ? "" : "; ").append(what); };
    if (text.strange_lines > 0) {
        add(std::to_string(text.strange_lines) + " strange lines, the first is line " +
            std::to_string(text.first_strange_line));
    }
    if (!text.end) {
        add("cut off, it has no closing line");
    } else if (!is_snapshot(kind) && text.end->records != static_cast<std::int64_t>(text.entries.size())) {
        add(std::to_string(text.entries.size()) + " of " + std::to_string(text.end->records) + " records");
    }
    return fault;
}

diagnostic_directory::diagnostic_directory(std::string path, complaint complain)
    : _path(std::move(path)), _complain(std::move(complain)) {
    std::error_code error;
    std::filesystem::directory_iterator found(_path, error);
    for (; !error && found != std::filesystem::directory_iterator(); found.increment(error)) {
        std::string name = found->path().filename().string();
        if (auto is = identify(name)) {
            _files.push_back({std::move(name), std::move(*is)});
        }
    }
    if (error) {
        throw std::runtime_error(_path + ": " + error.message());
    }
    std::ranges::sort(_files, {}, [](const file& each) { return std::tie(each.is.id, each.is.turn, each.name); });
}

std::optional<std::string> diagnostic_directory::read(const file& wanted) const {
    const auto& [name, is] = wanted;
    const opened_file opened(_path + "/" + name);
    if (!opened.is_open()) {
        _complain(name, errno == ELOOP ? "a link, left out" : std::strerror(errno));
        return std::nullopt;
    }
    if (!opened.is_regular()) {
        _complain(name, "no file, left out");
        return std::nullopt;
    }
    const std::size_t megabytes = megabytes_of(is.id.kind);
    auto text = opened.read(megabytes << 20);
    if (!text) {
        _complain(name, std::strerror(errno));
    } else if (text->size() > megabytes << 20) {
        _complain(name, "larger than " + std::to_string(megabytes) + " MB, left out");
        text.reset();
    }
    return text;
}

std::map<history_id, history> diagnostic_directory::histories(
    const std::function<bool(const history_id&)>& is_wanted) const {
    std::map<history_id, std::vector<history_file>> texts;
    for (const file& each : _files) {
        if (is_snapshot(each.is.id.kind) || !is_wanted(each.is.id)) {
            continue;
        }
        if (const auto text = read(each)) {
            history_file parsed{each.name, each.is.turn, parse(each.is.id.kind, *text)};
            if (const std::string fault = fault_of(each.is.id.kind, parsed.text); !fault.empty()) {
                _complain(each.name, fault);
            }
            texts[each.is.id].push_back(std::move(parsed));
        }
    }
    std::map<history_id, history> merged;
    for (auto& [id, files] : texts) {
        const history& all = merged[id] = merge(std::move(files));
        for (const std::string& name : all.overlapping) {
            _complain(name, "begins before the file ahead of it ends: of another run, or the clock was set back");
        }
    }
    return merged;
}

rule_names diagnostic_directory::names() const {
    std::int64_t newest = std::numeric_limits<std::int64_t>::min();
    rule_names names;
    for (const file& each : _files) {
        if (each.is.id.kind != file_kind::algorithms) {
            continue;
        }
        if (const auto text = read(each)) {
            const auto end = parse(file_kind::algorithms, *text).end;
            const std::int64_t written = end ? end->time : -1;
            if (written > newest) {
                newest = written;
                names = names_in_snapshot(*text);
            }
        }
    }
    return names;
}

rule_names names_in_rule_file(const std::string& path) {
    ini_file::std_handler rules;
    if (rules.read_ini(path.c_str()) != 0) {
        throw std::runtime_error(path + ":0: cannot be read");
    }
    const auto types = common_thermal_algorithm_parser::types();
    rule_names names;
    int place = 0;
    for (const int number : rules.numbered_groups(".ALGORITHM", announced_rules(rules, path))) {
        const std::string name = std::to_string(number) + ".ALGORITHM";
        const rule_group group(rules, name.c_str());
        const std::string type = group.text("TYPE");
        // A rule is known by its place among those that are built.
        if (std::ranges::count(types, type) > 0) {
            names[type + "." + std::to_string(++place)] = group.text("NAME");
        }
    }
    return names;
}

}  // namespace thermal_diag
