#pragma once

#include <cstdint>
#include <map>
#include <utility>
#include <variant>

#include "platform/devices.hpp"

// Processors as the firmware reads them out of band, without the help of their software.

// The processor's own number for its family.
enum cpu_family_t : std::uint32_t { cpu_family_unknown = 255 };

enum class host_cpu_vendor : std::uint8_t { intel = 1, amd = 2 };

// The bus that an interface talks over. The firmware's: the library only passes these on.
struct nm_peci_interface {
    logical_device* parent;
    const char* name;
    std::uint32_t setting;
};
struct apml_interface {
    logical_device* parent;
    const char* name;
};
using host_cpu_bus = std::variant<nm_peci_interface, apml_interface>;

// One vendor's interface to the processors, which it tells apart by their bus address.
//
// A read_*() asks the processor and returns non-zero on success; it may block for as long as the bus takes. A failed
// one leaves what the last success left. A get_*() tells that and touches no bus. Temperatures are in degrees Celsius.
class PLATFORM_API host_cpu_interface : public logical_device {
public:
    // `power_good_port` names the line that tells whether the host has power. Nothing is asked of the bus yet.
    host_cpu_interface(logical_device* parent, const char* name, const char* type_name, const char* power_good_port,
                       host_cpu_vendor vendor, const host_cpu_bus& bus);

    const char* power_good_port() const { return _power_good_port; }
    host_cpu_vendor vendor() const { return _vendor; }
    const host_cpu_bus& bus() const { return _bus; }
    // From now on a relative temperature of 0.0 is no reading, and the last one stays.
    void set_ignore_dts_zero_reads() { _ignore_dts_zero_reads = true; }

    // Relative to Tjmax: negative while the processor is below it.
    int read_relative_temperature(std::uint8_t address);
    float get_relative_temperature() const { return _relative_temperature; }

    int read_absolute_temperature(std::uint8_t address);
    float get_absolute_temperature() const { return _absolute_temperature; }

    // Degrees left until the processor slows itself down.
    int read_margin_value(std::uint8_t address);
    float get_margin_value() const { return _margin_value; }

    int read_average_power(std::uint8_t address);
    float get_average_power() const { return _average_power; }  // W

    int read_cpu_family(std::uint8_t address);
    cpu_family_t get_cpu_family() const { return _family; }

    // The number of the model within its family.
    int read_cpu_type(std::uint8_t address, cpu_family_t family);
    std::uint32_t get_cpu_type() const { return _type; }

    // The units of the processor's own power and energy counters, as it encodes them.
    int read_cpu_unit(std::uint8_t address);
    std::uint8_t get_power_unit() const { return _power_unit; }
    std::uint8_t get_energy_unit() const { return _energy_unit; }

    // 0.0 while the processor has not worked it out.
    int read_tjmax(std::uint8_t address);
    float get_tjmax() const { return _tjmax; }

    int read_cpu_tdp(std::uint8_t address);
    std::uint16_t get_tdp_power() const { return _tdp; }  // W

    int read_cpu_core_number_mask(std::uint8_t address);
    std::uint32_t get_core_num() const { return _cores; }

    int read_host_cpu_therm_throttle_status(std::uint8_t address);
    std::uint32_t get_host_cpu_therm_throttle_status() const { return _throttle_status; }
    // Non-zero if a status word says that the processor slows itself down now. Touches no bus.
    int check_therm_throttle(unsigned long status) const;

    // Reads the first `count` modules of one memory channel, counted from 0, in one transaction.
    int read_all_dimms_temp(std::uint8_t address, std::uint8_t channel, std::uint8_t count);
    // Whole degrees of the module at `index`, counted from 0; 0 where none was ever read.
    int get_dimm_temp(std::uint8_t channel, std::uint8_t index) const;

    // Failed accesses since the interface was made.
    std::uint32_t get_count_of_bridge_bus_failed() const { return _bus_failures; }

private:
    const char* _power_good_port;
    host_cpu_vendor _vendor;
    host_cpu_bus _bus;
    bool _ignore_dts_zero_reads = false;

    float _margin_value = 68.0f;
    float _absolute_temperature = 30.0f;
    float _relative_temperature = -68.0f;
    float _average_power = 0.0f;
    cpu_family_t _family = cpu_family_unknown;
    std::uint32_t _type = 255;
    std::uint8_t _power_unit = 0;
    std::uint8_t _energy_unit = 0;
    float _tjmax = 0.0f;
    std::uint16_t _tdp = 0;
    std::uint32_t _cores = 0;
    std::uint32_t _throttle_status = 0;
    std::map<std::pair<std::uint8_t, std::uint8_t>, int> _dimm_temperatures;  // by channel and index
    std::uint32_t _bus_failures = 0;
};
