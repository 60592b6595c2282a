#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "platform/properties.hpp"

namespace thermal_host {

class property_store;

class host_property : public bmc_property {
public:
    host_property(property_store& store, unsigned width, std::uint32_t value)
        : _store(store), _width(width), _value(value) {}

    std::uint8_t get_byte() const override { return static_cast<std::uint8_t>(_value); }
    std::uint16_t get_word() const override { return static_cast<std::uint16_t>(_value); }
    std::uint32_t get_dword() const override { return _value; }

    // A property keeps the width that it was created with, and refuses a value that does not fit.
    bool set(std::uint8_t value, std::uint16_t, std::uint8_t) override { return assign(value); }
    bool set(std::uint16_t value, std::uint16_t, std::uint8_t) override { return assign(value); }
    bool set(std::uint32_t value, std::uint16_t, std::uint8_t) override { return assign(value); }

    unsigned width() const { return _width; }  // bytes: 1, 2 or 4

private:
    bool assign(std::uint32_t value);

    property_store& _store;
    unsigned _width;
    std::uint32_t _value;
};

// The property tree, in memory and optionally in a file of lines "path byte|word|dword value". A change reaches the
// file with the next flush(), which the host calls every few seconds and at its end. Lines that cannot be read are
// reported, and kept at the file's end.
class property_store {
public:
    // Reads the file and keeps its name. A missing file is an empty tree; one that cannot be read is left alone from
    // then on. Called once, before anything is created.
    void open(std::string path);
    // True if the file holds the tree now, or if there is no file. The old file stays until the new one is complete.
    bool flush();

    // Null if it does not exist. The property stays where it is for the life of the store.
    host_property* find(std::string_view path);
    // False for a property that exists, and for an empty path or one with blanks, which a line could not hold.
    bool create(std::string_view path, unsigned width, std::uint32_t value);

    // Values that differed from what they replaced, and created properties.
    std::uint64_t changes() const { return _changes; }
    void changed() {
        ++_changes;
        _unsaved = true;
    }

private:
    bool read_line(std::string_view line, const char*& problem);
    std::string text() const;
    bool save() const;

    std::map<std::string, host_property, std::less<>> _properties;
    std::string _path;
    std::vector<std::string> _unreadable;
    std::uint64_t _changes = 0;
    bool _unsaved = false;
    bool _save_failed = false;
};

}  // namespace thermal_host
