#include <sstream>

#include "tests/support/host_fixture.hpp"

namespace {

using dao_t = common_thermal_dao;

class spike_filter_test : public host_fixture {
protected:
    // Runs "setting=value" and "reading>what is kept" one after the other.
    void run(dao_t::dev_data_t& data, dao_t::dev_data_spike_t kind, const std::string& script, bool log = false) {
        std::istringstream steps(script);
        for (std::string step; steps >> step;) {
            const auto mark = step.find_first_of("=>");
            const float number = std::stof(step.substr(mark + 1));
            if (step[mark] == '=') {
                dao.update_dev(step.substr(0, mark) + "." + data.name, 1, number, false);
                continue;
            }
            data.value = std::stof(step);
            dao.update_dev(&data, kind, log);
            EXPECT_TRUE(data.value == number && value_of(data.name) == number) << step << " gave " << data.value;
        }
    }
};

TEST_F(spike_filter_test, each_road_keeps_and_counts_over_polls) {
    constexpr auto none = dao_t::spike_none;
    constexpr auto high = dao_t::spike_going_high;
    constexpr auto low = dao_t::spike_going_low;
    constexpr auto both = dao_t::spike_going_high_low;
    // With the counts of the range and the delta filter at the end, nan where nobody counted.
    const std::tuple<dao_t::dev_data_spike_t, const char*, const char*> rows[] = {
        {none, "1SMC=3 1SC=90 1SCH=90 95>95", "nan nan"},
        {high, "1SC=90 1SCH=90 95>95", "nan nan"},
        {high, "1SMC=3 1SC=90 50>50 90>50 95>50 95>95 96>96", "4 nan"},
        {high, "1SMC=3 1SC=90 50>50 95>50 95>50 89.75>89.75 95>89.75 95>89.75 50>50", "0 nan"},
        {low, "95>95 1SMC=2 1SC=20 96>96 20>96 19>19 20.25>20.25", "0 nan"},
        {high, "1SMC=2 1SC=90 1SDM=2 1SDT=5 60>60", "0 nan"},
        {high, "1SMC=2 1SC=60 1SCH=90 70>70 90>70 91>91", "2 nan"},
        {high, "1SMC=2 1SC=60 1SCL=20 95>95 20>95", "1 nan"},
        {low, "1SMC=2 1SC=60 1SCH=90 50>50 95>50", "1 nan"},
        {high, "1SMC=2 1SC=90 1SCH=0 1SCL=0 95>0 95>95", "2 nan"},
        {both, "40>40 1SMC=2 1SCH=90 1SCL=20 95>40 10>10 30>30", "0 nan"},
        {both, "1SMC=2 1SC=90 95>95", "0 nan"},
        {both, "40>40 1SMC=2 1SDM=2 1SDT=5 45>40 44.9>44.9 30>44.9 30>30 34.9>34.9 29.75>34.9", "0 1"},
        {low, "40>40 1SMC=2 1SCH=90 1SDM=2 1SDT=5 60>40", "0 1"},
        {both, "1SMC=2 1SDM=2 1SDT=-5 70>70", "0 0"},
        {both, "40>40 1SMC=2 1SCH=90 1SDM=2 1SDT=5 95>40", "1 nan"},
        {both, "40>40 1SMC=2 1SCH=90 1SDM=2 1SDT=5 95>40 95>40 95>95 96>96", "4 0"},
        {high, "1SMC=2 1SC=90 50>50 1SCH=40 50>50 60>60", "2 nan"},
        {both, "40>40 1SMC=2 1SCH=90 50>50 1SDM=2 1SDT=5 60>50", "0 1"},
        {high, "1SC=90 95>95 95>95 1SMC=3 50>50 95>50 1SMC=2 95>95 1SMC=0 50>50 95>95 1SMC=4 96>95", "3 nan"},
    };
    int number = 0;
    for (const auto& [kind, script, counts] : rows) {
        SCOPED_TRACE(std::to_string(kind) + ": " + script);
        dao_t::dev_data_t data("t" + std::to_string(++number), 1);
        run(data, kind, script);
        std::ostringstream counted;
        counted << value_of("1CT." + data.name) << " " << value_of("1SDC." + data.name);
        EXPECT_EQ(counted.str(), counts);
    }
}

TEST_F(spike_filter_test, log_tells_settings_count_value_and_verdict) {
    const std::string head = "common_thermal_dao::check_new_data_with_spike_";
    dao_t::dev_data_t data("t", 1);
    run(data, dao_t::spike_going_high, "1SMC=2 1SC=90 95>0 95>95", true);
    run(data, dao_t::spike_going_high_low, "1SCH=80 1SCL=20 1SDM=3 1SDT=5 60.5>95", true);
    EXPECT_EQ(take_lines(0x20000000 | 512),
              (text_lines{head + "going_high:t.1\n", head + "going_high - [2.00][1.00]-[90.00][95.00]-[00]\n",
                          "OBV - DAO[t.1] = 95.00 -> 0.00 (keep old)\n", head + "going_high:t.1\n",
                          head + "going_high - [2.00][2.00]-[90.00][95.00]-[01]\n",
                          "OBV - DAO[t.1] = 0.00 -> 95.00 (keep new)\n", head + "going_high_low:t.1\n",
                          head + "going_high_low - [2.00][0.00]-[80.00][20.00][60.50]-[01]\n", head + "delta:t.1\n",
                          head + "delta - [3.00][1.00]-[5.00][95.00][60.50]-[00]\n",
                          "OBV - DAO[t.1] = 60.50 -> 95.00 (keep old)\n"}));
}

}  // namespace
