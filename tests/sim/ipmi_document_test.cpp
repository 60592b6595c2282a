#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/support/diagnostics.hpp"

#ifdef THERMAL_SIM_TOOL

// The lines of docs/ipmi.md, through the real client, at a simulation that runs.
namespace {

namespace files = std::filesystem;
using namespace std::chrono_literals;

// Lines without blanks at their end, and without empty ones at the end of all: nobody sees those.
class seen_text {
public:
    void add(std::string line) {
        line.erase(line.find_last_not_of(" \r\n") + 1);
        _empty_lines += line.empty() ? 1 : 0;
        if (!line.empty()) {
            _text.append(std::exchange(_empty_lines, 0), '\n').append(line).append("\n");
        }
    }
    const std::string& text() const { return _text; }

private:
    std::string _text;
    std::size_t _empty_lines = 0;
};

struct worked_line {
    unsigned number;
    std::string command;
    seen_text output{};
};

// In blocks marked "console": a command behind "$ ", then what it shows.
std::vector<worked_line> worked_lines(const std::string& path) {
    std::vector<worked_line> lines;
    bool is_inside = false;
    std::ifstream file(path);
    unsigned number = 1;
    for (std::string line; std::getline(file, line); ++number) {
        if (line.starts_with("```")) {
            is_inside = line == "```console";
        } else if (is_inside && line.starts_with("$ ")) {
            lines.push_back({number, line.substr(2)});
        } else if (is_inside && !lines.empty()) {
            lines.back().output.add(line);
        }
    }
    return lines;
}

std::string output_of(const std::string& command) {
    seen_text output;
    std::FILE* pipe = ::popen(("(" + command + ") 2>&1").c_str(), "r");
    char line[512];
    while (pipe != nullptr && std::fgets(line, sizeof(line), pipe) != nullptr) {
        output.add(line);
    }
    if (pipe != nullptr) ::pclose(pipe);
    return output.text();
}

// thermal-sim in a process of its own, asked to end and waited for.
class live_simulation {
public:
    live_simulation(const std::string& link, const std::string& properties) : _process(::fork()) {
        if (_process == 0) {
            ::prctl(PR_SET_PDEATHSIG, SIGKILL);
            ::dup2(::open("/dev/null", O_WRONLY), STDOUT_FILENO);
            ::execl(THERMAL_SIM_TOOL, "thermal-sim", "--real-time", "--duration", "300", "--ipmi-pty", link.c_str(),
                    "--properties", properties.c_str(), nullptr);
            ::_exit(127);
        }
    }
    ~live_simulation() { end(); }
    live_simulation(const live_simulation&) = delete;
    live_simulation& operator=(const live_simulation&) = delete;

    int end() {
        int status = -1;
        if (_process > 0) {
            ::kill(_process, SIGTERM);
            ::waitpid(std::exchange(_process, -1), &status, 0);
        }
        return status;
    }

private:
    pid_t _process;
};

class ipmi_document : public testing::Test {
protected:
    void SetUp() override {
        if (output_of("command -v ipmitool").empty()) {
            ASSERT_EQ(std::getenv("CI"), nullptr) << "ipmitool is missing";
            GTEST_SKIP() << "ipmitool is missing: nobody talked to the simulation";
        }
        files::create_directories(directory);
        ::setenv("BMC", (link + ":115200").c_str(), 1);
    }
    void TearDown() override { files::remove_all(directory); }

    bool has_link() const {
        for (int i = 0; i < 300 && !files::exists(link); ++i) std::this_thread::sleep_for(100ms);
        return files::exists(link);
    }

    diagnostics_to_itself alone;  // the worked lines ask for files
    const files::path directory = files::temp_directory_path() / ("thermal_ipmi_test." + std::to_string(::getpid()));
    const std::string link = directory / "bmc";
    const std::string properties = directory / "properties";
};

// A duty is there with the next cycle, a sensor once the simulation runs for a few seconds.
std::string shown_in_time(const std::string& command, const std::string& expected) {
    const auto deadline = std::chrono::steady_clock::now() + 15s;
    for (;;) {
        std::string shown = output_of(command);
        if (shown == expected || std::chrono::steady_clock::now() > deadline) {
            return shown;
        }
        std::this_thread::sleep_for(250ms);
    }
}

TEST_F(ipmi_document, shows_what_the_client_gets_from_a_live_simulation) {
    live_simulation simulation(link, properties);
    ASSERT_TRUE(has_link());
    const auto lines = worked_lines(THERMAL_SOURCE_DIR "/docs/ipmi.md");
    EXPECT_GT(lines.size(), 50u);
    for (const worked_line& line : lines) {
        const std::string& output = line.output.text();
        ASSERT_EQ(shown_in_time(line.command, output), output)
            << "docs/ipmi.md:" << line.number << ": " << line.command;
    }
    EXPECT_EQ(simulation.end(), 0);
    EXPECT_FALSE(files::is_symlink(link));
}

TEST_F(ipmi_document, settings_survive_a_restart_of_the_simulation) {
    const std::string send = "ipmitool -I serial-terminal -D \"$BMC\" raw 0x3a ";
    {
        const live_simulation simulation(link, properties);
        ASSERT_TRUE(has_link());
        EXPECT_EQ(output_of(send + "0x07 0 30 3 0x12 0x34 0x56 0x78"), "");
        EXPECT_EQ(output_of(send + "0x06 0xc0 1 0x01 0x2c"), "");
    }
    const live_simulation simulation(link, properties);
    ASSERT_TRUE(has_link());
    EXPECT_EQ(output_of(send + "0x07 0 0 0 0xff 0xff 0xff 0xff 0xff"), " 12 34 56 78 03\n");
    EXPECT_EQ(shown_in_time(send + "0x06 0xc0 1", " 01 2c\n"), " 01 2c\n");
}

TEST(ipmi_options, are_refused_without_real_time_and_without_a_place_for_the_link) {
    const std::string tool = THERMAL_SIM_TOOL " --quiet --duration 5 --ipmi-pty ";
    EXPECT_EQ(output_of(tool + "/tmp/unused; echo $?"),
              "--ipmi-pty requires --real-time\n"
              "Run with --help for more information.\n2\n");
    EXPECT_EQ(output_of(tool + "/nowhere/bmc --real-time; echo $?"), "/nowhere/bmc: No such file or directory\n2\n");
}

}  // namespace

#endif
