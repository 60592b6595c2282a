#include "algorithm/common_thermal_algorithm_parser.hpp"

#include <unistd.h>

#include <stdexcept>

#include "tests/support/host_fixture.hpp"
#include "tests/support/temporary_file.hpp"

namespace {

// Keeps what the parser asks of the list, in order.
class traced_list : public algorithm_list {
public:
    void free_all_thermal_algorithm_list() override { note("free"), _rules.clear(); }
    unsigned get_thermal_algorithm_size() const override { return static_cast<unsigned>(_rules.size()); }
    void add_thermal_algorithm(unsigned index, common_thermal_algorithm* rule) override {
        note(std::to_string(index) + "=" + rule->get_name().substr(25) + "." + std::to_string(rule->get_instance()));
        _rules.push_back(rule);
    }
    void add_thermal_algorithm_done() override { note("done"); }
    std::string take_trace() { return std::exchange(_trace, {}); }

private:
    void note(const std::string& what) { _trace += what + " "; }
    std::vector<common_thermal_algorithm*> _rules;
    std::string _trace;
};

class parser_test : public host_fixture {
protected:
    void SetUp() override {
        if (::access("/tmp/ThermalAlgorithm.ini", F_OK) == 0) GTEST_SKIP() << "an override file hides every other";
    }
    // What the parser asked of the list, and how it ended.
    std::string load(const std::string& text) {
        std::string end;
        try {
            common_thermal_algorithm_parser::generate_algorithm_rule(temporary_file(text).path(), &list, rules);
        } catch (const std::invalid_argument& error) {
            end = error.what() + (" in " + rules.group);
        } catch (const std::out_of_range& error) {
            end = error.what() + (" range in " + rules.group);
        }
        return list.take_trace() + end;
    }
    static std::string rule(const std::string& number, const std::string& type, const std::string& keys = "") {
        return "[" + number + ".ALGORITHM]\nTYPE=" + type + "\n" + keys;
    }
    static std::string counted(const std::string& count) { return "[SUMMARY]\nALGORITHM_COUNT=" + count + "\n"; }

    const std::string pid = "common_thermal_algorithm_pid";
    traced_list list;
    rule_set rules;
};

TEST_F(parser_test, rules_are_built_by_number_and_what_is_skipped_uses_no_instance) {
    const std::string six = rule("5", "  " + pid + "_v2\t ", "PARAMETER_COUNT=-1\n") +
                            rule("2", "common_thermal_algorithm_none") + rule("1", pid) +
                            rule("4", "common_thermal_algorithm_PID") +
                            rule("6", pid + "_v3", "PARAMETER_COUNT=2147483647\n") + "[7.ALGORITHM]\nNAME=x\n";
    const std::pair<std::string, const char*> rows[] = {
        {counted("7") + six, "free 1=pid.1 5=pid_v2.2 6=pid_v3.3 done "},
        {six + counted("2000000000"), "free 1=pid.1 5=pid_v2.2 6=pid_v3.3 done "},
        {six, "free done "},
        {counted("2") + rule("01", pid) + rule("2", pid + "\r"), "free done "},
        {counted("1") + rule("1", pid + "_v3") + rule("2", pid), "free 1=pid_v3.1 done "},
    };
    for (const auto& [text, trace] : rows) {
        EXPECT_EQ(load(text), trace) << text;
        EXPECT_EQ(rules.rules.size(), list.get_thermal_algorithm_size());
    }
    load(counted("1") + rule("1", pid));
    common_thermal_algorithm_parser::generate_algorithm_rule("/tmp/there/is/no/such/file", &list, rules);
    EXPECT_EQ(list.get_thermal_algorithm_size(), 0u) << "without a file no rule stays in force";
}

TEST_F(parser_test, diagnostic_text_of_a_rule_is_stable) {
    load(counted("1") + rule("1", pid,
                             "NAME=PCH\nPARAMETER_COUNT=1\n1.PARAMETER_X_PREFIX=pch.t\n1.PARAMETER_X_INST=1\n"
                             "1.PARAMETER_Y_PREFIX=fan.pwm\n1.PARAMETER_Y_INST=-2\n1.PARAMETER_X_TARGET_HI=65\n"
                             "1.PARAMETER_X_TARGET_LO=60\n1.PARAMETER_X_KP=1.5\n1.PARAMETER_X_KI=0.25\n"
                             "1.PARAMETER_X_KD=0\n1.PARAMETER_R_MAX=100\nCONDITION_COUNT=1\n"
                             "1.CONDITION_KEY_PREFIX=pch.presence\n1.CONDITION_INST=3\n1.CONDITION_OPS=OP_EQ\n"
                             "1.CONDITION_VAL=1\nFAN_MAP_COUNT=2\n1.FAN_MAP=12\n2.FAN_MAP=2\n"));
    dao.update_dev("pch.t", 1, 69.0f, false);
    dao.update_dev("fan.pwm", -2, 40.5f, false);
    rules.rules.at(0)->polling(&dao, 0);
    rules.rules[0]->asserted();
    EXPECT_EQ(rules.rules[0]->debugging(),
              "\n\n[name.instance]\ncommon_thermal_algorithm_pid.1"
              "\n[Result]\ncommon_thermal_algorithm_pid.result.1=47.500000\ncustom.PCH.result.1=47.500000"
              "\n[Assertion State]\nTrue"
              "\n[condition list]\npch.presence.3 - OP_EQ - val:1.000000"
              "\n[fan list]\nfan2=47\nfan12=47"
              "\n[parameter list]\nindex=1\nx_key=pch.t.1\ny_key=fan.pwm.-2\nx=69.000000\ny=40.500000"
              "\nkp=1.500000\nki=0.250000\nkd=0.000000\ntarget_high=65.000000\ntarget_low=60.000000"
              "\nr=47.500000\nr_max=100.000000\nerror1=4.000000\nerror2=0.000000\nerror3=0.000000"
              "\nr=y + kp*(error(n)-error(n-1)) + ki*error(n) + kd*(error(n)-2*error(n-1)+error(n-2))\n");
}

}  // namespace
