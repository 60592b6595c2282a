#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "platform/host/property_file.hpp"
#include "platform/properties.hpp"

namespace thermal_host {

class property_store;

class host_property : public bmc_property {
public:
    host_property(property_store& store, property_value value) : _store(store), _value(std::move(value)) {}

    std::uint8_t get_byte() const override { return static_cast<std::uint8_t>(_value.number); }
    std::uint16_t get_word() const override { return static_cast<std::uint16_t>(_value.number); }
    std::uint32_t get_dword() const override { return _value.number; }
    const std::uint8_t* get_block() const override { return _value.is_block() ? _value.block.data() : nullptr; }

    // A number keeps the width that it was created with, and refuses a value that does not fit.
    bool set(std::uint8_t value, std::uint16_t, std::uint8_t) override { return assign(value); }
    bool set(std::uint16_t value, std::uint16_t, std::uint8_t) override { return assign(value); }
    bool set(std::uint32_t value, std::uint16_t, std::uint8_t) override { return assign(value); }
    bool set(const std::uint8_t* bytes, unsigned size, std::uint16_t, std::uint8_t) override;

    unsigned width() const { return _value.width; }  // bytes: 1, 2 or 4; 0 for a block
    const property_value& value() const { return _value; }

private:
    bool assign(std::uint32_t number);
    bool assign(const property_value& value);

    property_store& _store;
    property_value _value;
};

// The property tree, in memory and optionally in a file of lines. A change reaches the file with the next flush(),
// which the host calls every few seconds and at its end.
class property_store {
public:
    // Reads the file and keeps its name. A missing file is an empty tree. Of a file with a fault nothing is used: it is
    // renamed to `path` + ".refused", and the tree starts empty. One that can be neither read nor renamed is left
    // alone, and nothing is saved. Called once, before anything is created.
    void open(std::string path);
    // True if the file holds the tree now, or if there is no file. The old file stays until the new one is complete.
    bool flush();

    // Null if it does not exist. The property stays where it is until it is removed.
    host_property* find(std::string_view path);
    // False for a property that exists, for no value, and for a path that is empty or has blanks, which a line of the
    // file could not hold.
    bool create(std::string_view path, std::optional<property_value> value);
    void remove(std::string_view path);

    // Values that differed from what they replaced, and created and removed properties.
    std::uint64_t changes() const { return _changes; }
    void changed() {
        ++_changes;
        _unsaved = true;
    }

private:
    void refuse_file(const property_file_fault& fault);
    property_values kept_values() const;

    std::map<std::string, host_property, std::less<>> _properties;
    std::string _path;
    std::uint64_t _changes = 0;
    bool _unsaved = false;
    bool _save_failed = false;
};

}  // namespace thermal_host
