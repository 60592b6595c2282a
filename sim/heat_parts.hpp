#pragma once

#include <string>

#include "sim/heat_model.hpp"

// Parameters of the parts and fans of a server. Where a figure comes from stands beside it; "chosen" marks an
// engineering estimate within the usual range of such parts.
namespace sim {

part_parameters processor_250w(std::string name);     // die of a processor of 250 W TDP
part_parameters memory_module_ddr(std::string name);  // sensor of a module of 1.5 to 6 W
part_parameters sata_drive(std::string name);         // case of a 2.5 inch drive of 3 to 7 W
part_parameters nvme_drive(std::string name);         // controller of a drive of 4 to 12 W
part_parameters accelerator_300w(std::string name);   // die of an accelerator of up to 300 W
part_parameters adapter_200w(std::string name);       // reading: the die of a 200 W processor adapter
part_parameters switch_chip(std::string name);        // die of a link switch of 60 to 100 W
part_parameters chipset(std::string name);            // die of a platform controller of 8 to 20 W
part_parameters raid_card(std::string name);          // die of a storage controller of 8 to 18 W
part_parameters raid_battery(std::string name);       // cell of its backup pack, 0.1 W floating, 1 W charging
part_parameters retimer(std::string name);            // die of a link retimer of 2 to 8 W
part_parameters voltage_regulator(std::string name);  // power stages that lose 2 to 20 W
part_parameters board_area(std::string name);         // sensor chip on 1 dm2 of board with 1 to 5 W spread over it
part_parameters air_sensor(std::string name);         // thermistor in the air: inlet ambient, power supply inlet

fan_parameters fan_60mm(std::string name);
fan_parameters fan_60mm_pair(std::string name);  // two rotors, one behind the other
fan_parameters fan_40mm(std::string name);

// The inlet air of the recording that adapter_200w() was fitted to: inside a closed case.
constexpr double adapter_recording_inlet_c = 31.5;

}  // namespace sim
