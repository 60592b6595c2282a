#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/diagnostic_file.hpp"
#include "platform/host/ipmi_terminal.hpp"
#include "sim/bundled_files.hpp"
#include "sim/rule_check.hpp"
#include "sim/simulated_server.hpp"
#include "sim/verdict.hpp"
#include "tools/thermal_sim/cap_report.hpp"
#include "tools/thermal_sim/report.hpp"
#include "tools/thermal_sim/slot_report.hpp"

namespace {

constexpr int exit_passed = 0;
constexpr int exit_failed = 1;
constexpr int exit_bad_input = 2;
constexpr double bundled_duration_s = 1800.0;

struct arguments {
    std::string board = "server";
    std::string rules;
    std::string profile;
    std::string trace;
    std::vector<std::string> columns;
    double duration = 0.0;
    double every = 60.0;
    bool real_time = false;
    std::string ipmi_link;
    std::string properties;
    std::string csv;
    unsigned seed = 0;
    std::string log_mask = "0";
    bool dump = false;
    bool sensors = false;
    bool slots = false;
    bool snapshot = false;
    bool quiet = false;
};

// A message for the user and exit code 2.
struct bad_input : std::runtime_error {
    using std::runtime_error::runtime_error;
};

std::string description() {
    std::string parts;
    for (const auto& group : sim::socket_server().groups()) {
        parts.append(parts.empty() ? "" : ", ").append(group.name);
        const std::size_t count = group.parts.size();
        if (count > 1) parts.append("1-").append(std::to_string(count));
    }
    return "Runs a simulated two-socket server under the thermal library and judges how well its rules hold the "
           "temperatures.\n"
           "Without options: half an hour from cold boot over processor, memory and storage load to full load, warm "
           "air, a\n"
           "failing fan and idle again, in a few seconds.\n"
           "\n"
           "Parts: " +
           parts +
           ".\n"
           "Fans 1 to 6 cool the main zone, 7 and 8 the power supplies (psu_inlet, power_vr), 9 storage (battery, "
           "raid,\n"
           "storage, m2, boot). Drives in bays 1 to 8 are sata1 to sata8, in bays 9 to 24 nvme1 to nvme16.";
}

constexpr const char* footer =
    "Load profile (--profile): a CSV file with a header line. Lines that begin with # are comments. Each row holds "
    "until\n"
    "the next. Columns: time_s, and any of\n"
    "  load_percent      0 to 100, share of the way from idle to full power of all parts\n"
    "  processor_load_percent, memory_load_percent, storage_load_percent, adapter_load_percent,\n"
    "  accelerator_load_percent\n"
    "                    the same of these parts, which take the higher of the two\n"
    "  inlet_c           temperature of the air at the inlet\n"
    "  fan_1 ... fan_9   1 turns, 0 stands\n"
    "  drive_1 ... drive_24, slot_1 ... slot_10   1 plugged, 0 pulled\n"
    "  dust_filter       1 asks for a measurement of the dust filter\n"
    "  PART_sensor       1 works, 0 gives no reading; PART is one part (cpu2) or all of a name (cpu)\n"
    "  PART_w            power of each such part in W, in place of the load\n"
    "Trace (--trace): any CSV file with a column whose name begins with 'time' (seconds, or times of day).\n"
    "Both are read at their own times; the last row holds to the end.\n"
    "\n"
    "Table: temperatures are those of the hottest part of a name, whatever a sensor shows. Below them, for each group "
    "of fans that do "
    "the\n"
    "same: the rule that won (NAME and number), duty and speed; '-' where no rule asked for anything. Then, only "
    "while\n"
    "there are any, the caps that rules sent out, the slots that they hold back, and the IPMI sensors that are not "
    "ok.\n"
    "Caps: a cap scales what the parts it is on draw above their idle power, until they keep it or are idle: all of "
    "the\n"
    "machine, the processors, or the memory. Drives have level 1, 80 % of that power, and 2, 60 %. Without host power\n"
    "parts draw nothing; a cap on fans holds fans 1 to 6 back. A processor hotter than 95 \u00b0C slows itself down.\n"
    "Verdict: overshoot is above where a phase began and where it settled, settling the time until a part stayed "
    "within\n"
    "2 \u00b0C; a phase lasts from one change of the profile to the next, the worst one counts.\n"
    "Of each cap: how long it was on, its tightest value, and how many requests came, releases among them. Of each\n"
    "sensor that raised an alarm: its worst state and for how long.\n"
    "CSV: a cap that is not on is an empty cell; withdrawn host power is a cap of 0 W.\n"
    "\n"
    "Exit: 0 every limit held, 1 a part got hotter than its limit or the host lost its power, 2 bad usage or a file "
    "that\n"
    "cannot be used.\n"
    "\n"
    "Examples:\n"
    "  thermal-sim --rules my.ini --every 10\n"
    "  thermal-sim --trace gpu_load_cycle_36min.csv --column adapter=gpu_power_w\n"
    "  thermal-sim --csv - --every 1 > run.csv\n"
    "  thermal-sim --real-time --ipmi-pty /tmp/bmc --properties /tmp/bmc.properties\n"
    "  ipmitool -I serial-terminal -D /tmp/bmc:115200 raw 0x3a 0x07    (duty of each fan; more in docs/ipmi.md)";

void add_options(CLI::App& app, arguments& given) {
    app.footer(footer);
    app.add_option("--board", given.board, "server: ten slots; baseboard: eight accelerators on a board of their own")
        ->check(CLI::IsMember({"server", "baseboard"}));
    app.add_option("--rules", given.rules, "rule file; the bundled one stands in examples/rules")->type_name("FILE");
    app.add_option("--profile", given.profile, "load profile, see below")->type_name("FILE");
    app.add_option("--trace", given.trace, "recorded power, with --column; other parts idle unless a profile is given")
        ->type_name("FILE");
    app.add_option("--column", given.columns, "which column of the trace is the power of which part; repeatable")
        ->type_name("PART=COLUMN")
        ->allow_extra_args(false);
    app.add_option("--duration", given.duration, "seconds to run; otherwise the length of profile or trace")
        ->type_name("SECONDS")
        ->check(CLI::Range(1.0, 1e7));
    app.add_option("--every", given.every, "seconds between rows, 60 unless given")
        ->type_name("SECONDS")
        ->check(CLI::Range(0.1, 1e6));
    CLI::Option* real_time =
        app.add_flag("--real-time", given.real_time, "by the machine's clock; Ctrl-C ends the run with its verdict");
    app.add_option("--ipmi-pty", given.ipmi_link, "link to a terminal on which ipmitool reaches the controller")
        ->type_name("LINK")
        ->needs(real_time);
    app.add_option("--properties", given.properties, "stored settings, kept over a restart; in memory unless given")
        ->type_name("FILE");
    app.add_option("--csv", given.csv, "rows as CSV too; '-' writes them to the standard output in place of the table")
        ->type_name("FILE");
    app.add_option("--seed", given.seed, "noise on sensors and tachometers, the same for the same number; 0 for none")
        ->type_name("NUMBER");
    app.add_option("--log-mask", given.log_mask, "library log lines to show, bits as 0x80; warnings and errors always")
        ->type_name("MASK");
    app.add_flag("--dump", given.dump, "every key and value of the store at the end");
    app.add_flag("--slots", given.slots, "the slots at the end: card, readings, limit, brake and who decided");
    app.add_flag("--sensors", given.sensors, "the IPMI sensors at the end: reading, state and thresholds");
    app.add_flag("--snapshot", given.snapshot,
                 "diagnostic files at the end, which takes some seconds more; thermal-diag shows them");
    app.add_flag("--quiet", given.quiet, "no table, only the verdict");
}

unsigned mask_of(const std::string& text) {
    std::size_t used = 0;
    unsigned long mask = 0;
    try {
        mask = std::stoul(text, &used, 0);
    } catch (const std::exception&) {
        used = 0;
    }
    if (used == 0 || used != text.size() || text.front() == '-' || mask > 0xFFFFFFFFul) {
        throw bad_input("--log-mask: '" + text + "' is no mask of 32 bits");
    }
    return static_cast<unsigned>(mask);
}

// "part=column"
void add_column(sim::load_profile& profile, const sim::machine_plan& plan, const sim::csv_table& trace,
                const std::string& text) {
    const std::size_t separator = text.find('=');
    const auto parts = plan.find(text.substr(0, separator));
    if (separator == std::string::npos || parts.empty()) {
        throw bad_input("--column: '" + text + "' is not PART=COLUMN with a part of this server, --help lists them");
    }
    profile.add_trace(trace, text.substr(separator + 1), parts);
}

sim::load_profile profile_of(const arguments& given, const sim::machine_plan& plan) {
    if (given.trace.empty() != given.columns.empty()) {
        throw bad_input("--trace and --column belong together");
    }
    sim::load_profile profile;
    if (!given.profile.empty()) {
        profile = sim::load_profile::from(sim::csv_table::read(given.profile), plan);
    } else if (given.trace.empty()) {
        profile = sim::load_profile::from(sim::csv_table::parse(sim::bundled_profile, "bundled profile"), plan);
    }
    if (!given.trace.empty()) {
        const auto trace = sim::csv_table::read(given.trace);
        for (const std::string& column : given.columns) {
            add_column(profile, plan, trace, column);
        }
    }
    return profile;
}

void check_rules(const std::string& path) {
    if (std::ifstream(sim::rule_override)) {
        std::fprintf(stderr, "warning: %s exists, the library reads it in place of %s\n", sim::rule_override,
                     path.c_str());
    }
    const sim::rule_check check = sim::check_rules(path);
    if (!check.error.empty()) {
        throw bad_input(check.error);
    }
    for (const std::string& warning : check.warnings) {
        std::fprintf(stderr, "warning: %s\n", warning.c_str());
    }
}

struct file_closer {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using owned_file = std::unique_ptr<std::FILE, file_closer>;

owned_file create(const std::string& path) {
    owned_file file(std::fopen(path.c_str(), "w"));
    if (!file) {
        throw bad_input(path + ":0: cannot be written: " + std::strerror(errno));
    }
    return file;
}

// Where rows go; null for nowhere.
struct outputs {
    std::FILE* table;
    std::FILE* csv;
    std::FILE* verdict;
};

void print_row(const outputs& to, const sim::simulated_server& server) {
    if (to.table != nullptr) print_table_row(to.table, server);
    if (to.csv != nullptr) print_csv_row(to.csv, server);
}

// Warnings and errors always, other lines by the mask. A warning is formatted only if its own bit is on. The vote for
// host power, told as a warning from the first permission on, is no news here: table and verdict show it.
void set_log(thermal_host::platform& host, unsigned mask) {
    constexpr unsigned masks_of_warnings = 1 | 2 | 128;
    static constexpr std::string_view vote = "Power Permission";
    host.log.set_mask(mask | masks_of_warnings);
    host.log.set_sink([mask](const thermal_host::log_line& line) {
        const bool is_warning =
            line.level != thermal_host::log_level::log && line.text.find(vote) == std::string_view::npos;
        if (is_warning || (line.mask & mask) != 0) {
            const std::size_t size = line.text.find_last_not_of('\n') + 1;
            std::fprintf(stderr, "log %c: %.*s\n", static_cast<char>(line.level), static_cast<int>(size),
                         line.text.data());
        }
    });
}

void stop(int) {
    if (thermal_host::platform* host = thermal_host::platform::current()) {
        host->loop.stop();
    }
}

// Asks for every diagnostic file, and runs on until all are written: one request is served a cycle.
void take_snapshot(sim::simulated_server& server, std::FILE* file) {
    constexpr unsigned cycles = 5;    // four requests, and a cycle that may have just ended
    constexpr double patience = 7.0;  // s; a cycle takes about one
    common_thermal_manager& manager = server.manager();
    manager.ipmicmd_debug_on();
    manager.ipmicmd_debug_on_log_alg();
    manager.ipmicmd_debug_on_fan_alg();
    manager.ipmicmd_debug_on_scheduler();
    const unsigned all_served = server.cycles() + cycles;
    const double end = server.now() + patience;
    bool running = true;
    while (running && server.cycles() < all_served && server.now() < end) {
        running = server.run_for(0.1);
    }
    if (!diagnostic_file::is_directory_ours()) {
        std::fprintf(file, "\nNo diagnostic files: %s is not a directory of ours.\n", diagnostics_directory);
    } else {
        std::fprintf(file, "\nDiagnostic files stand in %s%s.\n", diagnostics_directory,
                     server.cycles() < all_served ? ", but not all: the run ended" : "");
    }
}

bool simulate(const arguments& given, const sim::machine_plan& plan, sim::load_profile profile,
              const std::string& rules, const outputs& to) {
    const double end = given.duration > 0.0        ? given.duration
                       : profile.last_time() > 0.0 ? profile.last_time()
                                                   : bundled_duration_s;
    constexpr double sample_period = 1.0;
    sim::verdict verdict(plan, sample_period);
    const auto tell = [&](double seconds, const std::string& text) {
        verdict.begin_phase();
        if (to.table != nullptr) print_event(to.table, seconds, text);
    };
    sim::simulated_server server({.rules = rules,
                                  .plan = plan,
                                  .real_time = given.real_time,
                                  .seed = given.seed,
                                  .properties = given.properties},
                                 std::move(profile), tell);
    set_log(server.host(), mask_of(given.log_mask));
    // Ahead of the link: who waits for it may end the run at once.
    for (const int end_of_run : {SIGINT, SIGTERM, SIGHUP}) {
        std::signal(end_of_run, stop);
    }
    std::optional<thermal_host::ipmi_terminal> front;
    if (!given.ipmi_link.empty()) {
        front.emplace(server.host(), given.ipmi_link);
    }

    if (to.table != nullptr) print_table_head(to.table, server.plan());
    if (to.csv != nullptr) print_csv_head(to.csv, server.plan());
    server.host().loop.call_every(std::chrono::seconds(1), [&] { verdict.sample(server); });
    double row_time = 0.0;
    for (bool running = true; running && row_time < end;) {
        row_time = std::min(row_time + given.every, end);
        running = server.run_until(row_time);
        print_row(to, server);
    }
    print_verdict(to.verdict, verdict);
    const bool passed = verdict.passed();
    if (given.slots) print_slots(to.verdict, server);
    if (given.sensors) print_sensors(to.verdict, server.host().sensors.list());
    if (given.dump) print_store(to.verdict, server.store());
    if (given.snapshot) take_snapshot(server, to.verdict);
    return passed;
}

int run(const arguments& given) {
    mask_of(given.log_mask);
    const bool is_baseboard = given.board == sim::baseboard_server().name();
    const sim::machine_plan& plan = is_baseboard ? sim::baseboard_server() : sim::socket_server();
    sim::load_profile profile = profile_of(given, plan);
    std::optional<sim::temporary_file> bundled;
    if (given.rules.empty()) {
        bundled.emplace(sim::bundled_rules);
    }
    const std::string& rules = bundled ? bundled->path() : given.rules;
    check_rules(rules);

    const bool csv_to_output = given.csv == "-";
    const owned_file csv_file = given.csv.empty() || csv_to_output ? nullptr : create(given.csv);
    const outputs to{.table = given.quiet || csv_to_output ? nullptr : stdout,
                     .csv = csv_to_output ? stdout : csv_file.get(),
                     .verdict = csv_to_output ? stderr : stdout};
    return simulate(given, plan, std::move(profile), rules, to) ? exit_passed : exit_failed;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        arguments given;
        CLI::App app(description(), "thermal-sim");
        add_options(app, given);
        try {
            app.parse(argc, argv);
        } catch (const CLI::ParseError& error) {
            return app.exit(error) == 0 ? exit_passed : exit_bad_input;
        }
        return run(given);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return exit_bad_input;
    }
}
