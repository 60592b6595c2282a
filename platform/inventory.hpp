#pragma once

#include <cstdint>

#include "platform/api.hpp"

// The inventory database of PCI adapters. Each call returns 0 for success. The arrays come from malloc() and belong to
// the caller, who releases them with free(). A call may block on the database.

struct vektdb_pci_adapter {
    std::uint32_t key;
};

struct vektdb_pci_adapter_list {
    std::uint32_t count;
    vektdb_pci_adapter* adapters;
};

struct vektdb_pci_funkey_list {
    std::uint32_t count;
    std::uint32_t* keys;
};

// One function of an adapter.
struct _VEKTDB_PCIGenericInfo {
    std::uint16_t vendor_id;
    std::uint16_t device_id;
    std::uint32_t class_code;
    std::uint16_t sub_vendor_id;
    std::uint16_t sub_device_id;
    std::uint16_t slot_no;
    std::uint8_t location;
};

PLATFORM_API int vektdb_get_pci_adapter_list(vektdb_pci_adapter_list* list);
PLATFORM_API int vektdb_get_pci_funkey_list(std::uint32_t adapter_key, vektdb_pci_funkey_list* list);
PLATFORM_API int vektdb_get_pci_generic_info(std::uint32_t function_key, _VEKTDB_PCIGenericInfo* info);
