#include "bench/rules_of_every_type.hpp"

#include <fstream>
#include <stdexcept>

const std::vector<sample_rule>& sample_rules() {
    static const std::vector<sample_rule> samples = [] {
        std::ifstream file(THERMAL_SOURCE_DIR "/bench/rules_of_every_type.ini");
        std::vector<sample_rule> rules;
        for (std::string line; std::getline(file, line);) {
            if (line.starts_with('[')) {
                rules.push_back({"common_thermal_algorithm_" + line.substr(1, line.size() - 2), "PARAMETER_COUNT=1\n"});
            } else if (!line.empty() && !line.starts_with(';')) {
                rules.back().parameters += line + "\n";
            }
        }
        if (rules.empty()) {
            throw std::runtime_error("bench/rules_of_every_type.ini cannot be read");
        }
        return rules;
    }();
    return samples;
}

std::string parameters_for(const sample_rule& sample, unsigned sensor) {
    std::string text;
    for (const char c : sample.parameters) {
        text += c == '@' ? std::to_string(sensor) : std::string(1, c);
    }
    return text;
}
