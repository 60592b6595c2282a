#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "platform/host/bounded_record.hpp"
#include "platform/host_settings.hpp"
#include "platform/inventory.hpp"
#include "platform/software_events.hpp"

namespace thermal_host {

// What the host's firmware would answer. Each result is what the call of that name returns, 0 for success.
struct settings_service {
    std::map<std::string, std::string, std::less<>> attributes;  // an unknown name is answered by its default text
    std::uint32_t status = 0;                                    // any but 0 also makes the query fail
    int initialize_result = 0;
    int query_result = 0;
    int sessions = 0;  // initialized and not yet uninitialized
    unsigned queries = 0;

    int initialize();
    int query(hvt_attribute_request& request);
    int uninitialize();
};

struct adapter_function {
    std::uint32_t key;
    _VEKTDB_PCIGenericInfo info;
};

struct adapter {
    std::uint32_t key;
    std::vector<adapter_function> functions;
};

// The adapters that the inventory database knows. A result other than 0 makes the call of that name fail.
struct inventory_service {
    std::vector<adapter> adapters;
    int adapter_list_result = 0;
    int function_list_result = 0;
    int generic_info_result = 0;

    int list_adapters(vektdb_pci_adapter_list& list) const;
    int list_functions(std::uint32_t adapter_key, vektdb_pci_funkey_list& list) const;
    int describe(std::uint32_t function_key, _VEKTDB_PCIGenericInfo& info) const;
};

// The enclosure manager; a machine that stands alone has none, which is any answer but 0.
struct enclosure_service {
    int answer = 1;
    bounded_record<std::uint8_t> cooling_values{64};
};

// What was raised, and the result of raising more.
struct software_event {
    unsigned id;
    std::optional<fan_policy_change> policies;
};

struct software_event_service {
    int result = 0;
    bounded_record<software_event> raised{64};

    int raise(unsigned id, const void* payload);
};

// The drives' own power capping, whose settings are process-wide: a new host starts with all of them 0.
struct nvme_service {
    nvme_service();
};

}  // namespace thermal_host
