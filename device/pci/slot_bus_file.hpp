#pragma once

#include <cstdint>
#include <string>

// Leaves the key of the bus that leads to a slot's card where the rest of the firmware looks for it; an empty key, as a
// port by number has it, leaves an empty line. A link in its place is not followed. Failures are ignored.
void write_slot_bus_file(std::uint32_t slot_number, const std::string& port_key);
