#include "platform/host/event_pool.hpp"

#include <cstring>
#include <functional>

namespace thermal_host {

event_pool::event_pool(std::size_t blocks) : _blocks(blocks), _taken(blocks), _free(blocks) {
    for (std::size_t i = 0; i < blocks; ++i) {
        _free[i] = blocks - 1 - i;
    }
}

QEvent* event_pool::take(std::size_t size, QSignal signal) {
    if (size < sizeof(QEvent) || size > block_size || _free.empty()) {
        return nullptr;
    }
    const std::size_t index = _free.back();
    _free.pop_back();
    _taken[index] = true;
    void* storage = std::memset(&_blocks[index], 0, sizeof(block));
    auto* event = static_cast<QEvent*>(storage);
    event->sig = signal;
    return event;
}

std::size_t event_pool::index_of(const QEvent* event) const {
    const auto* address = reinterpret_cast<const std::byte*>(event);
    const auto* begin = reinterpret_cast<const std::byte*>(_blocks.data());
    const auto* end = begin + _blocks.size() * sizeof(block);
    if (std::less<>{}(address, begin) || !std::less<>{}(address, end)) {
        return _blocks.size();
    }
    const auto offset = static_cast<std::size_t>(address - begin);
    return offset % sizeof(block) == 0 ? offset / sizeof(block) : _blocks.size();
}

bool event_pool::is_taken(const QEvent* event) const {
    const std::size_t index = index_of(event);
    return index < _blocks.size() && _taken[index];
}

void event_pool::give_back(const QEvent* event) {
    if (is_taken(event)) {
        const std::size_t index = index_of(event);
        _taken[index] = false;
        _free.push_back(index);
    }
}

}  // namespace thermal_host
