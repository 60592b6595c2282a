#pragma once

#include "algorithm/common_thermal_algorithm.hpp"

// A rule that does nothing; its result stays 0.0. No rule file can name it.
class THERMAL_API common_thermal_algorithm_dummy : public common_thermal_algorithm {
public:
    explicit common_thermal_algorithm_dummy(int instance)
        : common_thermal_algorithm("common_thermal_algorithm_dummy", instance, common_thermal_utils::talg_dummy) {}

    void parse_parameters(ini_file::std_handler*, const std::string&) override {}
    void parse_action(ini_file::std_handler*, const std::string&) override {}
    void poll(common_thermal_dao*, unsigned long) override {}
    std::string debug() override { return {}; }
};
