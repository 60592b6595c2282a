#include "store/result_history.hpp"

#include <algorithm>
#include <utility>

void result_history::reserve(std::uint32_t id, std::uint32_t records) {
    _id = id;
    _capacity = records;
    _records.reserve(records);
}

void result_history::add(unsigned long now, const applied_result& result) {
    if (is_full() && !_records.empty()) {
        _records.erase(_records.begin());
    }
    _records.push_back({now, result});
}

std::uint32_t result_history::take_file_number() {
    constexpr std::uint32_t last_file = 5;
    if (_written > last_file) {
        _written = 1;
    }
    return _written++;
}

void result_history::restart(unsigned long now) {
    if (!_records.empty()) {
        _records.front() = {now, _records.back().result};
        _records.erase(_records.begin() + 1, _records.end());
    }
}

limit_history::limit_history() { _records.reserve(most_records + 1); }

bool limit_history::add(unsigned long now, std::uint32_t key, const applied_result& result) {
    slot& known = _slots[key];
    if (known.count != 0 && known.last == result) {
        return false;
    }
    _records.push_back({now, key, result});
    known.last = result;
    ++known.count;
    return true;
}

std::uint32_t limit_history::take_file_number(std::uint32_t key) {
    constexpr std::uint32_t files = 5;
    slot& known = _slots[key];
    return std::exchange(known.next_file, (known.next_file + 1) % files);
}

void limit_history::restart(unsigned long now, std::uint32_t key) {
    slot& known = _slots[key];
    if (known.count != 0) {
        std::erase_if(_records, [key](const debug_pwrlmt_alg_t& each) { return each.key == key; });
        _records.push_back({now, key, known.last});
        known.count = 1;
    }
}

// The one that is in force stays.
void limit_history::drop_oldest(std::uint32_t key) {
    slot& known = _slots[key];
    const auto oldest = std::ranges::find(_records, key, &debug_pwrlmt_alg_t::key);
    if (known.count > 1 && oldest != _records.end()) {
        _records.erase(oldest);
        --known.count;
    }
}
