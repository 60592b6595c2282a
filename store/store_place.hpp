#pragma once

#include <cstdint>

// Where a key stands in one store, remembered by whoever uses the key often: found by text once, then reached without
// it. A key that is not there is looked for again only after the store has got a new key.
struct store_place {
    float* value = nullptr;
    std::uint32_t store = 0;         // identity of the store; no store has 0
    std::uint32_t keys_at_miss = 0;  // keys the store had when the key was not among them
};
