#include "foundation/float_conversion.hpp"
#include "foundation/nap.hpp"
#include "foundation/seq_str.hpp"
#include "tests/support/host_fixture.hpp"

namespace {

TEST(seq_str, number_is_padded_with_zeros_and_never_cut) {
    EXPECT_EQ(seq_str("/pci/", 7, "/id", 2).text() + seq_str("", 123, "", 2).text(), "/pci/07/id123");
    EXPECT_EQ(std::string(seq_str("hdd", 0, ".x")), "hdd0.x");
}

TEST(float_conversion, truncates_saturates_and_then_keeps_the_low_bits) {
    const std::pair<float, std::uint32_t> rows[] = {
        {2.9f, 2}, {-0.5f, 0}, {-1e20f, 0}, {4294967040.0f, 4294967040u}, {4294967296.0f, ~0u}, {std::nanf(""), 0}};
    for (const auto& [value, number] : rows) {
        EXPECT_EQ(saturate_to_unsigned(value), number);
        EXPECT_EQ(saturate_to_word(value), number & 0xFFFFu);
        EXPECT_EQ(saturate_to_byte(value), number & 0xFFu);
    }
    EXPECT_EQ(saturate_to_unsigned(std::numeric_limits<float>::infinity()), ~0u);
}

class nap_test : public host_fixture {
protected:
    // The clock starts at second 100.
    bool sleeps_at(int second) {
        host.clock.advance_to(std::chrono::seconds(second - 100));
        return sleeper.check("rule", 0x10);
    }
    nap sleeper;
};

TEST_F(nap_test, sleeps_through_its_end_second_and_wakes_once) {
    EXPECT_FALSE(sleeps_at(100)) << "awake at first";
    sleeper.set("rule", 0x10, 3);
    for (const int second : {100, 102, 103}) EXPECT_TRUE(sleeps_at(second)) << second;
    for (const int second : {104, 104, 105}) EXPECT_FALSE(sleeps_at(second)) << second;
    EXPECT_EQ(take_lines(0x100), (text_lines{"rule::nap_set:[00000010] [00000067]-[03]\n",
                                             "rule::nap_chk:[00000010] [00000067] < [00000068]\n"}));
    sleeper.set("rule", 0, 0);
    EXPECT_TRUE(sleeps_at(105)) << "sleeps out the current second";
    EXPECT_FALSE(sleeps_at(106));
}

TEST_F(nap_test, clock_that_cannot_be_read_counts_as_awake) {
    sleeper.set("rule", 0, 255);
    host.clock.fail_monotonic(1);
    EXPECT_FALSE(sleeps_at(101));
    EXPECT_TRUE(sleeps_at(355)) << "the nap itself stands";
    host.clock.fail_monotonic(1);
    sleeper.set("rule", 0, 9);
    EXPECT_FALSE(sleeps_at(355)) << "no nap without a clock";
}

}  // namespace
