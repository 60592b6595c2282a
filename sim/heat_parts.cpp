#include "sim/heat_parts.hpp"

#include <utility>

namespace sim {

// Each line below: name, fast and slow capacity (J/K), link, conductance with still air, more at full flow (all W/K),
// exponent of the flow. Handbook figures used: heat capacity in J/(g K) of aluminium 0.90, copper 0.385, glass-epoxy
// board about 1.0; heat transfer in W/(m2 K) of still air with radiation about 10, of air at 3 to 5 m/s 25 to 50.

// Measured: least squares over a recording of one adapter, 36 minutes at one sample a second, reading in whole °C, duty
// lag held at 3 s and the capacities at 5 and 320 J/K; 0.78 °C RMS remain. Figures of the recording in brackets:
//   fan stopped, 21.1 W     58.2 °C at the end (58.2), time constant 387 s (360)
//   cooling, 62 to 32 %     time constant 54 s (59)
//   30 to 200 W             16 °C within two seconds (16 to 17 within 1 to 4 s)
//   rise after such a step  time constant 28 s with the fan climbing from 33 to 70 % (21); one slow node cannot serve
//                           both this and the stopped fan, the reading stays within 1.5 °C
//   190 W, 76 % duty        73.6 °C at the end (75)
// The adapter blew with its own fan; behind a fan wall its duty becomes the share of the zone's air flow.
part_parameters adapter_200w(std::string name) { return {std::move(name), 5.0, 320.0, 10.5, 0.855, 8.04, 0.478}; }

// chosen: lid and vapour chamber 90 J/K, 600 g of fins 450 J/K; 0.06 K/W between, sink 0.09 K/W at full flow, usual for
// sinks of two height units; 250 W then end 40 K above the air.
part_parameters processor_250w(std::string name) { return {std::move(name), 90.0, 450.0, 16.0, 0.8, 10.0, 0.5}; }

// chosen: 45 g of board and chips, a fifth of it around the sensor; 80 cm2 of both faces, 10 W/(m2 K) in still air and
// 45 at full flow between neighbours.
part_parameters memory_module_ddr(std::string name) { return {std::move(name), 6.0, 30.0, 2.0, 0.08, 0.3, 0.6}; }

// chosen: 90 g of case at 0.9 J/(g K), a quarter of it at the sensor; 140 cm2, 8 W/(m2 K) in the cage's still air and
// 35 at full flow.
part_parameters sata_drive(std::string name) { return {std::move(name), 20.0, 60.0, 3.0, 0.11, 0.45, 0.6}; }

// chosen: as the drive above, with a pad from the controller to a finned case.
part_parameters nvme_drive(std::string name) { return {std::move(name), 8.0, 70.0, 3.0, 0.12, 0.6, 0.6}; }

// chosen: the adapter above with twice the fins and a vapour chamber, blown at by the fans of the zone.
part_parameters accelerator_300w(std::string name) { return {std::move(name), 8.0, 550.0, 18.0, 1.0, 16.0, 0.5}; }

// chosen: 350 g of aluminium and copper; die to sink close to the adapter above; sink 0.2 K/W at full flow.
part_parameters switch_chip(std::string name) { return {std::move(name), 5.0, 280.0, 12.0, 0.6, 4.4, 0.5}; }

// chosen: 60 g aluminium sink of 40 x 40 x 20 mm (54 J/K), pad of 0.3 K/W; 4 K/W in still air and 0.8 K/W at full flow,
// the usual range of this size.
part_parameters chipset(std::string name) { return {std::move(name), 2.0, 54.0, 3.3, 0.25, 1.0, 0.6}; }

// chosen: 90 g aluminium sink across the card (81 J/K), otherwise a chipset with less than twice its fins.
part_parameters raid_card(std::string name) { return {std::move(name), 2.0, 81.0, 4.0, 0.4, 1.8, 0.6}; }

// chosen: 60 g pack at 1.0 J/(g K), usual for cells, two thirds of it the cell; 60 cm2 of case, 10 W/(m2 K) in still
// air and 40 at full flow.
part_parameters raid_battery(std::string name) { return {std::move(name), 40.0, 20.0, 0.5, 0.06, 0.18, 0.6}; }

// chosen: package of 9 x 13 mm, 8 g clip sink and the board under it 12 J/K, 1 K/W between; 10 K/W in still air and
// 2 K/W at full flow.
part_parameters retimer(std::string name) { return {std::move(name), 0.5, 12.0, 1.0, 0.1, 0.4, 0.6}; }

// chosen: six power stages with their copper 2 J/K; chokes, 25 cm2 of board and a low sink 40 J/K and 250 cm2, 10
// W/(m2 K) in still air and 42 at full flow; 0.5 K/W between.
part_parameters voltage_regulator(std::string name) { return {std::move(name), 2.0, 40.0, 2.0, 0.25, 0.8, 0.6}; }

// Handbook: 100 x 100 x 1.6 mm of board (30 g) with 0.1 mm of copper in all (9 g), 33 J/K; both faces at 10 W/(m2 K) in
// still air and 40 at full flow. chosen: a tenth of it, around the sensor, is heated first, through 1 K/W.
part_parameters board_area(std::string name) { return {std::move(name), 3.0, 30.0, 1.0, 0.2, 0.6, 0.6}; }

// chosen: 0.5 J/K for bead, leads and tab; the 50 s in still and 13 s in moving air that follow are usual for
// mounted thermistors.
part_parameters air_sensor(std::string name) { return {std::move(name), 0.05, 0.45, 0.05, 0.01, 0.03, 0.5}; }

// chosen: 60 x 60 x 38 mm, 0.030 m3/s in free air, half of it against the resistance of a full chassis. The inertia is
// the delay between duty and cooling in the recording of the adapter; so is that of the smaller fan.
fan_parameters fan_60mm(std::string name) { return {std::move(name), 16000.0, 24.0, 0.015, 3.0, 8.0}; }

// chosen: 60 x 60 x 76 mm, 0.040 m3/s in free air; the second rotor keeps more of it against resistance.
fan_parameters fan_60mm_pair(std::string name) { return {std::move(name), 18000.0, 60.0, 0.025, 3.0, 8.0}; }

// chosen: 40 x 40 x 28 mm, 0.010 m3/s in free air, half of it against resistance.
fan_parameters fan_40mm(std::string name) { return {std::move(name), 22000.0, 15.0, 0.005, 3.0, 8.0}; }

}  // namespace sim
