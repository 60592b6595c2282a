#pragma once

#include <algorithm>
#include <cstdint>
#include <vector>

#include "foundation/interned_name.hpp"

// A rule's claim on a PCI slot. No rule has claimed a slot without a name, nor one named "NA" of instance 0; a brake of
// value 1 without a name is for lack of power.
struct slot_claim {
    interned_name name{};
    std::uint32_t instance = 0;
    std::uint32_t value = 0;
};

// The claims of one cycle by slot key, (location << 16) | slot number. A row, once made, keeps its memory; clear() only
// takes the claim out of it.
class slot_table {
public:
    struct row {
        std::uint32_t key = 0;
        slot_claim claim{};
        slot_claim applied{};  // what went out last
    };

    // Makes the row of a slot that has none.
    row& operator[](std::uint32_t key) {
        const auto place = std::ranges::lower_bound(_rows, key, {}, &row::key);
        return place != _rows.end() && place->key == key ? *place : *_rows.insert(place, {key, _nobody, _nobody});
    }
    // Null for a slot without a row.
    const row* find(std::uint32_t key) const {
        const auto place = std::ranges::lower_bound(_rows, key, {}, &row::key);
        return place != _rows.end() && place->key == key ? &*place : nullptr;
    }
    const slot_claim& claim_on(std::uint32_t key) const {
        const row* found = find(key);
        return found != nullptr ? found->claim : _nobody;
    }
    void clear() {
        for (row& each : _rows) {
            each.claim = _nobody;
        }
    }

private:
    slot_claim _nobody{};
    std::vector<row> _rows;
};
