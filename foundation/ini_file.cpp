#include "foundation/ini_file.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstring>
#include <functional>
#include <istream>
#include <iterator>

namespace ini_file {

namespace {

// A piece of a text that may be written to.
struct span {
    char* begin;
    char* end;
    std::string_view view() const { return {begin, static_cast<std::size_t>(end - begin)}; }
};

bool is_trimmed(char c) { return c == ' ' || c == '\t'; }

span trimmed(span text) {
    while (text.begin != text.end && is_trimmed(*text.begin)) {
        ++text.begin;
    }
    while (text.begin != text.end && is_trimmed(text.end[-1])) {
        --text.end;
    }
    return text;
}

char* find(span text, char wanted) {
    const auto size = static_cast<std::size_t>(text.end - text.begin);
    return size == 0 ? nullptr : static_cast<char*>(std::memchr(text.begin, wanted, size));
}

// One line without its newline. Only blanks may stand ahead of a header or a comment; a tab makes the line an entry.
template <class Sink>
void read_line(span line, Sink& sink) {
    char* first = line.begin;
    while (first != line.end && *first == ' ') {
        ++first;
    }
    if (first == line.end || *first == '#' || *first == ';') {
        return;
    }
    if (*first == '[') {
        if (char* close = find({first, line.end}, ']')) {
            sink.header(trimmed({first + 1, close}));
        }
        return;
    }
    if (char* equals = find(line, '=')) {
        sink.assignment(trimmed({line.begin, equals}), trimmed({equals + 1, line.end}));
    }
}

template <class Sink>
void read_lines(span text, Sink& sink) {
    while (text.begin != text.end) {
        char* newline = find(text, '\n');
        char* end = newline != nullptr ? newline : text.end;
        read_line({text.begin, end}, sink);
        text.begin = newline != nullptr ? newline + 1 : text.end;
    }
}

struct handler_lines {
    ini_handler& handler;

    void header(span name) { handler.add_group(std::string(name.view())); }
    void assignment(span key, span value) { handler.add_entry({std::string(key.view()), std::string(value.view())}); }
};

constexpr std::string_view missing_value = "bad_key";
constexpr std::size_t smallest_index = 64;

bool has_zero_byte(span text) { return find(text, '\0') != nullptr; }

}  // namespace

// Lines of a text that the handler keeps: keys and values are closed with a zero byte where they stand. There is always
// room for it: the "=" behind a key, the newline or the end of the text behind a value.
struct in_place_lines {
    std_handler& handler;

    void header(span name) { handler.select_group(name.view()); }
    void assignment(span key, span value) {
        if (has_zero_byte(key)) {
            return;  // no look-up can name it
        }
        *key.end = '\0';
        *value.end = '\0';
        handler.enter(key.begin, value.begin);
    }
};

int ini_file_reader::read_file(std::istream& stream) {
    std::string text(std::istreambuf_iterator<char>(stream), {});
    handler_lines lines{*_handler};
    read_lines({text.data(), text.data() + text.size()}, lines);
    return 0;
}

std::string ini_file_reader::trim(const std::string& text) {
    std::string copy(text);
    return std::string(trimmed({copy.data(), copy.data() + copy.size()}).view());
}

std_handler::std_handler() { select_group(""); }

std_handler::~std_handler() = default;

char* std_handler::keep(std::size_t size) {
    _texts.push_back({std::unique_ptr<char[]>(new char[size + 1]), size});
    _texts.back().text[size] = '\0';
    return _texts.back().text.get();
}

int std_handler::read_ini(const char* path) {
    const int file = ::open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (file < 0) {
        return 1;
    }
    struct stat status {};
    const bool regular = ::fstat(file, &status) == 0 && S_ISREG(status.st_mode);
    const std::size_t size = regular && status.st_size > 0 ? static_cast<std::size_t>(status.st_size) : 0;
    char* text = keep(size);
    std::size_t filled = 0;
    while (filled < size) {
        const ssize_t got = ::read(file, text + filled, size - filled);
        if (got <= 0) {
            break;
        }
        filled += static_cast<std::size_t>(got);
    }
    ::close(file);
    text[filled] = '\0';
    reserve(static_cast<std::size_t>(std::count(text, text + filled, '=')));
    in_place_lines lines{*this};
    read_lines({text, text + filled}, lines);
    return 0;
}

const char* std_handler::get_value(const char* group, const char* key, const char* default_value) const {
    std::uint32_t number = 0;
    if (find_group(group, number) == nullptr) {
        return default_value;
    }
    const std::uint32_t found = _index.empty() ? 0 : _index[place_of(number, key)];
    if (found == 0) {
        return default_value;
    }
    const entry& known = _entries[found - 1];
    const char* value = known.key + known.value;
    return value == missing_value ? default_value : value;
}

void std_handler::add_group(const std::string& name) {
    if (_group_numbers.contains(name)) {
        select_group(name);
        return;
    }
    char* text = keep(name.size());
    name.copy(text, name.size());
    select_group({text, name.size()});
}

void std_handler::add_entry(const ini_file_entry& added) {
    char* text = keep(added.key.size() + 1 + added.value.size());
    added.key.copy(text, added.key.size());
    char* value = text + added.key.size() + 1;
    added.value.copy(value, added.value.size());
    in_place_lines{*this}.assignment({text, value - 1}, {value, value + added.value.size()});
}

unsigned std_handler::entry_count(const char* group) const {
    std::uint32_t number = 0;
    const auto* found = find_group(group, number);
    return found != nullptr ? found->entries : 0;
}

std::vector<int> std_handler::numbered_groups(std::string_view suffix, int highest) const {
    std::vector<int> numbers;
    for (const section& each : _groups) {
        if (!each.name.ends_with(suffix) || each.name.starts_with('0')) {
            continue;
        }
        const char* end = each.name.data() + each.name.size() - suffix.size();
        int number = 0;
        const auto [stopped, error] = std::from_chars(each.name.data(), end, number);
        if (error == std::errc() && stopped == end && number >= 1 && number <= highest) {
            numbers.push_back(number);
        }
    }
    std::sort(numbers.begin(), numbers.end());
    return numbers;
}

void std_handler::select_group(std::string_view name) {
    const auto [known, added] = _group_numbers.try_emplace(name, static_cast<std::uint32_t>(_groups.size()));
    if (added) {
        _groups.push_back({name, 0});
    }
    _current_group = known->second;
}

void std_handler::enter(const char* key, const char* value) {
    reserve(1);
    const entry added{key, static_cast<std::uint32_t>(value - key), _current_group};
    std::uint32_t& place = _index[place_of(_current_group, key)];
    if (place != 0) {
        _entries[place - 1] = added;
        return;
    }
    _entries.push_back(added);
    place = static_cast<std::uint32_t>(_entries.size());
    ++_groups[_current_group].entries;
}

// Room for that many further entries, with the index at most half full.
void std_handler::reserve(std::size_t entries) {
    const std::size_t wanted = 2 * (_entries.size() + entries);
    if (wanted <= _index.size()) {
        return;
    }
    std::size_t size = std::max(smallest_index, _index.size());
    while (size < wanted) {
        size *= 2;
    }
    _entries.reserve(_entries.size() + entries);
    _index.assign(size, 0);
    for (std::size_t i = 0; i < _entries.size(); ++i) {
        _index[place_of(_entries[i].group, _entries[i].key)] = static_cast<std::uint32_t>(i + 1);
    }
}

// Where the entry stands in the index, or the free place where it would go.
std::size_t std_handler::place_of(std::uint32_t group_number, std::string_view key) const {
    constexpr std::size_t spread = 0x9E3779B97F4A7C15u;
    const std::size_t mask = _index.size() - 1;
    std::size_t place = (std::hash<std::string_view>()(key) ^ group_number * spread) & mask;
    while (_index[place] != 0) {
        const entry& standing = _entries[_index[place] - 1];
        if (standing.group == group_number && key == standing.key) {
            break;
        }
        place = (place + 1) & mask;
    }
    return place;
}

// A rule asks for its keys one after another, so the group of the last look-up is tried first.
const std_handler::section* std_handler::find_group(const char* name, std::uint32_t& number) const {
    if (_groups[_last_looked_up].name != name) {
        const auto known = _group_numbers.find(name);
        if (known == _group_numbers.end()) {
            return nullptr;
        }
        _last_looked_up = known->second;
    }
    number = _last_looked_up;
    return &_groups[number];
}

}  // namespace ini_file
