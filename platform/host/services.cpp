#include "platform/host/services.hpp"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "platform/enclosure.hpp"
#include "platform/host/host.hpp"
#include "platform/nvme.hpp"

namespace thermal_host {

namespace {

constexpr int not_found = -1;

// A malloc'ed array of one member of each row; null for no rows. False if the memory is not there.
template <class Entry, class Row, class Member>
bool copy_out(const std::vector<Row>& rows, Member member, std::uint32_t& count, Entry*& entries) {
    count = 0;
    entries = nullptr;
    if (rows.empty()) {
        return true;
    }
    entries = static_cast<Entry*>(std::malloc(rows.size() * sizeof(Entry)));
    if (entries == nullptr) {
        return false;
    }
    std::transform(rows.begin(), rows.end(), entries, [member](const Row& row) { return Entry{row.*member}; });
    count = static_cast<std::uint32_t>(rows.size());
    return true;
}

}  // namespace

int settings_service::initialize() {
    if (initialize_result == 0) {
        ++sessions;
    }
    return initialize_result;
}

int settings_service::query(hvt_attribute_request& request) {
    ++queries;
    request.status = status;
    if (query_result != 0 || status != 0) {
        return query_result != 0 ? query_result : not_found;
    }
    const char* fallback = request.default_text != nullptr ? request.default_text : "";
    const auto found = attributes.find(std::string_view(request.name != nullptr ? request.name : ""));
    std::snprintf(request.value, sizeof(request.value), "%s",
                  found != attributes.end() ? found->second.c_str() : fallback);
    return 0;
}

int settings_service::uninitialize() {
    --sessions;
    return 0;
}

int inventory_service::list_adapters(vektdb_pci_adapter_list& list) const {
    if (adapter_list_result != 0) {
        return adapter_list_result;
    }
    return copy_out(adapters, &adapter::key, list.count, list.adapters) ? 0 : not_found;
}

int inventory_service::list_functions(std::uint32_t adapter_key, vektdb_pci_funkey_list& list) const {
    if (function_list_result != 0) {
        return function_list_result;
    }
    for (const adapter& candidate : adapters) {
        if (candidate.key == adapter_key) {
            return copy_out(candidate.functions, &adapter_function::key, list.count, list.keys) ? 0 : not_found;
        }
    }
    return not_found;
}

int inventory_service::describe(std::uint32_t function_key, _VEKTDB_PCIGenericInfo& info) const {
    if (generic_info_result != 0) {
        return generic_info_result;
    }
    for (const adapter& candidate : adapters) {
        for (const adapter_function& function : candidate.functions) {
            if (function.key == function_key) {
                info = function.info;
                return 0;
            }
        }
    }
    return not_found;
}

int software_event_service::raise(unsigned id, const void* payload) {
    software_event event{id, {}};
    if (id == fan_policy_event && payload != nullptr) {
        std::memcpy(&event.policies.emplace(), payload, sizeof(fan_policy_change));
    }
    raised.add(event);
    return result;
}

nvme_service::nvme_service() {
    using firmware = sep_comm_logical_device;
    firmware::NVME_PWR_CAP_MARGIN1 = firmware::NVME_PWR_CAP_MARGIN2 = firmware::NVME_PWR_CAP_HYSTERESIS = 0;
    firmware::NVME_PWR_CAP_MARGIN_LOWER = firmware::NVME_PWR_CAP_MARGIN_UPPER = firmware::NVME_PWR_CAP_ALG_VER = 0;
    firmware::NVME_PWR_CAP_TIMER_LOWER = firmware::NVME_PWR_CAP_TIMER_UPPER = 0;
}

}  // namespace thermal_host

std::uint8_t sep_comm_logical_device::NVME_PWR_CAP_MARGIN1 = 0;
std::uint8_t sep_comm_logical_device::NVME_PWR_CAP_MARGIN2 = 0;
std::uint8_t sep_comm_logical_device::NVME_PWR_CAP_HYSTERESIS = 0;
std::uint8_t sep_comm_logical_device::NVME_PWR_CAP_MARGIN_LOWER = 0;
std::uint8_t sep_comm_logical_device::NVME_PWR_CAP_MARGIN_UPPER = 0;
std::uint16_t sep_comm_logical_device::NVME_PWR_CAP_TIMER_LOWER = 0;
std::uint16_t sep_comm_logical_device::NVME_PWR_CAP_TIMER_UPPER = 0;
std::uint8_t sep_comm_logical_device::NVME_PWR_CAP_ALG_VER = 0;

using thermal_host::platform;

namespace {

constexpr int no_host = -1;

}  // namespace

int hvt_api_initialize() {
    platform* host = platform::current();
    return host != nullptr ? host->settings.initialize() : no_host;
}

int hvt_get_bios_attribute_value(hvt_attribute_request* requests, int count, int) {
    platform* host = platform::current();
    if (host == nullptr || requests == nullptr) {
        return no_host;
    }
    int result = 0;
    for (int i = 0; i < count && result == 0; ++i) {
        result = host->settings.query(requests[i]);
    }
    return result;
}

int hvt_api_uninitialize() {
    platform* host = platform::current();
    return host != nullptr ? host->settings.uninitialize() : no_host;
}

int vektdb_get_pci_adapter_list(vektdb_pci_adapter_list* list) {
    const platform* host = platform::current();
    return host != nullptr && list != nullptr ? host->inventory.list_adapters(*list) : no_host;
}

int vektdb_get_pci_funkey_list(std::uint32_t adapter_key, vektdb_pci_funkey_list* list) {
    const platform* host = platform::current();
    return host != nullptr && list != nullptr ? host->inventory.list_functions(adapter_key, *list) : no_host;
}

int vektdb_get_pci_generic_info(std::uint32_t function_key, _VEKTDB_PCIGenericInfo* info) {
    const platform* host = platform::current();
    return host != nullptr && info != nullptr ? host->inventory.describe(function_key, *info) : no_host;
}

int kpl_logical_device::set_cooling_value(std::uint8_t value) {
    platform* host = platform::current();
    if (host == nullptr) {
        return no_host;
    }
    host->enclosure.cooling_values.add(value);
    return host->enclosure.answer;
}

int sw_msg_dispatcher(unsigned id, const void* payload) {
    platform* host = platform::current();
    return host != nullptr ? host->software_events.raise(id, payload) : no_host;
}
