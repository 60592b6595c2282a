#include "algorithm/control/log.hpp"

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "foundation/diagnostic_file.hpp"
#include "tests/support/host_fixture.hpp"
#include "tests/support/rules_text.hpp"

namespace {

constexpr int rule_number = 7000;

// Logs the store value "log_test<pid>", so that files of other processes stay apart.
class log_test : public host_fixture {
protected:
    log_test() { ::mkdir(diagnostics_directory, 0755); }
    void TearDown() override {
        for (const auto& entry : std::filesystem::directory_iterator(diagnostics_directory)) {
            if (entry.path().filename().string().find(key) != std::string::npos) {
                std::filesystem::remove(entry.path());
            }
        }
    }

    void parse(const std::string& keys) {
        rules_text text("[R]\nPARAMETER_COUNT=1\n1.PARAMETER_X_PREFIX=" + key + "\n1.PARAMETER_X_INST=3\n" + keys);
        rule.parse_parameters(&text, "R");
    }
    void pass(float x, unsigned long now) {
        dao.update_dev(key, 3, x, false);
        rule.poll(&dao, now);
    }
    std::string path(unsigned file) const {
        return std::string(diagnostics_directory) + "/log.7000.1." + std::to_string(file) + "." + key + ".3";
    }
    // Its text, and gone it is.
    std::string take(unsigned file) const {
        std::ostringstream text;
        std::ifstream stream(path(file));
        text << (stream ? "" : "none") << (stream.peek() == EOF ? nullptr : stream.rdbuf());
        std::filesystem::remove(path(file));
        return text.str();
    }

    const std::string key = "log_test" + std::to_string(::getpid());
    common_thermal_algorithm_log rule{rule_number};
};

TEST_F(log_test, changes_fill_a_buffer_and_each_file_begins_where_the_last_one_ended) {
    parse("1.PARAMETER_RECORD_MAX=3\n1.PARAMETER_FILE_MAX=2\n");
    unsigned long now = 100;
    rule.poll(&dao, now);  // nothing to read yet
    for (const float x : {10.0f, 10.0f, 11.0f, 12.0f}) pass(x, ++now);
    EXPECT_EQ(take(0), "none");
    pass(13, ++now);
    EXPECT_EQ(take(0),
              "0=[101, 10.000000]\n1=[103, 11.000000]\n2=[104, 12.000000]\nmetadata=[timestamp:105, rcords:3]\n");
    for (const float x : {13.0f, 14.0f, 15.0f, 16.0f, 17.0f}) pass(x, ++now);
    EXPECT_EQ(take(1),
              "0=[105, 12.000000]\n1=[105, 13.000000]\n2=[107, 14.000000]\nmetadata=[timestamp:108, rcords:3]\n");
    EXPECT_EQ(take(0),
              "0=[108, 14.000000]\n1=[108, 15.000000]\n2=[109, 16.000000]\nmetadata=[timestamp:110, rcords:3]\n");
    EXPECT_EQ(rule.debug(), "\nindex=1\nx_key=" + key + ".3\nrecord_max=3\nfile_max=2\nrecrod_index=2\nfile_index=1");
    rule.write_log_all(200);
    EXPECT_EQ(take(1), "0=[110, 16.000000]\n1=[110, 17.000000]\nmetadata=[timestamp:200, rcords:2]\n");
    rule.write_log_all(300);
    EXPECT_EQ(take(0), "0=[200, 17.000000]\nmetadata=[timestamp:300, rcords:1]\n");
}

TEST_F(log_test, limits_of_one_and_of_none_write_a_file_in_every_pass) {
    parse("1.PARAMETER_RECORD_MAX=1\n1.PARAMETER_FILE_MAX=9\n");
    for (const unsigned long now : {1ul, 2ul, 3ul}) pass(5, now);
    EXPECT_EQ(take(0) + take(1) + take(2),
              "0=[1, 5.000000]\nmetadata=[timestamp:2, rcords:1]\n"
              "0=[2, 5.000000]\nmetadata=[timestamp:3, rcords:1]\nnone");
    for (const char* none : {"", "1.PARAMETER_RECORD_MAX=-1\n1.PARAMETER_FILE_MAX=-5\n"}) {
        parse(none);
        pass(5, 10);
        EXPECT_EQ(take(0), "metadata=[timestamp:10, rcords:0]\n");
        pass(5, 11);
        EXPECT_EQ(take(0), "0=[10, 0.000000]\n1=[10, 5.000000]\nmetadata=[timestamp:11, rcords:2]\n");
    }
}

TEST_F(log_test, files_stay_in_their_directory_and_a_planted_link_is_not_followed) {
    const std::string target = "/tmp/" + key + ".target";
    std::filesystem::create_symlink(target, path(0));
    parse("1.PARAMETER_RECORD_MAX=1\n1.PARAMETER_FILE_MAX=2\n");
    pass(1, 1), pass(2, 2), pass(3, 3);
    EXPECT_FALSE(std::filesystem::exists(target));
    EXPECT_EQ(take(1), "0=[2, 1.000000]\n1=[2, 2.000000]\nmetadata=[timestamp:3, rcords:2]\n") << "the ring moves on";

    const std::string folder = std::string(diagnostics_directory) + "/log.7000.1.1." + key;
    std::filesystem::create_directory(folder);
    rule.set_parameter_x(1, key + "/sub", 3);
    rule.write_log_all(4);
    EXPECT_TRUE(std::filesystem::is_empty(folder));
    rule.set_parameter_x(1, key + std::string(300, 'k'), 3);
    rule.write_log_all(5);
    for (const auto& entry : std::filesystem::directory_iterator(diagnostics_directory)) {
        EXPECT_EQ(entry.path().string().find(key + "kkk"), std::string::npos) << "a name cut off is another name";
    }
}

TEST_F(log_test, first_sample_is_kept_though_it_is_zero_and_a_long_file_is_whole) {
    parse("1.PARAMETER_RECORD_MAX=1000\n1.PARAMETER_FILE_MAX=2\n");
    std::string expected;
    for (int i = 0; i < 500; ++i) {
        pass(static_cast<float>(i), 100);
        expected += std::to_string(i) + "=[100, " + std::to_string(i) + ".000000]\n";
    }
    rule.write_log_all(101);
    EXPECT_EQ(take(0), expected + "metadata=[timestamp:101, rcords:500]\n");
}

}  // namespace
