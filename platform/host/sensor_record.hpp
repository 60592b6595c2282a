#pragma once

#include <cstdint>
#include <vector>

#include "platform/host/sensors.hpp"

namespace thermal_host {

// The full record (type 01h) that describes a sensor to IPMI clients. Its conversion is the closest one that a record
// can hold: three digits and a power of ten from -8 to 7 for each of slope and offset. A name is cut to 16 characters;
// a unit other than °C, rpm, W, V, A and % is left unspecified.
std::vector<std::uint8_t> sensor_record(std::uint16_t record, sensor_id id, const sensor_definition& about,
                                        const sensor_thresholds& thresholds);

}  // namespace thermal_host
