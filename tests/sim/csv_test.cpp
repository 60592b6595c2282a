#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "sim/csv.hpp"

namespace {

using sim::csv_error;
using sim::csv_table;

template <typename Action>
std::string error_of(Action&& action) {
    try {
        action();
    } catch (const csv_error& error) {
        return error.what();
    }
    return "no error";
}

TEST(csv, reads_columns_by_name_whatever_stands_around_the_cells) {
    const auto table =
        csv_table::parse("\xEF\xBB\xBF# a profile\r\ntime, load ,state\r\n\r\n0,1.5e1,idle\r\n 10 ,-2,busy", "p");
    EXPECT_EQ(2u, table.row_count());
    EXPECT_TRUE(table.has("load"));
    EXPECT_FALSE(table.has("Load"));
    EXPECT_EQ((std::vector{15.0, -2.0}), table.numbers("load"));
    EXPECT_EQ((std::vector{0.0, 10.0}), table.seconds("time"));
}

TEST(csv, counts_seconds_of_time_stamps_from_the_first_row_across_midnight) {
    const auto table =
        csv_table::parse("utc,clock\n2024-02-29T23:59:59.5Z,13:58:50.9\n2024-03-01T00:00:01Z,14:00:00\n", "p");
    EXPECT_EQ((std::vector{0.0, 1.5}), table.seconds("utc"));
    ASSERT_EQ(2u, table.seconds("clock").size());
    EXPECT_NEAR(69.1, table.seconds("clock")[1], 1e-9);
}

TEST(csv, says_file_line_and_what_is_wrong) {
    const struct {
        std::string text, error;
    } rows[] = {
        {"", "f:0: no header line"},
        {"a,a\n", "f:1: two columns are named 'a'"},
        {"a,\n", "f:1: a column has no name"},
        {"t,v\n0,1\n1\n", "f:3: 1 cells where the header has 2"},
        {"t,v\n0,\"1\"\n", "f:2: quotes and binary data are not supported"},
        {"t\n1\n", "f:0: no column 'v', there are: t"},
        {"t,v\n0,1\n1,\n", "f:3: column 'v': '' is no finite number"},
        {"t,v\n0,1e999\n", "f:2: column 'v': '1e999' is no finite number"},
        {"t,v\n0,\x1b[2J\n", "f:2: column 'v': '?[2J' is no finite number"},
        {"t,v\n5,1\n4,2\n", "f:3: the time in column 't' runs backwards"},
        {"t,v\n2025-02-29T08:00:00Z,1\n", "f:2: column 't': '2025-02-29T08:00:00Z' is no time"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(row.error, error_of([&] {
                      const auto table = csv_table::parse(row.text, "f");
                      table.numbers("v");
                      table.seconds("t");
                  }));
    }
    EXPECT_EQ("/nowhere/x.csv:0: cannot be read: No such file or directory",
              error_of([] { csv_table::read("/nowhere/x.csv"); }));
    EXPECT_EQ("/dev/zero:0: larger than 64 MB", error_of([] { csv_table::read("/dev/zero"); }));
}

}  // namespace
