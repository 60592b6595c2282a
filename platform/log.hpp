#pragma once

#include "platform/api.hpp"

// The firmware's logger. A line carries its source and one mask bit; whether it is written is the logger's business.
// The texts are printf formats and end with the line break that they want.
namespace LOG {

// Whether a line with any bit of this mask would be written now. Cheap: the running path asks it before it gathers arguments.
// A logger that cannot tell answers true.
PLATFORM_API bool is_enabled(unsigned mask);

PLATFORM_API void log(int source, unsigned mask, const char* format, ...) __attribute__((format(printf, 3, 4)));
PLATFORM_API void warn(int source, unsigned mask, const char* format, ...) __attribute__((format(printf, 3, 4)));

// Errors have no mask and are always written.
PLATFORM_API void err(int source, const char* format, ...) __attribute__((format(printf, 2, 3)));

}  // namespace LOG
