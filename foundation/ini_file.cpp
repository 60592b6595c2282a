#include "foundation/ini_file.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <istream>
#include <iterator>
#include <optional>

#include "foundation/log_masks.hpp"

namespace ini_file {

namespace {

// A piece of a text that may be written to.
struct text_piece {
    char* begin;
    char* end;
    std::string_view view() const { return {begin, static_cast<std::size_t>(end - begin)}; }
};

bool is_trimmed(char c) { return c == ' ' || c == '\t'; }

inline text_piece trimmed(text_piece text) {
    while (text.begin != text.end && is_trimmed(*text.begin)) {
        ++text.begin;
    }
    while (text.begin != text.end && is_trimmed(text.end[-1])) {
        --text.end;
    }
    return text;
}

char* find(text_piece text, char wanted) {
    const auto size = static_cast<std::size_t>(text.end - text.begin);
    return size == 0 ? nullptr : static_cast<char*>(std::memchr(text.begin, wanted, size));
}

// One line without its newline. Only blanks may stand ahead of a header or a comment; a tab makes the line an entry.
template <class Sink>
void read_line(text_piece line, Sink& sink) {
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
void read_lines(text_piece text, Sink& sink) {
    while (text.begin != text.end) {
        char* newline = find(text, '\n');
        char* end = newline != nullptr ? newline : text.end;
        read_line({text.begin, end}, sink);
        text.begin = newline != nullptr ? newline + 1 : text.end;
    }
}

class open_file {
public:
    // Without waiting for a writer where `path` is a pipe.
    explicit open_file(const char* path) : _file(::open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK)) {}
    ~open_file() {
        if (_file >= 0) {
            ::close(_file);
        }
    }
    open_file(const open_file&) = delete;
    open_file& operator=(const open_file&) = delete;

    // Nothing unless it is a regular file.
    std::optional<std::size_t> size() const {
        struct stat status {};
        if (::fstat(_file, &status) != 0 || !S_ISREG(status.st_mode)) {
            return {};
        }
        return static_cast<std::size_t>(status.st_size);
    }

    bool read(text_piece text) const {
        while (text.begin != text.end) {
            const ssize_t got = ::read(_file, text.begin, static_cast<std::size_t>(text.end - text.begin));
            if (got < 0 && errno == EINTR) {
                continue;
            }
            if (got <= 0) {
                return false;
            }
            text.begin += got;
        }
        return true;
    }

private:
    int _file;
};

struct handler_lines {
    ini_handler& handler;

    void header(text_piece name) { handler.add_group(std::string(name.view())); }
    void assignment(text_piece key, text_piece value) {
        handler.add_entry({std::string(key.view()), std::string(value.view())});
    }
};

constexpr std::string_view missing_value = "bad_key";
constexpr std::size_t smallest_index = 64;
constexpr std::size_t largest_file = 64u << 20;  // five times the largest policy known

bool is_digit(char c) { return c >= '0' && c <= '9'; }

// The number in [digits, end); 0 for none, or for one that no list reaches.
unsigned list_number(const char* digits, const char* end) {
    constexpr unsigned most = 4096;
    unsigned number = 0;
    for (; digits != end; ++digits) {
        number = 10 * number + static_cast<unsigned>(*digits - '0');
        if (number > most) {
            return 0;
        }
    }
    return number;
}

// The higher of the numbers that lead and end a key such as "12.PARAMETER_X.3".
unsigned highest_number(std::string_view key) {
    const char* begin = key.data();
    const char* end = begin + key.size();
    const char* lead = begin;
    while (lead != end && is_digit(*lead)) {
        ++lead;
    }
    const unsigned leading = lead != end && *lead == '.' ? list_number(begin, lead) : 0;
    const char* tail = end;
    while (tail != lead && is_digit(tail[-1])) {
        --tail;
    }
    return tail != end && tail[-1] == '.' ? std::max(leading, list_number(tail, end)) : leading;
}

// About how many lines a text has, judged by its beginning, which a strange file can make look like millions.
std::size_t estimate_lines(text_piece text) {
    constexpr std::ptrdiff_t sample_size = 1 << 16;
    constexpr std::size_t most = 1u << 20;
    const auto size = static_cast<std::size_t>(text.end - text.begin);
    const auto sample = static_cast<std::size_t>(std::min(text.end - text.begin, sample_size));
    const auto lines = static_cast<std::size_t>(std::count(text.begin, text.begin + sample, '\n')) + 1;
    return sample == 0 ? 0 : std::min(size / sample * lines + lines, most);
}

template <class Word>
std::uint64_t word_at(const char* text) {
    Word word;
    std::memcpy(&word, text, sizeof word);
    return word;
}

// The last bytes of a text, 8 at most; some of them twice where there are fewer.
std::uint64_t tail_of(std::string_view text) {
    const char* first = text.data();
    const std::size_t size = text.size();
    if (size >= 8) {
        return word_at<std::uint64_t>(first + size - 8);
    }
    if (size >= 4) {
        return word_at<std::uint32_t>(first) | word_at<std::uint32_t>(first + size - 4) << 32;
    }
    return size == 0 ? 0
                     : word_at<std::uint8_t>(first) | word_at<std::uint8_t>(first + size / 2) << 8 |
                           word_at<std::uint8_t>(first + size - 1) << 16;
}

// Every key is hashed twice or more in a load, and most are short.
std::uint64_t hash_of(std::string_view key, std::uint64_t seed) {
    constexpr std::uint64_t spread = 0x9E3779B97F4A7C15u;
    std::uint64_t hash = seed + key.size();
    for (std::size_t i = 0; i + 8 < key.size(); i += 8) {
        hash = (hash ^ word_at<std::uint64_t>(key.data() + i)) * spread;
        hash ^= hash >> 32;
    }
    hash = (hash ^ tail_of(key)) * spread;
    return hash ^ hash >> 32;
}

// Whether the text that ends with a zero byte is `key`.
bool is_text(const char* text, std::string_view key) {
    return std::strlen(text) == key.size() && std::memcmp(text, key.data(), key.size()) == 0;
}

bool has_zero_byte(text_piece text) { return find(text, '\0') != nullptr; }

}  // namespace

// Lines of a text that the handler keeps: keys and values are closed with a zero byte where they stand. There is always
// room for it: the "=" behind a key, the newline or the end of the text behind a value.
struct in_place_lines {
    std_handler& handler;
    bool may_hold_zero_bytes;

    void header(text_piece name) { handler.select_group(name.view()); }
    void assignment(text_piece key, text_piece value) {
        if (may_hold_zero_bytes && has_zero_byte(key)) {
            return;  // no look-up can name it
        }
        *key.end = '\0';
        *value.end = '\0';
        handler.enter(key.view(), value.begin);
    }
};

int ini_file_reader::read_file(std::istream& stream) {
    if (!stream.good()) {
        return 0;
    }
    std::string text(std::istreambuf_iterator<char>(stream), {});
    stream.setstate(std::ios::eofbit);
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
    _texts.emplace_back(new char[size + 1]);
    char* text = _texts.back().get();
    text[size] = '\0';
    return text;
}

int std_handler::read_ini(const char* path) {
    const open_file file(path);
    const std::optional<std::size_t> size = file.size();
    if (!size) {
        return 1;
    }
    if (*size > largest_file) {
        LOG::err(log_source, "ini_file::%s - %s is too large: %zu bytes\n", "read_ini", path, *size);
        return 1;
    }
    char* text = keep(*size);
    const text_piece whole{text, text + *size};
    if (!file.read(whole)) {
        return 1;
    }
    reserve(estimate_lines(whole));
    in_place_lines sink{*this, has_zero_byte(whole)};
    read_lines(whole, sink);
    return 0;
}

int std_handler::find_group(const char* name) const {
    const auto known = _group_numbers.find(name);
    return known != _group_numbers.end() ? static_cast<int>(known->second) : -1;
}

const char* std_handler::get_value(int group, std::string_view key, const char* default_value) const {
    if (group < 0 || _index.empty()) {
        return default_value;
    }
    const std::uint32_t number = _index[place_of(static_cast<std::uint32_t>(group), key)];
    if (number == 0) {
        return default_value;
    }
    const entry& known = _entries[number - 1];
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
    in_place_lines{*this, true}.assignment({text, value - 1}, {value, value + added.value.size()});
}

unsigned std_handler::most_rows(int group, unsigned wanted) const {
    if (group < 0) {
        return 0;
    }
    const auto number = static_cast<std::size_t>(group);
    const unsigned entries = _groups[number].entries;
    if (wanted <= entries) {
        return entries;
    }
    if (_highest_numbers.empty()) {
        _highest_numbers.resize(_groups.size());
        for (const entry& each : _entries) {
            unsigned& highest = _highest_numbers[each.group];
            highest = std::max(highest, highest_number(each.key));
        }
    }
    return std::max(entries, _highest_numbers[number]);
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
        _highest_numbers.clear();
    }
    _current_group = known->second;
}

void std_handler::enter(std::string_view key, const char* value) {
    if (_entries.size() == _room) {
        reserve(1);
    }
    const entry added{key.data(), static_cast<std::uint32_t>(value - key.data()), _current_group};
    std::uint32_t& place = _index[place_of(_current_group, key)];
    if (place != 0) {
        _entries[place - 1] = added;
        return;
    }
    _entries.push_back(added);
    place = static_cast<std::uint32_t>(_entries.size());
    ++_groups[_current_group].entries;
    _highest_numbers.clear();
}

// Room for that many further entries, with the index at most three quarters full.
void std_handler::reserve(std::size_t entries) {
    const std::size_t wanted = _entries.size() + entries;
    if (wanted <= _room) {
        return;
    }
    std::size_t size = std::max(smallest_index, _index.size());
    while (size / 4 * 3 < wanted) {
        size *= 2;
    }
    _room = size / 4 * 3;
    _entries.reserve(wanted);
    index_all(size);
}

void std_handler::index_all(std::size_t size) {
    _index.assign(size, 0);
    for (std::size_t i = 0; i < _entries.size(); ++i) {
        _index[place_of(_entries[i].group, _entries[i].key)] = static_cast<std::uint32_t>(i + 1);
    }
}

// Where the entry stands in the index, or the free place where it would go. The handler's own address enters the hash,
// so that nobody can write a file whose entries all start at one place.
std::size_t std_handler::place_of(std::uint32_t group, std::string_view key) const {
    const auto seed = static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(this));
    const std::size_t mask = _index.size() - 1;
    std::size_t place = static_cast<std::size_t>(hash_of(key, seed ^ std::uint64_t{group} << 32)) & mask;
    while (_index[place] != 0) {
        const entry& standing = _entries[_index[place] - 1];
        if (standing.group == group && is_text(standing.key, key)) {
            break;
        }
        place = (place + 1) & mask;
    }
    return place;
}

}  // namespace ini_file
