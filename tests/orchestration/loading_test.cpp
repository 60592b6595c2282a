#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <fstream>

#include "tests/orchestration/orchestration_fixture.hpp"

namespace {

using thermal_host::log_level;
using names = std::vector<std::string>;

class loading_test : public manager_test {
public:
    loading_test() { manager.set_algorithm_parse_file(path); }
    ~loading_test() override { std::remove(path.c_str()); }

protected:
    void write(const std::string& text) { std::ofstream(path, std::ios::binary) << text; }
    static std::string count(const std::string& text) { return "[SUMMARY]\nALGORITHM_COUNT=" + text + "\n"; }
    static std::string rule(int number, const std::string& entries = {}) {
        return "[" + std::to_string(number) + ".ALGORITHM]\nTYPE=common_thermal_algorithm_pid\nNAME=R" +
               std::to_string(number) + "\n" + entries + "\n";
    }
    // The name and instance of each rule in force.
    names rules() {
        names found;
        for (const alg* each : scheduler.get_all_thermal_algorithm_list()) {
            found.push_back(each->get_key_custom_result().substr(7, 2) + "." + std::to_string(each->get_instance()));
        }
        return found;
    }
    std::string lines_of(log_level level) {
        std::string texts;
        for (const auto& line : host.log.captured().entries()) texts += line.level == level ? line.text : "";
        return texts;
    }
    // The text of the file takes the place of the rules by the time that slot 31 has run.
    void reload(const std::string& text) {
        write(text);
        manager.ipmicmd_load_algorithm();
        host.log.captured().clear();
        run_to(31);
        next_wait();
    }

    const std::string path = testing::TempDir() + "thermal_rules." + std::to_string(::getpid());
    const std::string good = count("2") + rule(1) + rule(2);
};

TEST_F(loading_test, a_broken_rule_file_costs_no_more_than_it_must) {
    const names old{"R1.1", "R2.2"};
    const std::string crlf = "[SUMMARY]\r\nALGORITHM_COUNT=1\r\n[1.ALGORITHM]\r\nTYPE=common_thermal_algorithm_pid\r\n";
    const std::string high = "CONDITION_COUNT=1\n1.CONDITION_VAL=1e99", empty_fan = "FAN_MAP_COUNT=1\n1.FAN_MAP=";
    const char *none = "", *fewer = "fewer";
    // The file, the rules left, `fewer` or the group of the error line, and what was thrown.
    const std::tuple<std::string, names, const char*, const char*> rows[] = {
        {"", {}, none, none},
        {std::string("\0[\x7f\1[\0=\n\xff\xfe=]\0[[\n=\n", 17), {}, none, none},
        {crlf, {}, fewer, none},
        {count("-3") + rule(1), {}, none, none},
        {count("3") + rule(3) + rule(1), {"R1.1", "R3.2"}, fewer, none},
        {count("99999999999") + rule(1), old, "SUMMARY", "stoi"},
        {count("2") + rule(1, "PARAMETER_COUNT=x") + rule(2), {}, "1.ALGORITHM", "stoi"},
        {count("3") + rule(1) + rule(2, empty_fan) + rule(3), {"R1.1"}, "2.ALGORITHM", "stoi"},
        {count("3") + rule(1) + rule(2) + rule(3, high), old, "3.ALGORITHM", "stof"},
    };
    write(good);
    start();
    EXPECT_EQ(rules(), old);
    for (const auto& [text, left, trouble, exception] : rows) {
        SCOPED_TRACE(text);
        reload(text);
        EXPECT_EQ(rules(), left);
        const bool failed = *exception != '\0';
        const std::string errors = lines_of(log_level::error), warnings = lines_of(log_level::warning);
        EXPECT_EQ(std::count(errors.begin(), errors.end(), '\n'), failed ? 1 : 0) << errors;
        EXPECT_TRUE(!failed || errors.find(trouble) != std::string::npos) << errors;
        EXPECT_NE(errors.find(exception), std::string::npos) << errors;
        EXPECT_TRUE(failed || std::count(warnings.begin(), warnings.end(), '\n') == (trouble == fewer)) << warnings;
        run_to(16);
        for (std::size_t slot = 0; slot < 16; ++slot) {
            ASSERT_GT(next_wait(), 0) << "the timer goes on";
            EXPECT_EQ(scheduler.get_current_scheduler_list_size(), slot < left.size() ? 1u : 0u) << "dealt again";
        }
        reload(good);
        EXPECT_EQ(rules(), old) << "a repaired file is taken";
    }
}

TEST_F(loading_test, a_first_load_that_fails_leaves_no_empty_entries_and_the_cycle_runs) {
    write(count("x") + rule(1));
    start();
    EXPECT_EQ(scheduler.get_thermal_algorithm_size(), 0u);
    for (int i = 0; i < 1 + 32; ++i) ASSERT_GT(next_wait(), 0);
    finish_cycle();
    EXPECT_EQ(lines_with("BEGIN Load algorithm"), 1) << "not tried again by itself";
    reload(good);
    EXPECT_EQ(rules().size(), 2u);
}

}  // namespace
