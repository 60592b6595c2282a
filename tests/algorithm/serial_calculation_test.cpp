#include "algorithm/control/serial_calculation.hpp"
#include "tests/support/rule_fixture.hpp"

namespace {

class serial_calculation_test : public rule_test {
protected:
    // A row with a constant value and an open gate.
    void add(unsigned record, unsigned row, const char* ops, float value, float limit = 1000) {
        chain.set_parameter_d(record, row, value);
        chain.set_parameter_rmax(record, row, limit);
        chain.set_parameter_ops(record, row, ops);
    }
    float result() { return result_of(chain); }

    common_thermal_algorithm_serial_calculation chain{1};
};

TEST_F(serial_calculation_test, chain_folds_from_left_to_right_through_rows_and_records) {
    add(1, 1, "ADD", 10);
    add(1, 2, "ADD", 20);
    add(1, 3, "MUL", 2);
    add(1, 4, "DIV", 3);
    EXPECT_EQ(result(), 20.0f);
    EXPECT_EQ(result(), 20.0f) << "each pass starts from 0.0";
    add(2, 1, "add", 5);
    add(2, 2, "", 5);
    add(2, 3, "MUL", -3);
    EXPECT_EQ(result(), -60.0f);
    add(2, 4, "DIV", 7, 0);
    EXPECT_EQ(result(), -std::numeric_limits<float>::infinity()) << "a limit of 0.0 makes a divisor of 0.0";
    add(2, 5, "MUL", 0);
    EXPECT_TRUE(std::isnan(result()));
}

TEST_F(serial_calculation_test, gate_leaves_out_a_row_until_its_value_is_reached_and_a_lost_value_is_zero) {
    add(1, 1, "ADD", 10);
    add(1, 2, "MUL", 3);
    add(1, 3, "ADD", 1);
    chain.set_parameter_dao_s(1, 2, "s", 4);
    EXPECT_EQ(result(), 31.0f);
    for (const auto& [threshold, s, value] :
         {std::tuple{1.0f, 0.0f, 11.0f}, {1, 1, 31}, {1, 0.9f, 11}, {0, -1, 11}, {-1, -1, 31}}) {
        chain.set_parameter_s(1, 2, threshold);
        dao.update_dev("s", 4, s, false);
        EXPECT_EQ(result(), value) << threshold << ", " << s;
    }
}

TEST_F(serial_calculation_test, derived_value_is_published_and_explained_and_never_drives_a_fan) {
    read(chain,
         "NAME=PCH\nPARAMETER_COUNT=1\nFAN_MAP_COUNT=1\n1.FAN_MAP=1\n1.PARAMETER_TSABCD_COUNT=2\n"
         "1.PARAMETER_TARGET_PREFIX.1=t\n1.PARAMETER_TARGET_INST.1=1\n1.PARAMETER_S_DAO_PREFIX.1=s\n"
         "1.PARAMETER_S_DAO_INST.1=3\n1.PARAMETER_S_VAL.1=1\n1.PARAMETER_B.1=0.01\n1.PARAMETER_C.1=0.5\n"
         "1.PARAMETER_R_MAX.1=1000\n1.PARAMETER_OPS.1=ADD\n"
         "1.PARAMETER_D.2=5\n1.PARAMETER_R_MAX.2=1000\n1.PARAMETER_OPS.2=ADD\n");
    dao.update_dev("t", 1, 60.0f, false);
    for (const auto& [s, value] : {std::pair{1.0f, 71.0f}, {0, 5}}) {
        dao.update_dev("s", 3, s, false);
        EXPECT_EQ(result(), value);
        EXPECT_EQ(value_of("custom.PCH.result"), value);
    }
    const std::string head = "common_thermal_algorithm_serial_calculation::custom.PCH.result - ";
    const text_lines lines = take_lines(0x4000);
    EXPECT_EQ(lines.at(0), head + "[66.00, 66.00]=60.00, 0.00, 0.01, 0.50, 0.00, ADD:[1.00, 1.00]\n");
    EXPECT_EQ(lines.at(2), head + "Final result: 71.00\n");
    EXPECT_NE(chain.debugging().find("\n[fan list]\n[parameter list]\nindex=1\ntsabcd_count=2\nTSABCD#1\nassertion=1"),
              std::string::npos)
        << "the gate is closed again, but it was open once";
}

}  // namespace
