#include "sim/server_readings.hpp"

#include <algorithm>
#include <cmath>

#include "device/airflow.hpp"

namespace sim {

namespace {

constexpr std::uint8_t record_invalid = 0x08;
constexpr std::size_t record_start = 5;
constexpr std::uint8_t peci_base = 0x30;
// Low-active bits of a socket's register.
constexpr std::uint32_t socket_empty = 0x08;
constexpr std::uint32_t socket_enabled = 0x10;
constexpr std::uint8_t lost = 255;
constexpr std::uint8_t nvme_kind = 1;
constexpr std::uint8_t drive_warning_c = 70;
constexpr std::uint8_t boot_warning_c = 75;

// The duct that the air speed sensor looks at: 12 m/s with all fans at full speed.
constexpr double duct_m2 = 0.0125;
// Kelvin of a watt in a cubic foot a minute, times 1000; from the heat that air takes up.
constexpr double cfm_of_m3_s = 2118.88;
constexpr double exhaust_factor = 1000.0 * cfm_of_m3_s / air_heat_j_m3_k;

// Two's complement with `unit` degrees a step, left-aligned by `shift` bits.
void put_fixed_point(std::uint8_t* bytes, double celsius, double unit, unsigned shift) {
    const auto steps = static_cast<std::uint32_t>(std::lround(celsius / unit)) << shift;
    bytes[0] = static_cast<std::uint8_t>(steps >> 8 & 0xFFu);
    bytes[1] = static_cast<std::uint8_t>(steps & 0xFFu);
}

std::uint32_t whole(double value) { return static_cast<std::uint32_t>(std::max(0L, std::lround(value))); }

// A chip with one register pair, selected by any pointer.
thermal_host::block_line& add_chip(thermal_host::port_registry& ports, unsigned port) {
    thermal_host::block_line& line = ports.add_block(port, {0, 0});
    line.set_script([&line](const std::uint8_t*, std::uint32_t, std::uint8_t* in, std::uint32_t max, int&) {
        const auto count = std::min<std::size_t>(max, line.bytes().size());
        std::copy_n(line.bytes().begin(), count, in);
        return static_cast<std::uint32_t>(count);
    });
    return line;
}

thermal_host::number_line& number_at(const thermal_host::port_registry& ports, unsigned port) {
    return dynamic_cast<thermal_host::number_line&>(*ports.find(port));
}

// The count of the air speed sensor, by halving: its curve rises.
unsigned air_count(double metres_s) {
    unsigned low = 409;
    unsigned high = 3685;
    while (low < high) {
        const unsigned middle = (low + high + 1) / 2;
        float speed = 0.0f;
        common_thermal_device_airflow::convert_to_windspeed(static_cast<float>(middle), speed);
        if (static_cast<double>(speed) <= metres_s) {
            low = middle;
        } else {
            high = middle - 1;
        }
    }
    return low;
}

thermal_host::nvme_address nvme_address_of(unsigned drive) { return {static_cast<std::uint8_t>(drive), nvme_kind}; }

}  // namespace

server_readings::server_readings(thermal_host::platform& host, const machine_plan& plan)
    : _host(host),
      _plan(plan),
      _works(_plan.parts().size(), true),
      _numbers(_plan.parts().size()),
      _blocks(_plan.parts().size()),
      _plugged(drive_bays),
      _exhaust_volume(host.ports.add_number(exhaust_volume_number)),
      _dust_filter(host.ports.add_number(dust_filter_key)) {
    for (const unsigned present : {pch_present_bit, retimer_present_bit, raid_present_bit, baseboard_present_bit,
                                   backplane_present_bit, m2_ambient_present_bit}) {
        host.ports.add_number(present, 1);
    }
    host.ports.add_block(fpga_capability_block, {1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0});
    host.ports.add_block(fpga_record_block, std::vector<std::uint8_t>(16));
    host.ports.add_block(fpga_record_block_2, std::vector<std::uint8_t>(16));
    host.ports.add_number(exhaust_factor_number, whole(exhaust_factor));
    host.ports.add_block(airflow_block, {})
        .set_script([this](const std::uint8_t*, std::uint32_t, std::uint8_t* in, std::uint32_t max, int&) {
            const auto count = std::min<std::size_t>(max, _air_speed.size());
            std::copy_n(_air_speed.begin(), count, in);
            return static_cast<std::uint32_t>(count);
        });
    for (unsigned supply = 1; supply <= power_supplies; ++supply) {
        host.ports.add_number(psu_present_bits + supply, 1);
    }
    add_sockets();
    add_drives();
    for (std::size_t part = 0; part < _plan.parts().size(); ++part) {
        add_part(part);
    }
}

void server_readings::add_sockets() {
    for (unsigned number = 1; number <= sockets; ++number) {
        _host.ports.add_number(socket_registers + number, socket_enabled);
        _host.ports.add_number(socket_throttle_bits + number);
        _host.ports.add_number(socket_throttle_outputs + number);
        const std::string tdp_key = "CPU" + std::to_string(number) + "_TDP";
        _host.ports.add_number(tdp_key);
        constexpr std::uint8_t processor_entity = 3;
        _host.devices.add(processor_entity, static_cast<std::uint8_t>(number), 0x300u + number);
        thermal_host::processor_answers answers;
        answers.tjmax = static_cast<float>(processor_tjmax_c);
        answers.tdp = static_cast<std::uint16_t>(processor_tdp_w);
        auto& added =
            _host.processors.add(host_cpu_vendor::intel, static_cast<std::uint8_t>(peci_base + number - 1), answers);
        added.hold();
        for (std::uint8_t channel = 0; channel < channels_a_socket; ++channel) {
            added.memory[channel].modules.resize(modules_a_channel);
        }
    }
    for (unsigned module = 1; module <= memory_modules; ++module) {
        _host.ports.add_number(module_present_bits + module, 1);
        _host.spd.modules[module - 1] = {32768, 0x80};
    }
}

void server_readings::add_drives() {
    _host.ports.add_block(backplane_block, {0xFE, 0, 0, 0, 0, 0, 0, 0, 0x18, 0x02, 0, 0, 0x01, 0});
    for (unsigned bay = 1; bay <= drive_bays; ++bay) {
        set_drive(bay, true);
    }
    boot_drive_complex_info boot;
    boot.warning_temperature = boot_warning_c;
    boot.vendor = "micron";
    _host.drives.plug_boot(0, card_form_factor_0, boot);
    for (unsigned drive = 1; drive <= m2_drives; ++drive) {
        _host.ports.add_number(m2_present_bits + drive, 1);
        _host.ports.add_number(m2_thresholds + drive, boot_warning_c);
    }
}

void server_readings::add_part(std::size_t part) {
    const server_part& row = _plan.parts()[part];
    switch (row.face) {
        case sensor_face::degrees:
        case sensor_face::millidegrees:
            _numbers[part] = &_host.ports.add_number(row.port_number());
            break;
        case sensor_face::fpga_record:
            _blocks[part] = static_cast<thermal_host::block_line*>(_host.ports.find(row.port));
            break;
        case sensor_face::tmp75:
        case sensor_face::lm92:
            _blocks[part] = &add_chip(_host.ports, row.port);
            break;
        case sensor_face::processor:
        case sensor_face::memory_module:
        case sensor_face::drive_record:
        case sensor_face::boot_record:
        case sensor_face::card:
            break;
    }
}

thermal_host::processor_socket& server_readings::socket(unsigned number) {
    return *_host.processors.find(host_cpu_vendor::intel, static_cast<std::uint8_t>(peci_base + number - 1));
}

void server_readings::show(std::size_t part, double celsius, double watts) {
    const server_part& row = _plan.parts()[part];
    const auto record = [celsius](auto* drive) {
        if (drive != nullptr) drive->info.temperature = static_cast<std::uint8_t>(std::clamp(celsius, 1.0, 254.0));
    };
    switch (row.face) {
        case sensor_face::degrees:
            _numbers[part]->set_value(whole(celsius));
            break;
        case sensor_face::millidegrees:
            _numbers[part]->set_value(whole(celsius * 1000.0));
            break;
        case sensor_face::tmp75:
            put_fixed_point(_blocks[part]->bytes().data(), celsius, 0.0625, 4);
            break;
        case sensor_face::lm92:
            put_fixed_point(_blocks[part]->bytes().data(), celsius, 0.0625, 3);
            break;
        case sensor_face::fpga_record: {
            std::uint8_t* bytes = _blocks[part]->bytes().data() + record_start + row.record;
            put_fixed_point(bytes, celsius, 0.0625, 4);
            bytes[1] = _works[part] ? bytes[1] : record_invalid;
            break;
        }
        case sensor_face::processor: {
            auto& answers = socket(row.number).answers;
            answers.absolute_temperature = static_cast<float>(celsius);
            answers.relative_temperature = static_cast<float>(celsius - processor_tjmax_c);
            answers.margin = static_cast<float>(processor_tjmax_c - celsius);
            answers.average_power = static_cast<float>(watts);
            break;
        }
        case sensor_face::memory_module: {
            const memory_place place = place_of_module(row.number);
            socket(place.socket).memory.at(place.channel).modules[place.index] = static_cast<int>(std::lround(celsius));
            break;
        }
        case sensor_face::drive_record:
            record(_host.drives.find(nvme_address_of(row.number)));
            break;
        case sensor_face::boot_record:
            record(_host.drives.find_boot(0, card_form_factor_0));
            break;
        case sensor_face::card:
            break;
    }
}

void server_readings::show_throttle(unsigned number, bool throttles) {
    socket(number).answers.throttle_status = throttles ? thermal_host::processor_socket::throttling_now : 0;
    number_at(_host.ports, socket_throttle_bits + number).set_value(throttles ? 1 : 0);
}

void server_readings::show_air(double cubic_metres_s) {
    _dust_filter.look();
    _exhaust_volume.set_value(whole(cubic_metres_s * cfm_of_m3_s));
    const unsigned count = air_count(cubic_metres_s / duct_m2);
    _air_speed = {0, static_cast<std::uint8_t>(count >> 8), static_cast<std::uint8_t>(count & 0xFFu)};
}

void server_readings::set_sensor(std::size_t part, bool works) {
    const server_part& row = _plan.parts()[part];
    const auto set_line = [works](port_line& line) { works ? line.recover() : line.fail_reads(); };
    const auto set_record = [works](auto* drive) {
        if (drive != nullptr) drive->stuck_temperature = works ? std::nullopt : std::optional(lost);
    };
    _works[part] = works;
    switch (row.face) {
        case sensor_face::degrees:
        case sensor_face::millidegrees:
            return set_line(*_numbers[part]);
        case sensor_face::tmp75:
        case sensor_face::lm92:
            return set_line(*_blocks[part]);
        case sensor_face::fpga_record:  // records share a line: a lost one is marked in its place
            return;
        case sensor_face::processor:
            return set_line(socket(row.number));
        case sensor_face::memory_module: {
            const memory_place place = place_of_module(row.number);
            return set_line(socket(place.socket).memory.at(place.channel));
        }
        case sensor_face::drive_record:
            return set_record(_host.drives.find(nvme_address_of(row.number)));
        case sensor_face::boot_record:
            return set_record(_host.drives.find_boot(0, card_form_factor_0));
        case sensor_face::card:
            return;
    }
}

void server_readings::set_host_power(bool is_on) {
    for (unsigned number = 1; number <= sockets; ++number) {
        if (is_on == socket(number).is_held()) {
            is_on ? socket(number).release() : socket(number).hold();
        }
    }
}

void server_readings::set_socket(unsigned number, bool present, bool enabled) {
    socket(number).is_present = present;
    number_at(_host.ports, socket_registers + number)
        .set_value((present ? 0 : socket_empty) | (enabled ? socket_enabled : 0));
}

void server_readings::set_drive(unsigned bay, bool plugged) {
    const int number = static_cast<int>(bay);
    _plugged.at(bay - 1) = plugged;
    if (!plugged) {
        _host.drives.pull(number);
    } else if (bay <= sata_bays) {
        _host.drives.plug(number, std::uint8_t{1});
    } else {
        drive_complex_info info;
        info.flags = 0x02;
        info.slot = static_cast<std::uint8_t>(bay);
        info.warning_temperature = drive_warning_c;
        info.temperature = 25;
        _host.drives.plug(number, std::uint8_t{3}, nvme_address_of(bay - sata_bays), info);
    }
}

}  // namespace sim
