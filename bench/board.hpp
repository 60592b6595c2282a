#pragma once

#include <cstdint>
#include <deque>
#include <iosfwd>
#include <memory>
#include <string>
#include <vector>

#include "device/fan/fan.hpp"
#include "device/fan/fan_control.hpp"
#include "device/fan/fan_pwm.hpp"
#include "device/fan/fan_tach.hpp"
#include "orchestration/common_thermal_manager.hpp"
#include "platform/host/host.hpp"

// Which rules a board runs: PID rules with three conditions, one type after the other, or the same with a condition
// that never holds.
enum class rule_mix { pid, every_type, every_type_failing };

// The machines that performance is measured on: memory ports, log off, virtual time.
struct board_shape {
    const char* name;
    unsigned fans;
    unsigned devices;  // of four values each, the tachometer and the output of each fan among them
    unsigned rules;
    unsigned fans_per_rule;
    rule_mix mix = rule_mix::pid;
};

constexpr board_shape board_s{"S", 8, 60, 40, 8};
constexpr board_shape board_l{"L", 64, 400, 300, 16};
constexpr board_shape board_max{"MAX", 64, 10000, 12000, 16};
constexpr board_shape board_l_all{"L-ALL", 64, 400, 300, 16, rule_mix::every_type};
constexpr board_shape board_l_fail{"L-FAIL", 64, 400, 300, 16, rule_mix::every_type_failing};
constexpr board_shape board_l_none{"L-NONE", 64, 400, 0, 16};
constexpr board_shape all_boards[] = {board_s, board_l, board_max, board_l_all, board_l_fail, board_l_none};

// A rule file for the shape, as a platform engineer would write it.
void write_rules(std::ostream& file, const board_shape& shape);

// One integer port, four values.
class four_value_device : public common_thermal_device {
public:
    explicit four_value_device(int instance);

    void set_port_input(unsigned port) { _port.bind(port); }
    void poll(common_thermal_dao* dao, unsigned long now) override;
    std::string debug() override { return _values.debug_text(); }

private:
    published_values _values;
    device_port _port;
};

// A machine under the real manager. Only one can exist at a time.
class board {
public:
    explicit board(const board_shape& shape);
    ~board();
    board(const board&) = delete;
    board& operator=(const board&) = delete;

    // The manager's ticks, timer and ports included, without the host's event loop around them.
    void run_cycles(unsigned count);
    void run_tick();
    // The slot that the next tick runs.
    unsigned next_slot() const { return _scheduler->get_poll_counter() % 32; }
    // Moves every sensor a little: conditions hold and fail in turn, winners change.
    void stir(unsigned seed);
    // The number of the rule that won fan 1 in the last cycle.
    unsigned winner_of_first_fan() const;
    void reload();

    thermal_host::platform& host() { return _host; }
    common_thermal_dao& store() { return *_dao; }
    common_thermal_manager& manager() { return *_manager; }

private:
    struct fan_parts {
        explicit fan_parts(int instance) : fan(instance), tach(instance), pwm(instance) {}

        common_thermal_device_fan fan;
        common_thermal_device_fan_tach_fpga tach;
        common_thermal_device_fan_pwm_fpga pwm;
    };

    void add_fans();
    void add_devices();

    board_shape _shape;
    thermal_host::platform _host;
    std::string _rule_path;
    std::unique_ptr<common_thermal_scheduler> _scheduler;
    std::unique_ptr<common_thermal_dao> _dao;
    std::unique_ptr<common_thermal_manager> _manager;
    std::unique_ptr<common_thermal_device_fan_control> _fan_control;
    std::deque<fan_parts> _fans;
    std::deque<four_value_device> _devices;
    std::vector<thermal_host::number_line*> _sensors;
};

// Instructions, allocations and memory are read by the benchmarks of their own process.
std::uint64_t resident_bytes();
std::uint64_t peak_resident_bytes();
