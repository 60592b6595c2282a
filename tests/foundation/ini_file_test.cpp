#include "foundation/ini_file.hpp"

#include <sstream>

#include "tests/support/host_fixture.hpp"
#include "tests/support/temporary_file.hpp"

namespace {

using namespace std::string_literals;
constexpr const char* missing = "(default)";

TEST(ini_file, every_line_is_a_header_an_entry_or_nothing_from_a_file_and_from_a_stream) {
    const std::tuple<std::string, const char*, const char*, const char*> rows[] = {
        {"  [ 1.ALGORITHM ]  \nTYPE=x\n", "1.ALGORITHM", "TYPE", "x"},
        {"[A] K=0\nK=1", "A", "K", "1"},
        {"[A]\n\t[B]\nK=1", "A", "K", "1"},
        {"[A]\n\t[B]=2", "A", "[B]", "2"},
        {"[A]\n\t#K=1", "A", "#K", "1"},
        {"[A]\n  #K=1", "A", "#K", missing},
        {"[A]\nKEY = a=b ; note", "A", "KEY", "a=b ; note"},
        {" \tK\t= \t1\t2 ", "", "K", "1\t2"},
        {"[]\n = ", "", "", ""},
        {"K=1\nK= bad_key", "", "K", missing},
        {"[A]\n[B\nK=1", "A", "K", "1"},
        {"[A]\n\n   \nno entry\nK=1", "A", "K", "1"},
        {"[A]\r\nK=1\r\n", "A", "K", "1\r"},
        {"[A]\nK=1\n[B]\nK=2\n[A]\nK=3", "A", "K", "3"},
        {"[A]\nK=a\0b\nL=2"s, "A", "K", "a"},
        {"[A]\nK=a\0b\nL=2"s, "A", "L", "2"},
        {"[A]\nK\0L=1\n"s, "A", "K", missing},
        {"\0\0\0\xFF"s, "", "", missing},
    };
    for (const auto& [text, group, key, value] : rows) {
        ini_file::std_handler from_file, from_stream;
        std::istringstream stream(text);
        EXPECT_EQ(from_file.read_ini(temporary_file(text).path()), 0);
        EXPECT_EQ(ini_file::ini_file_reader(&from_stream).read_file(stream), 0);
        EXPECT_STREQ(from_file.get_value(group, key, missing), value) << text;
        EXPECT_STREQ(from_stream.get_value(group, key, missing), value) << text;
    }
}

TEST(ini_file, second_file_goes_on_in_the_group_of_the_first_and_what_was_read_stays) {
    ini_file::std_handler rules;
    ASSERT_EQ(rules.read_ini(temporary_file("[A]\nK=1\nL=1\n[B]\nK=1\nN\0X=1"s).path()), 0);
    const char* kept = rules.get_value("A", "K", missing);
    EXPECT_EQ(rules.read_ini("/tmp/there/is/no/such/file") + rules.read_ini("/tmp"), 2);
    std::string many = "M=2\n[A]\nL=2\n";
    const auto each_entry = [](auto use) {
        for (std::size_t i = 0; i < 10000; ++i) {
            use("G" + std::to_string(i / 50), std::string(i % 50, 'x') + "y", "v" + std::to_string(i));
        }
    };
    each_entry([&](auto group, auto key, auto value) { many += "[" + group + "]\n" + key + "=" + value + "\n"; });
    ASSERT_EQ(rules.read_ini(temporary_file(many).path()), 0);
    EXPECT_STREQ(rules.get_value("B", "M", missing), "2");
    EXPECT_STREQ(rules.get_value("A", "L", missing), "2");
    EXPECT_STREQ(rules.get_value("B", "N", missing), missing) << "a zero byte in a key does not end it";
    EXPECT_STREQ(kept, "1");
    each_entry([&](auto group, auto key, auto value) {
        ASSERT_EQ(rules.get_value(group.c_str(), key.c_str(), missing), value);
    });
}

TEST(ini_file, numbered_groups_are_those_that_are_there_however_far_the_count_goes) {
    ini_file::std_handler rules;
    for (const char* name : {"3.R", "20.R", "1.R", "2000000000.R", "0.R", "04.R", "-5.R", "6.RX", "7x.R", "8", "9.r",
                             "99999999999.R", ".R", "3.R"}) {
        rules.add_group(name);
    }
    EXPECT_EQ(rules.numbered_groups(".R", 2000000000), (std::vector<int>{1, 3, 20, 2000000000}));
    EXPECT_EQ(rules.numbered_groups(".R", 3), (std::vector<int>{1, 3}));
    EXPECT_EQ(rules.numbered_groups(".R", -1), std::vector<int>{});
}

}  // namespace
