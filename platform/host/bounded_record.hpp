#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace thermal_host {

// The last `capacity` entries of something that never ends. Capacity 0 records nothing.
template <class T>
class bounded_record {
public:
    explicit bounded_record(std::size_t capacity = 0) { set_capacity(capacity); }

    // Forgets what was recorded.
    void set_capacity(std::size_t capacity) {
        _capacity = capacity;
        clear();
        _entries.reserve(capacity);
    }

    bool is_recording() const { return _capacity != 0; }

    void add(T entry) {
        ++_total;
        if (_entries.size() < _capacity) {
            _entries.push_back(std::move(entry));
        } else if (_capacity != 0) {
            _entries[_oldest] = std::move(entry);
            _oldest = (_oldest + 1) % _capacity;
        }
    }

    // Oldest first.
    std::vector<T> entries() const {
        std::vector<T> ordered;
        ordered.reserve(_entries.size());
        for (std::size_t i = 0; i < _entries.size(); ++i) {
            ordered.push_back(_entries[(_oldest + i) % _entries.size()]);
        }
        return ordered;
    }

    // Everything since the last clear(), also what fell out or was not kept.
    std::uint64_t total() const { return _total; }

    void clear() {
        _entries.clear();
        _oldest = 0;
        _total = 0;
    }

private:
    std::vector<T> _entries;
    std::size_t _capacity = 0;
    std::size_t _oldest = 0;
    std::uint64_t _total = 0;
};

}  // namespace thermal_host
