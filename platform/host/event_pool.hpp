#pragma once

#include <cstddef>
#include <vector>

#include "platform/events.hpp"

namespace thermal_host {

// Events of one fixed size, made once. Knows its own events, so that a stray pointer is refused.
class event_pool {
public:
    static constexpr std::size_t block_size = 32;

    explicit event_pool(std::size_t blocks);

    // Null if `size` does not fit a block, or if no block is left.
    QEvent* take(std::size_t size, QSignal signal);
    // Whether `event` was taken and not given back.
    bool is_taken(const QEvent* event) const;
    // Ignores an event that is not taken.
    void give_back(const QEvent* event);

    std::size_t available() const { return _free.size(); }

private:
    struct alignas(8) block {
        std::byte bytes[block_size];
    };

    std::size_t index_of(const QEvent* event) const;  // number of blocks for a stray pointer

    std::vector<block> _blocks;
    std::vector<bool> _taken;
    std::vector<std::size_t> _free;
};

}  // namespace thermal_host
