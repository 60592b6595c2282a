#pragma once

class common_thermal_algorithm;

// The list of rules in force, as the parser fills it; the scheduler keeps it. It never owns the rules.
class algorithm_list {
public:
    virtual ~algorithm_list() = default;
    virtual void free_all_thermal_algorithm_list() = 0;
    virtual unsigned get_thermal_algorithm_size() const = 0;
    // Appends: the order of the calls is the order of polling, `index` is not looked at.
    virtual void add_thermal_algorithm(unsigned index, common_thermal_algorithm* added) = 0;
    virtual void add_thermal_algorithm_done() = 0;
};
