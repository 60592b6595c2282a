#pragma once

#include <map>

#include "platform/spd.hpp"

namespace thermal_host {

struct memory_module {
    std::uint32_t size = 0;
    std::uint32_t type_detail = 0;
};

// The module data of a machine. An index without a module is not known.
class spd_device : public dimm_spd_logical_device {
public:
    spd_device() : dimm_spd_logical_device(nullptr, "spd", "dimm_spd_logical_device", false) {}

    std::map<unsigned, memory_module> modules;

    std::uint32_t get_dimm_size(unsigned index) const override { return find(index).size; }
    std::uint32_t get_dimm_type_detail(unsigned index) const override { return find(index).type_detail; }

private:
    memory_module find(unsigned index) const;
};

}  // namespace thermal_host
