#pragma once

#include "platform/log.hpp"

// The source under which this library logs, and what its mask bits cover.
constexpr int log_source = 2;
constexpr int log_source_registration = 6;
constexpr int log_source_property = 16;

namespace log_mask {
constexpr unsigned sensor = 1;      // port type problems, sensor errors, host settings
constexpr unsigned life_cycle = 2;  // life cycle, events, configuration of ports and properties
constexpr unsigned tick = 16;       // begin and end of ticks and slots
constexpr unsigned polled = 32;     // one line per polled device or algorithm
constexpr unsigned result = 128;    // loading, applied fan results
constexpr unsigned nap = 256;
constexpr unsigned spike = 512;
constexpr unsigned arbitration = 1024;
constexpr unsigned memory = 1024;  // memory modules; shares its bit
constexpr unsigned slot_arbitration = 4096;
constexpr unsigned processor = 4096;  // presence and TDP signals, temperatures; shares its bit
constexpr unsigned bus = 8192;        // port sensors, adapter bus, drives
constexpr unsigned calculation = 0x4000;
constexpr unsigned outcome = 0x8000;       // what an algorithm came to; generic temperature chips
constexpr unsigned port_access = 0x10000;  // access to a port without an accessor
constexpr unsigned change = 0x20000000;    // changes worth keeping
}  // namespace log_mask
