#pragma once

#include <cstdio>
#include <vector>

#include "sim/simulated_server.hpp"
#include "sim/verdict.hpp"

// What thermal-sim prints of caps and sensors: a line of the table where one is not at rest, columns of the CSV, blocks
// of the verdict, and the list of --sensors.
void print_caps(std::FILE* file, const sim::server_caps& caps);
void print_alarms(std::FILE* file, const std::vector<thermal_host::sensor_report>& sensors);
void print_csv_cap_columns(std::FILE* file);
void print_csv_caps(std::FILE* file, const sim::simulated_server& server);
void print_cap_verdict(std::FILE* file, const sim::verdict& verdict);
void print_alarm_verdict(std::FILE* file, const sim::verdict& verdict);
void print_sensors(std::FILE* file, const std::vector<thermal_host::sensor_report>& sensors);
