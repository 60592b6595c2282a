#pragma once

#include <string>
#include <vector>

// The parameters of one rule a type, reading the values of sensor "@".
struct sample_rule {
    std::string type;
    std::string parameters;  // lines
};

const std::vector<sample_rule>& sample_rules();

// Those lines for one sensor.
std::string parameters_for(const sample_rule& sample, unsigned sensor);
