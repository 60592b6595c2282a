#pragma once

#include <cstdint>

#include "platform/api.hpp"

// One setting of the host's firmware, asked for by name; the answer is text.
struct hvt_attribute_request {
    std::uint32_t status;  // 16 while the host has not reported its settings yet
    std::uint32_t count;   // records in the request, 1
    const char* name;
    const char* default_text;
    char value[260];  // always ends with a zero byte
};

constexpr std::uint32_t hvt_status_not_ready = 16;

// A session: initialize, ask, uninitialize; each returns 0 for success. Asking may block on the settings service.
PLATFORM_API int hvt_api_initialize();
PLATFORM_API int hvt_get_bios_attribute_value(hvt_attribute_request* requests, int count, int flags);
PLATFORM_API int hvt_api_uninitialize();
