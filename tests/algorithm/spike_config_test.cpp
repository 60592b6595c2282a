#include "algorithm/config/spike_pci_list.hpp"
#include "tests/support/rule_fixture.hpp"

namespace {

class spike_config_test : public rule_test {
protected:
    // What the store keeps of a reading.
    float kept(float reading) {
        _sensor.value = reading;
        dao.update_dev(&_sensor, common_thermal_dao::spike_going_high, false);
        return _sensor.value;
    }
    std::vector<float> settings() const {
        return {value_of("1SMC.chip.temperature", 2), value_of("1SC.chip.temperature", 2),
                value_of("1SCL.chip.temperature", 2), value_of("1SCH.chip.temperature", 2)};
    }
    void insert(float x, float y, float z) {
        dao.update_dev("x", 1, x, false);
        dao.update_dev("y", 1, y, false);
        dao.update_dev("z", 1, z, false);
    }

    const std::string target = "1.PARAMETER_SPIKE_TARGET_PREFIX=chip.temperature\n1.PARAMETER_SPIKE_TARGET_INST=2\n";
    const std::string slot =
        "1.PARAMETER_X_PREFIX=x\n1.PARAMETER_X_INST=1\n1.PARAMETER_Y_PREFIX=y\n1.PARAMETER_Y_INST=1\n"
        "1.PARAMETER_Z_PREFIX=z\n1.PARAMETER_Z_INST=1\n";

private:
    common_thermal_dao::dev_data_t _sensor{"chip.temperature", 2};
};

TEST_F(spike_config_test, rule_turns_the_filter_of_a_value_on_and_off_at_its_next_reading) {
    common_thermal_algorithm_config_spike strict(1), off(2), two_sided(3);
    common_thermal_algorithm_config_spike_delta delta(4);
    read(strict, "PARAMETER_COUNT=1\n" + target + "1.PARAMETER_SPIKE_MAX=3.9\n1.PARAMETER_SPIKE_CRITICAL=90.5\n");
    read(off, "PARAMETER_COUNT=1\n" + target);
    read(two_sided, "PARAMETER_COUNT=1\n" + target +
                        "1.PARAMETER_SPIKE_MAX=2\n1.PARAMETER_SPIKE_CRITICAL_LOW=10\n"
                        "1.PARAMETER_SPIKE_CRITICAL_HIGH=100\n");
    read(delta, "PARAMETER_COUNT=1\n" + target + "1.PARAMETER_SPIKE_DELTA_MAX=2\n1.PARAMETER_SPIKE_DELTA=5.5\n");
    // The rule that is polled, if any, then a reading and what is kept of it.
    const std::tuple<common_thermal_algorithm*, float, float> passes[] = {
        {nullptr, 95, 95}, {nullptr, 40, 40},    {&strict, 90, 90}, {&strict, 95, 90},
        {&strict, 96, 90}, {&strict, 97, 97},    {nullptr, 80, 80}, {nullptr, 95, 80},  // the settings outlive the rule
        {&off, 95, 95},    {&two_sided, 50, 50}, {nullptr, 5, 50},  {nullptr, 4, 4},
        {nullptr, 50, 50}, {nullptr, 101, 50},   {nullptr, 50, 50}, {&delta, 55.75f, 50},
        {&delta, 60, 60},  {&delta, 65, 65},     {&off, 120, 120},  {&delta, 200, 200},
    };
    for (const auto& [rule, reading, believed] : passes) {
        if (rule != nullptr) rule->polling(&dao, 0);
        EXPECT_EQ(kept(reading), believed) << reading;
    }
}

TEST_F(spike_config_test, last_rule_that_writes_a_target_stands_and_all_its_keys_are_written) {
    common_thermal_algorithm_config_spike first(1), second(2), none(3);
    read(first, "PARAMETER_COUNT=2\n" + target +
                    "1.PARAMETER_SPIKE_MAX=3\n1.PARAMETER_SPIKE_CRITICAL=90\n1.PARAMETER_SPIKE_CRITICAL_LOW=-5\n"
                    "1.PARAMETER_SPIKE_CRITICAL_HIGH=100\n2.PARAMETER_SPIKE_TARGET_INST=7\n2.PARAMETER_SPIKE_MAX=1\n");
    second.set_parameter_size(1);
    second.set_parameter_spike_target(1, "chip.temperature", 2);
    for (int pass = 0; pass < 2; ++pass) {
        first.polling(&dao, 0);
        EXPECT_EQ(settings(), (std::vector{3.0f, 90.0f, -5.0f, 100.0f}));
        EXPECT_EQ(value_of("1SMC.", 7), 1.0f) << "an empty target";
        second.polling(&dao, 0);
        EXPECT_EQ(settings(), (std::vector{1.0f, 0.0f, 0.0f, 0.0f})) << "start values";
    }
    const auto keys = dao.key_count();
    for (const char* count : {"", "PARAMETER_COUNT=-1\n"}) {
        read(none, count + target);
        none.poll(&dao, 0);
        EXPECT_TRUE(dao.key_count() == keys && none.debug().empty()) << count;
    }
}

TEST_F(spike_config_test, adapter_list_goes_on_writing_the_row_matched_last) {
    common_thermal_algorithm_config_spike_pci_list rule(1);
    const std::string keys = "PARAMETER_COUNT=1\n" + target + slot +
                             "1.PARAMETER_XYZSPIKE_COUNT=2\n"
                             "1.PARAMETER_X.1=4318\n1.PARAMETER_Y.1=65535\n1.PARAMETER_Z.1=65535\n"
                             "1.PARAMETER_SPIKE_MAX.1=2\n1.PARAMETER_SPIKE_CRITICAL.1=90\n"
                             "1.PARAMETER_X.2=8086\n1.PARAMETER_Y.2=1\n1.PARAMETER_Z.2=1\n"
                             "1.PARAMETER_SPIKE_MAX.2=3\n1.PARAMETER_SPIKE_CRITICAL_HIGH.2=80\n";
    read(rule, keys);
    const std::vector<float> zeros(4), first{2, 90, 0, 0}, second{3, 0, 0, 80};
    // Another rule may overwrite the settings between the passes: 99 shows that nothing was written.
    const std::vector<float> untouched{99, 0, 0, 0};
    const std::tuple<float, float, float, std::vector<float>> passes[] = {
        {9, 9, 9, zeros},     {4318, 1, 0, untouched}, {4318, 1, 7, first},  {9, 9, 9, first},
        {8086, 1, 1, second}, {8086, 1, 2, second},    {0, 1, 1, untouched}, {9, 9, 9, second},
    };
    common_thermal_algorithm_config_spike other(2);
    other.set_parameter_spike_target(1, "chip.temperature", 2);
    other.set_parameter_spike_max(1, 99);
    for (const auto& [x, y, z, written] : passes) {
        other.poll(&dao, 0);
        insert(x, y, z);
        rule.polling(&dao, 0);
        EXPECT_EQ(settings(), written) << x << ", " << y << ", " << z;
    }
    read(rule, keys);
    rule.polling(&dao, 0);
    EXPECT_EQ(settings(), zeros) << "a rule that is read again has matched nothing";
}

}  // namespace
