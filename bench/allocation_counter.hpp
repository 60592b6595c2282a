#pragma once

#include <cstdint>

// Counts what the whole process takes from the heap while it lives: operator new in every form, and under the address
// sanitizer malloc() as well.
class allocation_counter {
public:
    allocation_counter();

    std::uint64_t calls() const;
    std::uint64_t bytes() const;
    // Bytes taken less bytes given back; negative if older memory was released.
    std::int64_t growth() const;

private:
    std::uint64_t _calls_before;
    std::uint64_t _bytes_before;
    std::int64_t _held_before;
};
