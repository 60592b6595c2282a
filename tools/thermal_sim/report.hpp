#pragma once

#include <cstdio>
#include <string>

#include "sim/simulated_server.hpp"
#include "sim/verdict.hpp"

// What thermal-sim prints; 120 columns at most.
void print_table_head(std::FILE* file, const sim::machine_plan& plan);
void print_table_row(std::FILE* file, const sim::simulated_server& server);
void print_event(std::FILE* file, double seconds, const std::string& text);
void print_verdict(std::FILE* file, const sim::verdict& verdict);
void print_store(std::FILE* file, const common_thermal_dao& store);

// The table's content for other programs: a column a value, a line a row.
void print_csv_head(std::FILE* file, const sim::machine_plan& plan);
void print_csv_row(std::FILE* file, const sim::simulated_server& server);
