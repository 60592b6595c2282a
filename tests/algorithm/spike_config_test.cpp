#include <tuple>

#include "algorithm/config/spike_pci_list.hpp"
#include "tests/support/host_fixture.hpp"
#include "tests/support/rules_text.hpp"

namespace {

class spike_config_test : public host_fixture {
protected:
    // The rule reads these keys of its group.
    template <class Algorithm>
    static void read(Algorithm& rule, const std::string& keys) {
        rules_text rules("[R]\n" + keys);
        rule.parse_parameters(&rules, "R");
    }
    // What the store keeps of a reading.
    float kept(float reading) {
        _sensor.value = reading;
        dao.update_dev(&_sensor, common_thermal_dao::spike_going_high, false);
        return _sensor.value;
    }
    void insert(float x, float y, float z) {
        dao.update_dev("x", 1, x, false);
        dao.update_dev("y", 1, y, false);
        dao.update_dev("z", 1, z, false);
    }

    const std::string target = "1.PARAMETER_SPIKE_TARGET_PREFIX=chip.temperature\n1.PARAMETER_SPIKE_TARGET_INST=2\n";

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
    common_thermal_algorithm_config_spike first(1), second(2);
    read(first, "PARAMETER_COUNT=2\n" + target +
                    "1.PARAMETER_SPIKE_MAX=3\n1.PARAMETER_SPIKE_CRITICAL=90\n1.PARAMETER_SPIKE_CRITICAL_LOW=-5\n"
                    "1.PARAMETER_SPIKE_CRITICAL_HIGH=100\n2.PARAMETER_SPIKE_TARGET_INST=7\n2.PARAMETER_SPIKE_MAX=1\n");
    second.set_parameter_size(1);
    second.set_parameter_spike_target(1, "chip.temperature", 2);
    const auto settings = [this](const std::string& name, int instance) {
        return std::vector{value_of("1SMC." + name, instance), value_of("1SC." + name, instance),
                           value_of("1SCL." + name, instance), value_of("1SCH." + name, instance)};
    };
    for (int pass = 0; pass < 2; ++pass) {
        first.polling(&dao, 0);
        EXPECT_EQ(settings("chip.temperature", 2), (std::vector{3.0f, 90.0f, -5.0f, 100.0f}));
        EXPECT_EQ(settings("", 7), (std::vector{1.0f, 0.0f, 0.0f, 0.0f})) << "an empty target";
        second.polling(&dao, 0);
        EXPECT_EQ(settings("chip.temperature", 2), (std::vector{1.0f, 0.0f, 0.0f, 0.0f})) << "start values";
    }
    EXPECT_EQ(value_of("common_thermal_algorithm_config_spike.result"), 0.0f);
    const auto keys = dao.key_count();
    common_thermal_algorithm_config_spike none(1);
    for (const char* count : {"", "PARAMETER_COUNT=0\n", "PARAMETER_COUNT=-1\n"}) {
        read(none, count + target);
        none.poll(&dao, 0);
        EXPECT_TRUE(dao.key_count() == keys && none.debug().empty()) << count;
    }
    none.set_parameter_size(1);
    none.poll(&dao, 0);
    EXPECT_EQ(value_of("1SMC.", 0), 1.0f) << "a record without a target";
}

TEST_F(spike_config_test, adapter_list_goes_on_writing_the_row_matched_last) {
    common_thermal_algorithm_config_spike_pci_list rule(1);
    const std::string keys =
        "PARAMETER_COUNT=1\n" + target +
        "1.PARAMETER_X_PREFIX=x\n1.PARAMETER_X_INST=1\n1.PARAMETER_Y_PREFIX=y\n1.PARAMETER_Y_INST=1\n"
        "1.PARAMETER_Z_PREFIX=z\n1.PARAMETER_Z_INST=1\n1.PARAMETER_XYZSPIKE_COUNT=2\n"
        "1.PARAMETER_X.1=4318\n1.PARAMETER_Y.1=65535\n1.PARAMETER_Z.1=65535\n"
        "1.PARAMETER_SPIKE_MAX.1=2\n1.PARAMETER_SPIKE_CRITICAL.1=90\n"
        "1.PARAMETER_X.2=8086\n1.PARAMETER_Y.2=1\n1.PARAMETER_Z.2=1\n"
        "1.PARAMETER_SPIKE_MAX.2=3\n1.PARAMETER_SPIKE_CRITICAL_HIGH.2=80\n";
    read(rule, keys);
    const auto settings = [this] {
        return std::vector{value_of("1SMC.chip.temperature", 2), value_of("1SC.chip.temperature", 2),
                           value_of("1SCL.chip.temperature", 2), value_of("1SCH.chip.temperature", 2)};
    };
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
    EXPECT_NE(rule.debug().find("\ncache_x=8086.000000\ncache_y=1.000000\ncache_z=1.000000\ncache_spike_max=3.000000"
                                "\ncache_spike_critical=0.000000\ncache_spike_critical_low=0.000000"
                                "\ncache_spike_critical_high=80.000000"),
              std::string::npos);
    for (const auto& [reading, believed] : {std::pair{85.0f, 0.0f}, {85.0f, 0.0f}, {85.0f, 85.0f}, {20.0f, 20.0f}}) {
        EXPECT_EQ(kept(reading), believed) << "the high and low filter with three polls";
    }
    read(rule, keys);
    rule.polling(&dao, 0);
    EXPECT_EQ(settings(), zeros) << "a rule that is read again has matched nothing";
    EXPECT_EQ(kept(85), 85.0f);
}

TEST_F(spike_config_test, adapter_list_feeds_the_delta_filter) {
    common_thermal_algorithm_config_spike range(1);
    range.set_parameter_spike_target(1, "chip.temperature", 2);
    range.set_parameter_spike_critical_high(1, 100);
    range.poll(&dao, 0);
    common_thermal_algorithm_config_spike_delta_pci_list rule(1);
    rule.set_parameter_dao_x(1, "x", 1);
    rule.set_parameter_dao_y(1, "y", 1);
    rule.set_parameter_dao_z(1, "z", 1);
    rule.set_parameter_dao_spike_target(1, "chip.temperature", 2);
    rule.set_parameter_xyzspike_count(1, 1);
    rule.set_parameter_x(1, 1, 4318);
    rule.set_parameter_y(1, 1, 65535);
    rule.set_parameter_z(1, 1, 65535);
    rule.set_parameter_spike_delta_max(1, 1, 2);
    rule.set_parameter_spike_delta(1, 1, 5);
    EXPECT_EQ(kept(40), 40.0f);
    insert(4318, 1, 1);
    for (const auto& [reading, believed] :
         {std::pair{45.0f, 40.0f}, {45.0f, 45.0f}, {49.75f, 49.75f}, {30.0f, 49.75f}}) {
        rule.polling(&dao, 0);
        EXPECT_EQ(kept(reading), believed) << reading;
    }
    EXPECT_EQ(rule.debug(),
              "\nindex=1\ntarget_key=chip.temperature.2\nx_key=x.1\ny_key=y.1\nz_key=z.1\nxyzspike_count=1"
              "\nx=4318.000000\ny=65535.000000\nz=65535.000000\nspike_delta_max=2.000000\nspike_delta=5.000000"
              "\ncache_x=4318.000000\ncache_y=65535.000000\ncache_z=65535.000000"
              "\ncache_spike_delta_max=2.000000\ncache_spike_delta=5.000000");
}

TEST_F(spike_config_test, diagnostic_text_shows_target_and_settings) {
    common_thermal_algorithm_config_spike rule(1);
    read(rule, "PARAMETER_COUNT=1\n" + target + "1.PARAMETER_SPIKE_MAX=-2\n1.PARAMETER_SPIKE_CRITICAL=90.5\n");
    EXPECT_EQ(rule.debug(),
              "\nindex=1\nx_key=chip.temperature.2\nspike_max=-2.000000\nspike_critical=90.500000"
              "\nspike_critical_low=0.000000\nspike_critical_high=0.000000");
    common_thermal_algorithm_config_spike_delta delta(1);
    delta.set_parameter_size(2);
    delta.set_parameter_spike_target(2, "t", -1);
    delta.set_parameter_spike_delta(2, 0.25f);
    EXPECT_EQ(delta.debug(),
              "\nindex=1\nx_key=.0\nspike_delta_max=1.000000\nspike_delta=0.000000"
              "\nindex=2\nx_key=t.-1\nspike_delta_max=1.000000\nspike_delta=0.250000");
}

}  // namespace
