#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <span>
#include <vector>

#include "foundation/interned_name.hpp"

// What a rule got its way with: its class, its number, and the value that went out.
struct applied_result {
    interned_name name{};
    std::uint32_t instance = 0;
    float value = 0.0f;

    bool operator==(const applied_result&) const = default;
};

// Who won one fan or one kind of cap since when: a record for each change, as many as were reserved. A full history is
// to be dumped; where that fails, the oldest record gives way.
class result_history {
public:
    struct record {
        unsigned long timestamp = 0;  // s
        applied_result result{};
    };

    // Takes the memory of all records, which later ones do not.
    void reserve(std::uint32_t id, std::uint32_t records);
    std::uint32_t id() const { return _id; }
    bool is_full() const { return _records.size() >= _capacity; }
    // Null while there is none.
    const applied_result* last() const { return _records.empty() ? nullptr : &_records.back().result; }
    std::span<const record> records() const { return _records; }

    void add(unsigned long now, const applied_result& result);
    // 0, then 1 to 5 and 1 again.
    std::uint32_t take_file_number();
    // What was dumped goes; what is in force stays, as of now.
    void restart(unsigned long now);

private:
    std::uint32_t _id = 0;
    std::uint32_t _capacity = 0;
    std::uint32_t _written = 0;
    std::vector<record> _records;
};

// The limits of all PCI slots in one list, as they changed.
class limit_history {
public:
    struct debug_pwrlmt_alg_t {
        unsigned long timestamp = 0;  // s
        std::uint32_t key = 0;        // of the slot
        applied_result result{};
    };

    limit_history();
    // False for what the slot's last record says already.
    bool add(unsigned long now, std::uint32_t key, const applied_result& result);
    bool is_overfull() const { return _records.size() > most_records; }
    // Calls visit(record) for each record of the slot, oldest first.
    template <class Visitor>
    void for_each(std::uint32_t key, Visitor&& visit) const {
        for (const debug_pwrlmt_alg_t& each : _records) {
            if (each.key == key) {
                visit(each);
            }
        }
    }
    // 0 to 4 and 0 again, for each slot.
    std::uint32_t take_file_number(std::uint32_t key);
    // As of a result history, for the records of one slot.
    void restart(unsigned long now, std::uint32_t key);
    void drop_oldest(std::uint32_t key);

private:
    static constexpr std::size_t most_records = 4095;

    struct slot {
        std::uint32_t next_file = 0;
        std::uint32_t count = 0;
        applied_result last{};
    };

    std::vector<debug_pwrlmt_alg_t> _records;
    std::map<std::uint32_t, slot> _slots;
};
