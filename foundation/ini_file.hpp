#pragma once

#include <cstdint>
#include <iosfwd>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "foundation/export.hpp"

// Reader of rule files. Every line stands alone: a header "[group]", an entry "key = value", or a comment line that
// begins with "#" or ";". There is no quoting, no continuation, and text behind a value is part of the value. A line
// that is none of these is skipped. A carriage return stays at the end of a value: rule files have plain newlines.
namespace ini_file {

struct ini_file_entry {
    std::string key;
    std::string value;
};

class THERMAL_API ini_handler {
public:
    virtual ~ini_handler() = default;
    virtual void add_group(const std::string& name) = 0;
    virtual void add_entry(const ini_file_entry& entry) = 0;
};

class THERMAL_API ini_file_reader {
public:
    explicit ini_file_reader(ini_handler* handler) : _handler(handler) {}
    // Reads to the end of the stream; always 0.
    int read_file(std::istream& stream);
    // Without blanks and tabs at both ends.
    static std::string trim(const std::string& text);

private:
    ini_handler* _handler;
};

// Keeps what it is given, for look-ups by group and key. Files are held whole and looked up in place.
class THERMAL_API std_handler : public ini_handler {
public:
    std_handler();
    ~std_handler() override;
    std_handler(const std_handler&) = delete;
    std_handler& operator=(const std_handler&) = delete;

    // 0, or 1 if it cannot be opened, read, or is no regular file of at most 64 MB; then nothing is stored. A further file adds to what is there, in the group that the last one ended.
    int read_ini(const char* path);

    // The value's text, or `default_value` for a key that is missing or whose value reads "bad_key". Valid until the
    // handler goes or the entry is overwritten.
    const char* get_value(const char* group, const char* key, const char* default_value) const {
        return get_value(find_group(group), key, default_value);
    }

    // The same for a caller that asks for many keys of one group. A group keeps its number; -1 stands for one that is
    // not there.
    int find_group(const char* name) const;
    const char* get_value(int group, std::string_view key, const char* default_value) const;

    // The entries of a header that occurs twice continue its group; of two equal keys the last stands.
    void add_group(const std::string& name) override;
    void add_entry(const ini_file_entry& added) override;

    // How many rows a list in a group can have that somebody wrote: as many as the group has entries, or, if more are
    // wanted, the highest number that leads or ends a key, up to 4096 of them with gaps between.
    unsigned most_rows(int group, unsigned wanted) const;

    // The numbers n, ascending, of the groups named n + `suffix`, with n in plain decimal from 1 to `highest`.
    std::vector<int> numbered_groups(std::string_view suffix, int highest) const;

private:
    struct entry {
        const char* key;
        std::uint32_t value;  // distance of the value from the key
        std::uint32_t group;
    };
    struct section {
        std::string_view name;
        unsigned entries;
    };
    friend struct in_place_lines;

    char* keep(std::size_t size);
    void select_group(std::string_view name);
    void enter(std::string_view key, const char* value);
    void reserve(std::size_t entries);
    void index_all(std::size_t size);
    std::size_t place_of(std::uint32_t group, std::string_view key) const;

    std::vector<std::unique_ptr<char[]>> _texts;
    std::vector<entry> _entries;
    std::vector<std::uint32_t> _index;  // open addressing: entry number + 1, or 0
    std::size_t _room = 0;              // entries that the index takes
    std::vector<section> _groups;
    std::unordered_map<std::string_view, std::uint32_t> _group_numbers;
    std::uint32_t _current_group = 0;
    mutable std::vector<unsigned> _highest_numbers;  // by group; empty until somebody asks
};

}  // namespace ini_file
