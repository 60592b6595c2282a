#pragma once

#include <cstdio>

#include "sim/simulated_server.hpp"

// Slots whose card is held back now, and by which rule; nothing where there is none.
void print_limited_slots(std::FILE* file, const sim::simulated_server& server);

// Every slot: card, what the library reads of it, its limit and brake, and who decided.
void print_slots(std::FILE* file, const sim::simulated_server& server);
