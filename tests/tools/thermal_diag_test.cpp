#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "algorithm/control/log.hpp"
#include "tests/support/diagnostics.hpp"
#include "tests/support/rules_text.hpp"
#include "tests/support/temporary_file.hpp"
#include "tools/thermal_diag/history_files.hpp"

using namespace thermal_diag;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;

namespace {

const std::string end_at_200 = "\nmetadata=[timestamp:200, rcords:2]\n";

// "150-300 pid.2 31>" for each span; '<' and '>' where it was longer than that.
std::string story(const std::vector<span>& spans) {
    std::ostringstream text;
    for (const span& each : spans) {
        text << (each.began_before ? "<" : "") << each.from << "-" << each.until << " " << each.what.winner << "."
             << each.what.instance << " " << each.what.value << (each.went_on ? ">" : "") << "\n";
    }
    return text.str();
}

history_file fan_file(int turn, const std::string& text) {
    return {"file " + std::to_string(turn), turn, parse(file_kind::fan, text)};
}

TEST(history_files, know_their_names_and_no_others) {
    const auto slot = identify("debug_thermal_pwrlmt_1-12.log.4");
    ASSERT_TRUE(slot);
    EXPECT_EQ(slot->id, (history_id{file_kind::slot, 1, 12}));
    EXPECT_EQ(slot->turn, 4);
    const auto log = identify("log.7.1.23.common_thermal_device_x.temperature.-2");
    ASSERT_TRUE(log);
    EXPECT_EQ(log->id, (history_id{file_kind::log, 7, 1, "common_thermal_device_x.temperature.-2"}));
    EXPECT_EQ(log->turn, 23);
    EXPECT_EQ(identify("debug_thermal_device_scheduler.log.0")->id.kind, file_kind::schedule);
    for (const char* foreign :
         {"", "debug_thermal_fan.log.0", "debug_thermal_fan1.log.", "debug_thermal_cap7.log.0",
          "debug_thermal_fan99999999999999999999.log.0", "debug_thermal_fan1.log.0~", "log.7.1.x"}) {
        EXPECT_FALSE(identify(foreign)) << foreign;
    }
}

TEST(history_files, read_a_line_from_both_ends) {
    const auto text = parse(file_kind::cap, "100-a-b.c-d.-9-425\n110-.0-65535\n" + end_at_200);
    EXPECT_EQ(text.strange_lines, 0u);
    ASSERT_EQ(text.entries.size(), 2u);
    EXPECT_EQ(text.entries[0].winner, "a-b.c-d");
    EXPECT_EQ(text.entries[0].instance, -9);
    EXPECT_EQ(text.entries[0].value, 425.0);
    EXPECT_EQ(text.entries[1].winner, "");
    EXPECT_EQ(text.end, (closing_line{200, 2}));
    EXPECT_EQ(parse(file_kind::log, "0=[101, -10.500000]\nmetadata=[timestamp:105, rcords:1]\n").entries.at(0).value,
              -10.5);
}

TEST(history_files, leave_out_what_is_no_record_and_what_was_cut_off) {
    for (const std::string line : {"-",
                                   "--",
                                   "100",
                                   "100-",
                                   "100-a",
                                   "100-a.1",
                                   "100-a.1-",
                                   "100-a-5",
                                   "100-a.x-5",
                                   "x-a.1-5",
                                   "-5-a.1-5",
                                   "100-a.1-5x",
                                   "100-a.1-nan",
                                   "100-a.1-inf",
                                   "100-a.1-1e999",
                                   "99999999999999999999-a.1-5",
                                   "9223372036854775807-a.1-5",
                                   "metadata=[timestamp:1, rcords:]",
                                   "metadata=[timestamp:, rcords:1]",
                                   "metadata=["}) {
        const auto text =
            parse(file_kind::fan, std::string("100-a.1-5\n").append(line).append("\n").append(end_at_200));
        EXPECT_EQ(text.strange_lines, 1u) << line;
        EXPECT_EQ(text.first_strange_line, 2u) << line;
        EXPECT_EQ(text.entries.size(), 1u) << line;
    }
    for (const std::string line :
         {"0=", "0=[", "0=[]", "0=[1]", "0=[, ]", "0=[1, ]", "0=[, 1]", "=[1, 1]", "0=[1, 1"}) {
        EXPECT_EQ(parse(file_kind::log, line + "\n").strange_lines, 1u) << line;
    }
    const std::string whole = "100-a.1-20.0\n150-b.2-31.0\n" + end_at_200;
    EXPECT_TRUE(parse(file_kind::fan, whole).end);
    for (std::size_t size = 0; size < whole.size(); ++size) {
        const auto text = parse(file_kind::fan, whole.substr(0, size));
        EXPECT_FALSE(text.end) << size;
        EXPECT_EQ(text.strange_lines, 0u) << size;
    }
    EXPECT_EQ(parse(file_kind::fan, "100-a.1-20.0\n150-b.2-3").entries.size(), 1u) << "31.0 once";
}

TEST(history_files, tell_one_story_whatever_their_numbers) {
    // Written as 5, 1, 2; each begins with what the one ahead of it ended with.
    const std::vector<history_file> files{
        fan_file(1, "200-b.2-31.0\n250-a.1-20.0\n\nmetadata=[timestamp:300, rcords:2]\n"),
        fan_file(2, "300-a.1-20.0\n\nmetadata=[timestamp:400, rcords:1]\n"),
        fan_file(5, "100-a.1-20.0\n150-b.2-31.0\n" + end_at_200),
    };
    const history all = merge(files);
    EXPECT_EQ(story(all.spans), "<100-150 a.1 20\n150-250 b.2 31\n250-400 a.1 20>\n");
    EXPECT_TRUE(all.overlapping.empty());
    EXPECT_EQ(story(merge({fan_file(0, "\nmetadata=[timestamp:50, rcords:0]\n"), fan_file(1, "70-a.1-20.0\n")}).spans),
              "<70-70 a.1 20>\n")
        << "a file that is cut off knows no end";
}

TEST(history_files, count_once_what_a_full_disk_cut_off_and_the_next_file_has_again) {
    const history all = merge({fan_file(1, "110-b.2-31.0\n120-c.3-35.0\n\nmetadata=[timestamp:200, rcords:2]\n"),
                               fan_file(0, "100-a.1-20.0\n110-b.2-31.0\n120-c.3")});
    EXPECT_EQ(story(all.spans), "100-100 a.1 20>\n<110-120 b.2 31\n120-200 c.3 35>\n");
    EXPECT_TRUE(all.overlapping.empty());
}

TEST(history_files, show_where_a_file_is_missing_or_belongs_to_another_run) {
    const history_file first = fan_file(0, "100-a.1-20.0\n150-b.2-31.0\n" + end_at_200);
    EXPECT_EQ(story(merge({first, fan_file(2, "300-b.2-31.0\n\nmetadata=[timestamp:400, rcords:1]\n")}).spans),
              "100-150 a.1 20\n150-200 b.2 31>\n<300-400 b.2 31>\n");
    const history both = merge({first, fan_file(1, "120-a.1-20.0\n\nmetadata=[timestamp:130, rcords:1]\n")});
    EXPECT_EQ(both.overlapping, std::vector<std::string>{"file 1"});
}

TEST(history_files, join_values_of_a_winner_but_not_over_a_gap) {
    const auto spans = merge({fan_file(0, "100-a.1-20.0\n110-b.2-31.0\n120-b.2-29.0\n130-b.3-35.0\n" + end_at_200),
                              fan_file(1, "300-b.3-36.0\n\nmetadata=[timestamp:400, rcords:1]\n")})
                           .spans;
    const auto joined = by_winner(spans);
    EXPECT_EQ(story(joined), "100-110 a.1 20\n110-130 b.2 29\n130-200 b.3 35>\n<300-400 b.3 36>\n");
    EXPECT_EQ(joined[1].highest, 31.0);
}

TEST(rule_names, come_from_the_text_that_rules_write) {
    std::string text;
    for (const char* name : {"FLOOR", "a=b.result.1"}) {
        common_thermal_algorithm_log rule(static_cast<int>(text.size()));
        rules_text rules(std::string("[R]\nNAME=") + name + "\n");
        rule.parse_result_name(&rules, "R");
        text += rule.debugging();
        EXPECT_EQ(names_in_snapshot(text)[rule.get_name() + "." + std::to_string(rule.get_instance())], name);
    }
    EXPECT_EQ(names_in_snapshot(text + "[name.instance]\n[name.instance]\nx.1\ncustom.\n").size(), 2u);
}

#ifdef THERMAL_DIAG_TOOL

// A directory of diagnostic files, shown in UTC.
class thermal_diag_tool : public ::testing::Test {
protected:
    thermal_diag_tool() { std::filesystem::create_directory(directory); }
    void TearDown() override { std::filesystem::remove_all(directory); }

    std::string path(const std::string& name) const { return directory + "/" + name; }
    void write(const std::string& name, const std::string& text) const {
        std::ofstream(path(name), std::ios::binary) << text;
    }

    // Exit code, standard output, standard error output.
    std::tuple<int, std::string, std::string> run(const std::string& options) const { return run(directory, options); }
    static std::tuple<int, std::string, std::string> run(const std::string& from, const std::string& options) {
        const temporary_file errors("");
        const temporary_file output("");
        const std::string command = "TZ=UTC0 timeout 60 " THERMAL_DIAG_TOOL " " + from + " " + options + " >" +
                                    output.path() + " 2>" + errors.path();
        const int status = std::system(command.c_str());
        return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, text_of(output.path()), text_of(errors.path())};
    }
    static std::string text_of(const char* path) {
        std::stringstream text;
        text << std::ifstream(path).rdbuf();
        return text.str();
    }

    const std::string directory = "/tmp/thermal_diag_test." + std::to_string(::getpid());
};

TEST_F(thermal_diag_tool, shows_who_won_when_and_by_which_rule) {
    const std::string fan =
        "1767225600-common_thermal_algorithm_pid_v2.25-31.000000\n"
        "1767225660-manual_fan_speed.1-50.000000\n\nmetadata=[timestamp:1767229265, rcords:2]\n";
    write("debug_thermal_fan1.log.0", fan);
    write("debug_thermal_fan2.log.0", fan);
    write("debug_thermal_cap3.log.0",
          "1767225601-NA.0-65535\n1767225630-common_thermal_algorithm_x.9-2\n\n"
          "metadata=[timestamp:1767225640, rcords:2]\n");
    write("debug_thermal_pwrlmt_1-3.log.2", "1767225602-NA.0-100\n\nmetadata=[timestamp:1767225640, rcords:1]\n");
    write("log.60.1.0.key.5", "0=[1767225600, 41.500000]\nmetadata=[timestamp:1767225640, rcords:1]\n");
    for (const char* turn : {"0", "1"}) {
        write(std::string("debug_thermal_algorithm.log.") + turn,
              std::string("\n\n[name.instance]\ncommon_thermal_algorithm_pid_v2.25\n[Result]\nx=1\n") +
                  (*turn == '1' ? "custom.CPU,2.result.1=31.0" : "custom.OLD.result.1=31.0") +
                  "\n\nmetadata=[timestamp:176722560" + turn + ", rcords:1]\n");
    }
    const auto [code, table, errors] = run("");
    EXPECT_EQ(code, 0);
    EXPECT_EQ(errors, "");
    EXPECT_EQ(table,
              "from                 until                lasted     target             value     rule      type.place\n"
              "2026-01-01T00:00:00  2026-01-01T00:01:00  0:01:00    fans 1-2           31 %      CPU,2     pid_v2.25\n"
              "2026-01-01T00:00:01  2026-01-01T00:00:30  0:00:29    cap drives         no cap    nobody    -\n"
              "2026-01-01T00:00:02  2026-01-01T00:00:40  > 0:00:38  location 1 slot 3  no limit  nobody    -\n"
              "2026-01-01T00:00:30  2026-01-01T00:00:40  > 0:00:10  cap drives         level 2   -         x.9\n"
              "2026-01-01T00:01:00  2026-01-01T01:01:05  > 1:00:05  fans 1-2           50 %      operator  "
              "manual_fan_speed.1\n"
              "\n> at least: it stood there before the files begin, or still did when they were written\n");
    EXPECT_EQ(std::get<1>(run("--csv --seconds --fan 2 --slot 1-3 --cap drives --since 2026-01-01T00:00:31")),
              "target,id,from,until,lasted_s,rule,class,instance,lowest,highest,unit,began_before,went_on\n"
              "fan,2,1767225600,1767225660,60,\"CPU,2\",common_thermal_algorithm_pid_v2,25,31,31,%,0,0\n"
              "slot,1-3,1767225602,1767225640,38,nobody,,,,,%,1,1\n"
              "cap,drives,1767225630,1767225640,10,,common_thermal_algorithm_x,9,2,2,level,0,1\n"
              "fan,2,1767225660,1767229265,3605,operator,manual_fan_speed,1,50,50,%,0,1\n");
    EXPECT_THAT(std::get<1>(run("log --key ke")),
                HasSubstr("2026-01-01T00:00:40  > 0:00:40  41.5   key.5  -     60\n"));
    std::string text = "[SUMMARY]\nALGORITHM_COUNT=99\n[7.ALGORITHM]\nTYPE=unknown\n";
    for (int number = 30; number < 56; ++number) {
        text += "[" + std::to_string(number) + ".ALGORITHM]\nTYPE=common_thermal_algorithm_pid_v2\nNAME=FILE_" +
                std::to_string(number) + "\n";
    }
    const temporary_file rules(text);
    EXPECT_THAT(std::get<1>(run(std::string("--rules ") + rules.path())), HasSubstr("31 %      FILE_54   pid_v2.25\n"));
    EXPECT_THAT(std::get<1>(run("files --seconds")),
                HasSubstr("1767229265  2        debug_thermal_fan1.log.0        winners of fan 1"));
}

TEST_F(thermal_diag_tool, shows_the_snapshot_of_a_simulated_server) {
    const diagnostics_to_itself ours;
    const temporary_file output("");
    const std::string command = std::string(THERMAL_SIM_TOOL " --quiet --snapshot --duration 60 >") + output.path();
    ASSERT_EQ(std::system(command.c_str()), 0);
    EXPECT_THAT(text_of(output.path()), HasSubstr("Diagnostic files stand in /tmp/thermal.\n"));
    const auto [code, table, errors] = run(diagnostics_directory, "");
    EXPECT_EQ(code, 0);
    EXPECT_THAT(table,
                AllOf(HasSubstr("fans 1-9               40 %      BOOT"), HasSubstr("FLOOR     cubic_equation_v2.1\n"),
                      HasSubstr("cap host power         allowed   nobody"), HasSubstr("location 1 slots 1-10")));
    const std::string files = std::get<1>(run(diagnostics_directory, "files"));
    for (const char* content : {"schedule", "winners of fan 9", "state of all devices", "all values", "IPMI sensors"}) {
        EXPECT_THAT(files, HasSubstr(content));
    }
}

TEST_F(thermal_diag_tool, shows_what_is_whole_of_a_hostile_directory) {
    const std::string whole = "100-a\033[2J.1-20.000000\n\nmetadata=[timestamp:200, rcords:1]\n";
    write("debug_thermal_fan1.log.0", whole);
    write("debug_thermal_fan2.log.0", whole.substr(0, whole.size() - 5));
    std::mt19937 noise(7);
    std::string bytes(100000, '\0');
    std::ranges::generate(bytes, [&noise] { return static_cast<char>(noise()); });
    write("debug_thermal_fan3.log.0", bytes);
    write("debug_thermal_algorithm.log.0", bytes);
    std::filesystem::create_symlink("debug_thermal_fan1.log.0", path("debug_thermal_fan4.log.0"));
    ::mkfifo(path("debug_thermal_fan5.log.0").c_str(), 0644);
    std::filesystem::create_directory(path("debug_thermal_fan6.log.0"));
    write("debug_thermal_fan7.log.0", whole);
    std::filesystem::resize_file(path("debug_thermal_fan7.log.0"), std::uintmax_t{1} << 40);
    write("debug_thermal_fan8.log.0", "100-a.1-20.000000\n\nmetadata=[timestamp:200, rcords:3]\n");
    const auto [code, table, errors] = run("");
    EXPECT_EQ(code, 0);
    EXPECT_THAT(table, AllOf(HasSubstr("fan 2 "), HasSubstr("fan 8 "), HasSubstr("a?[2J.1"), Not(HasSubstr("\033"))));
    for (const char* message : {"fan2.log.0: cut off", "fan3.log.0: ", "fan4.log.0: a link", "fan5.log.0: no file",
                                "fan6.log.0: no file", "fan7.log.0: larger than 4 MB", "fan8.log.0: 1 of 3 records"}) {
        EXPECT_THAT(errors, HasSubstr(message));
    }
    EXPECT_THAT(std::get<1>(run("files")), AllOf(HasSubstr("cut off"), HasSubstr("unreadable")));
}

TEST_F(thermal_diag_tool, exits_with_2_and_names_what_is_wrong) {
    const std::pair<const char*, const char*> rows[] = {{"--cap fast", "--cap: 'fast' is none of processors, "},
                                                        {"--slot 1-x", "--slot: '1-x'"},
                                                        {"--since noon", "--since: 'noon'"},
                                                        {"--rules /nowhere.ini", "/nowhere.ini:0: cannot be read"},
                                                        {"log --fan 1", "--fan"},
                                                        {"--fan one", "--fan"},
                                                        {"/nowhere", "/nowhere"}};
    for (const auto& [options, message] : rows) {
        const auto [code, table, errors] = run(options);
        EXPECT_EQ(code, 2) << options;
        EXPECT_THAT(errors, HasSubstr(message)) << options;
        EXPECT_EQ(table, "") << options;
    }
}

#endif

}  // namespace
