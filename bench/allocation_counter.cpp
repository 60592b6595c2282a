#include "bench/allocation_counter.hpp"

#include <malloc.h>

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <new>

namespace {

std::atomic<std::uint64_t> calls_total;
std::atomic<std::uint64_t> bytes_total;
std::atomic<std::int64_t> bytes_held;

// What the heap set aside for a block, so that its release subtracts what its allocation added.
std::size_t block_size(const volatile void* block) { return malloc_usable_size(const_cast<void*>(block)); }

void record_allocation(const volatile void* block, std::size_t size) {
    calls_total.fetch_add(1, std::memory_order_relaxed);
    bytes_total.fetch_add(size, std::memory_order_relaxed);
    bytes_held.fetch_add(static_cast<std::int64_t>(block_size(block)), std::memory_order_relaxed);
}

void record_release(const volatile void* block) {
    bytes_held.fetch_sub(static_cast<std::int64_t>(block_size(block)), std::memory_order_relaxed);
}

}  // namespace

#ifdef THERMAL_SANITIZE

// The sanitizer's own operators stay in place: they find a new[] released by delete.
extern "C" int __sanitizer_install_malloc_and_free_hooks(void (*allocated)(const volatile void*, std::size_t),
                                                         void (*releasing)(const volatile void*));

namespace {
const int hooks_installed = __sanitizer_install_malloc_and_free_hooks(record_allocation, record_release);
}

#else

// The library's other forms of new and delete all end in these.
namespace {

void* counted(void* block, std::size_t size) {
    if (block == nullptr) throw std::bad_alloc();
    record_allocation(block, size);
    return block;
}

void release(void* block) {
    record_release(block);
    std::free(block);
}

}  // namespace

void* operator new(std::size_t size) { return counted(std::malloc(size), size); }

void* operator new(std::size_t size, std::align_val_t alignment) {
    const auto step = static_cast<std::size_t>(alignment);
    return counted(std::aligned_alloc(step, (size + step - 1) / step * step), size);
}

void operator delete(void* block) noexcept { release(block); }
void operator delete(void* block, std::size_t) noexcept { release(block); }
void operator delete(void* block, std::align_val_t) noexcept { release(block); }
void operator delete(void* block, std::size_t, std::align_val_t) noexcept { release(block); }

#endif

allocation_counter::allocation_counter()
    : _calls_before(calls_total), _bytes_before(bytes_total), _held_before(bytes_held) {}

std::uint64_t allocation_counter::calls() const { return calls_total - _calls_before; }
std::uint64_t allocation_counter::bytes() const { return bytes_total - _bytes_before; }
std::int64_t allocation_counter::growth() const { return bytes_held - _held_before; }
