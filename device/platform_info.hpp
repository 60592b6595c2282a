#pragma once

#include <map>

#include "device/common_thermal_device.hpp"

// Integer ports published under names that the board chooses. An unbound port publishes 0.0, a failed read what the port
// answered.
class THERMAL_API common_thermal_device_platform_info : public common_thermal_device {
public:
    explicit common_thermal_device_platform_info(int instance);

    // The value's name becomes the class name + "." + `name`. A name that is there already gets the new port.
    void add_mapping_port_integer_input(const std::string& name, unsigned port);
    void add_mapping_port_integer_input(const std::string& name, const std::string& key);

    void poll(common_thermal_dao* dao, unsigned long now) override;
    std::string debug() override;

private:
    struct mapping {
        mapping(const std::string& name, int instance);

        common_thermal_utils port;
        common_thermal_dao::dev_data_t data;
    };

    common_thermal_utils& add_port(const std::string& name);

    std::map<std::string, mapping> _mappings;
};
