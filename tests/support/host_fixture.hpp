#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "platform/host/host.hpp"
#include "store/common_thermal_dao.hpp"

using text_lines = std::vector<std::string>;

// A store on a host of its own in virtual time, with every log line kept.
class host_fixture : public ::testing::Test {
protected:
    host_fixture() {
        host.log.set_file(nullptr);
        host.log.set_mask(~0u);
        host.log.captured().set_capacity(256);
    }

    // The lines under any of these mask bits, 0 for errors, since the last call.
    text_lines take_lines(unsigned mask) {
        text_lines texts;
        for (const auto& line : host.log.captured().entries()) {
            if (line.mask == mask || (line.mask & mask) != 0) texts.push_back(line.text);
        }
        host.log.captured().clear();
        return texts;
    }

    // NaN for a key that nobody wrote.
    static float value_in(const common_thermal_dao& store, const std::string& name, int instance = 1) {
        float value = std::numeric_limits<float>::quiet_NaN();
        store.fetch_dev(name, instance, &value);
        return value;
    }
    float value_of(const std::string& name, int instance = 1) const { return value_in(dao, name, instance); }

    thermal_host::platform host{{.virtual_time = true}};
    common_thermal_dao dao;
};
