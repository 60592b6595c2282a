#include "sensor_map/ipmi_sdr_map.hpp"

#include <gmock/gmock.h>

#include "bench/allocation_counter.hpp"
#include "sensor_map/ipmi_sdr_map_algorithm.hpp"
#include "tests/device/device_fixture.hpp"
#include "tests/support/rules_text.hpp"

namespace {

using sdr_map = common_thermal_device_ipmi_sdr_map;
using utils = common_thermal_utils;
using bytes = std::vector<std::uint8_t>;
using testing::HasSubstr;

constexpr unsigned output_port = 1, first_event_port = 2;
constexpr std::uint8_t number = 9;
const float nan_value = std::nanf("");

class ipmi_sdr_map_test : public device_test {
protected:
    // One entry "K" for x.3 with all its ports, which the host keeps as sensor 9 of logical unit 1.
    void set_up(utils::sel_event_t type, bool known_to_host = true) {
        device.init_sdr_map("K");
        device.set_sdr_parameters("K", 1, 0, 1, 0x100 + number, 0x101);
        device.set_sel_type("K", type);
        device.set_port_output("K", output_port);
        device.set_port_discrete_event("K", first_event_port, first_event_port + 1, first_event_port + 2);
        if (known_to_host) add_to_host();
        dao.update_ipmi_sdr_key_dao("K", "x", 3);
    }
    void add_to_host() { host.sensors.add({1, number}, {.name = "K", .unit = "", .output = output_port}); }
    void give(const std::string& prefix, float value) { dao.update_dev(prefix + "x", 3, value, false); }
    void poll_at(float value) {
        give("", value);
        poll(device);
    }
    std::vector<unsigned> events() const { return {event[0]->value(), event[1]->value(), event[2]->value()}; }
    unsigned event_writes() const { return event[0]->writes() + event[1]->writes() + event[2]->writes(); }
    std::string field(const std::string& name) {
        const std::string text = device.debug() + "\n";
        const std::size_t begin = text.find("\n" + name + "=") + name.size() + 2;
        return text.substr(begin, text.find('\n', begin) - begin);
    }
    std::vector<bytes> requests() {
        auto sent = host.sensors.requests().entries();
        host.sensors.requests().clear();
        return sent;
    }

    sdr_map device{1};
    thermal_host::number_line& output = host.ports.add_number(output_port);
    thermal_host::number_line* event[3] = {&host.ports.add_number(2u), &host.ports.add_number(3u),
                                           &host.ports.add_number(4u)};
};

TEST_F(ipmi_sdr_map_test, state_is_the_first_threshold_reached_and_lower_ones_come_first) {
    sdr_map::data_t data;
    EXPECT_EQ(device.get_state_with_thresholds(255.0f, &data), 0u) << "no threshold is set";
    data.sel_lower_non_recoverable = 2, data.sel_lower_critical = 5, data.sel_lower_non_critical = 10;
    data.sel_non_critical = 80, data.sel_critical = 90, data.sel_non_recoverable = 100;
    const std::pair<float, unsigned> rows[] = {{2, 3},     {2.5f, 2}, {5, 2},     {5.5f, 1}, {10, 1},  {10.5f, 0},
                                               {79.5f, 0}, {80, 1},   {89.5f, 1}, {90, 2},   {100, 3}, {nan_value, 0}};
    for (const auto& [value, state] : rows) {
        EXPECT_EQ(device.get_state_with_thresholds(value, &data), state) << value;
    }
    data.sel_lower_non_critical = 95;
    take_lines(2);
    EXPECT_EQ(device.get_state_with_thresholds(92, &data), 1u) << "above upper critical as well";
    EXPECT_EQ(take_lines(2),
              (text_lines{"common_thermal_device_ipmi_sdr_map::get_state_with_thresholds - 1:[92.000000]"
                          "Upper[100.000000, 90.000000, 80.000000]:Lower[95.000000,5.000000,2.000000]\n"}));
}

TEST_F(ipmi_sdr_map_test, reading_is_converted_in_single_precision_and_rounded_half_away_from_zero) {
    set_up(utils::sel_event_none);
    give("3MIN.", -1000);
    give("3MAX.", INFINITY);
    const struct {
        float m, b, k2, value;
        std::uint32_t raw;
    } rows[] = {{2, 1, 0.5f, 21, 5},    {1, 0, 1, 2.5f, 3},   {1, 0, 1, 2.4f, 2},     {1, 50, 1, 10, 0},
                {1, 0, 1, -0.5f, 0},    {0, 0, 1, 77, 77},    {-4, 0, 1, 77, 77},     {1, -40, 1, 25, 65},
                {100, 0, 1, 9950, 100}, {1, 0, 1, 5e9f, ~0u}, {1, 0, 1, nan_value, 0}};
    for (const auto& row : rows) {
        device.set_sdr_parameters("K", row.m, row.b, row.k2, number, 1);
        poll_at(row.value);
        EXPECT_EQ(output.value(), row.raw) << row.m << ", " << row.b << ", " << row.k2 << ": " << row.value;
    }
}

TEST_F(ipmi_sdr_map_test, value_outside_its_range_or_not_there_leaves_all_ports_as_they_were) {
    set_up(utils::sel_event_bits);
    const auto is_shown = [this](float value) {
        const unsigned before = output.writes();
        poll_at(value);
        return output.writes() != before;
    };
    poll(device);
    EXPECT_EQ(output.writes(), 0u) << "nobody wrote the value";
    for (const auto& [value, shown] : {std::pair{-0.5f, false}, {0.0f, true}, {255.0f, true}, {255.5f, false}}) {
        EXPECT_EQ(is_shown(value), shown) << value;
    }
    EXPECT_EQ(field("sdr_valid_range_max"), "255.000000") << "no longer what it was set up with";
    give("3MIN.", 10);
    give("3MAX.", 50);
    give("3SC.", 40);
    for (const auto& [value, shown] : {std::pair{9.99f, false}, {10.0f, true}, {50.0f, true}, {50.01f, false}}) {
        EXPECT_EQ(is_shown(value), shown) << value;
    }
    // The last one was critical. The invalid one forgot that, so a return to normal is no change.
    EXPECT_EQ(field("sel_event_state"), "0");
    poll_at(20);
    EXPECT_EQ(events(), (std::vector{1u, 1u, 0u}));
    poll_at(45);
    poll_at(20);
    EXPECT_EQ(events(), (std::vector{0u, 0u, 0u}));
}

TEST_F(ipmi_sdr_map_test, changed_thresholds_go_out_together_until_they_are_accepted) {
    set_up(utils::sel_event_thresholds, false);
    const std::pair<const char*, float> thresholds[] = {{"3SNC.", 80.9f}, {"3SC.", 90},   {"3SNR.", 100}, {"3LTHD.", 1},
                                                        {"3LSNC.", 20},   {"3LSCR.", 10}, {"3LSNR.", 300}};
    for (const auto& [prefix, value] : thresholds) give(prefix, value);
    const bytes request{0x20, 0x04, 1, 0x26, number, 63, 20, 10, 300 - 256, 80, 90, 100};
    poll(device);
    EXPECT_EQ(requests(), (std::vector<bytes>{request})) << "without a reading";
    EXPECT_EQ(
        take_lines(2).at(0),
        "common_thermal_device_ipmi_sdr_map::set_sensor_thresholds - 63:Upper[100, 090, 080]:Lower[020,010,044]\n");
    add_to_host();
    poll(device);
    EXPECT_EQ(requests(), (std::vector<bytes>{request})) << "the sensor was not there";
    give("3SNC.", 81);
    give("3LSCR.", 11);
    poll_at(200);
    EXPECT_EQ(requests(), (std::vector<bytes>{{0x20, 0x04, 1, 0x26, number, 8 | 2, 20, 11, 44, 81, 90, 100}}));
    EXPECT_EQ(host.sensors.find({1, number})->thresholds, (thermal_host::sensor_thresholds{20, 11, 44, 81, 90, 100}));
    EXPECT_EQ(field("sel_event_state"), "0");
    // Gone, then back: only coming is told.
    for (const auto& [critical, sent] :
         {std::pair{nan_value, 0u}, {90.0f, 1u}, {255.0f, 0u}, {90.0f, 1u}, {90.0f, 0u}}) {
        give("3SC.", critical);
        poll(device);
        const auto all = requests();
        ASSERT_EQ(all.size(), sent) << critical;
        EXPECT_TRUE(all.empty() || all[0][5] == 16);
    }
    device.set_sdr_parameters("K", 1, 0, 1, 0, 1);
    give("3SNR.", 110);
    poll(device);
    EXPECT_EQ(requests().size(), 0u);
    device.set_sdr_parameters("K", 1, 0, 1, number, 1);
    poll(device);
    EXPECT_EQ(requests().at(0)[5], 32) << "still waiting for a sensor number";
}

TEST_F(ipmi_sdr_map_test, each_event_type_sends_and_drives_what_it_is_for) {
    // Type, requests sent, state.
    const std::tuple<unsigned, std::size_t, unsigned> rows[] = {{0, 0, 0}, {1, 1, 0}, {2, 0, 2}, {3, 0, 2},
                                                                {4, 1, 2}, {5, 0, 2}, {6, 0, 0}};
    give("3SC.", 40);
    for (const auto& [type, sent, state] : rows) {
        for (thermal_host::number_line* line : event) line->set_value(0);
        set_up(static_cast<utils::sel_event_t>(type));
        poll_at(45);
        poll_at(45);
        EXPECT_EQ(requests().size(), sent) << type;
        EXPECT_EQ(field("sel_event_state"), std::to_string(state)) << type;
        EXPECT_EQ(events(), (state != 0 ? std::vector{1u, 1u, 0u} : std::vector{0u, 0u, 0u})) << type;
        EXPECT_EQ(output.value(), 45u) << type;
    }
    set_up(utils::sel_event_thresholds_and_bits);
    device.set_sdr_parameters("K", 1, 0, 1, number + 1, 1);
    poll_at(45);
    EXPECT_EQ(field("sel_event_state"), "2") << "though the command failed";
}

TEST_F(ipmi_sdr_map_test, event_ports_are_written_only_on_a_change_of_state) {
    for (const utils::sel_event_t type : {utils::sel_event_bits, utils::sel_event_integers}) {
        set_up(type);
        give("3SNC.", 80);
        give("3SC.", 90);
        give("3SNR.", 100);
        unsigned writes = event_writes();
        const std::pair<float, std::vector<unsigned>> steps[] = {{95, {1, 1, 0}}, {96, {1, 1, 0}}, {85, {1, 0, 0}},
                                                                 {70, {0, 0, 0}}, {91, {1, 1, 0}}, {120, {1, 1, 1}},
                                                                 {60, {0, 0, 0}}, {61, {0, 0, 0}}};
        for (const auto& [value, expected] : steps) {
            const bool changed = events() != expected;
            poll_at(value);
            EXPECT_EQ(events(), expected) << value;
            EXPECT_EQ(event_writes(), writes += changed ? 3 : 0) << value;
        }
    }
    auto& named = host.ports.add_number("c");
    device.set_port_discrete_event("K", "no line", "", "c");
    poll_at(120);
    EXPECT_EQ(named.value(), 1u);
}

TEST_F(ipmi_sdr_map_test, lower_thresholds_outlive_their_flag) {
    set_up(utils::sel_event_bits);
    give("3LTHD.", 0.5f);
    give("3LSNC.", 20);
    poll_at(15);
    EXPECT_EQ(field("sel_event_state"), "1");
    common_thermal_dao before_any_rule;
    device.poll(&before_any_rule, 0);
    EXPECT_EQ(field("sel_event_state"), "0") << "nobody says what the sensor shows";
    poll_at(15);
    dao.update_ipmi_sdr_key_dao("K", "nobody wrote it", 3);
    poll(device);
    EXPECT_EQ(field("sel_lower_threshold") + field("sel_event_state"), "0.0000000");
    dao.update_ipmi_sdr_key_dao("K", "x", 3);
    give("3LTHD.", 0);
    give("3LSNC.", 10);
    poll(device);
    EXPECT_EQ(field("sel_event_state"), "1") << "neither dropped nor read";
}

TEST_F(ipmi_sdr_map_test, waits_for_every_event_status_it_depends_on) {
    common_thermal_device_event_status first(1), second(2);
    set_up(utils::sel_event_none);
    poll_at(1);
    EXPECT_EQ(output.value(), 1u) << "nobody to wait for";
    link(device, {&first, &second});
    first.set_stage(utils::ipmi_ready, true);
    poll_at(2);
    EXPECT_EQ(output.value(), 1u);
    second.set_stage(utils::ipmi_ready, true);
    poll(device);
    EXPECT_EQ(output.value(), 2u);
}

TEST_F(ipmi_sdr_map_test, board_error_leaves_a_warning_and_a_new_entry_starts_afresh) {
    poll(device);
    EXPECT_EQ(take_lines(~0u).size(), 0u) << "no entry, no line";
    device.set_sdr_parameters("?", 2, 0, 1, 1, 0);
    device.set_port_output("?", "key");
    EXPECT_EQ(lines_with("no entry for map key [?]\n"), 2);
    EXPECT_EQ(device.debug(), "");
    set_up(utils::sel_event_bits);
    device.init_sdr_map("K");
    EXPECT_EQ(field("sel_type") + field("sensor_num") + field("sdr_valid_range_max"), "00100.000000");
    EXPECT_THAT(device.debug(), testing::Not(HasSubstr("port_output")));
}

TEST_F(ipmi_sdr_map_test, traced_sensor_tells_its_way_from_the_store_to_the_port) {
    const std::string traced = "XXXmap_CPU1_PECI_THERMAL", trace = "tdev_ipmi_sdr::poll() - ";
    host.pin_names[output_port] = "PECI";
    device.init_sdr_map(traced);
    device.set_sdr_parameters(traced, 0, 1, 0.5f, 0, 7);
    device.set_port_output(traced, output_port);
    dao.update_ipmi_sdr_key_dao(traced, "x", 3);
    give("3SC.", 90);
    give("3LTHD.", 1);
    take_lines(~0u);
    poll_at(21);
    const std::string thresholds = "[255.000000:255.000000,90.000000:90.000000,255.000000:255.000000]\n";
    const std::string factors = "[1.000000,0.500000,1.000000]", range = "[0.000000, 255.000000, 21.000000]";
    EXPECT_EQ(take_lines(0x20000002),
              (text_lines{trace + "map_key[" + traced + "]\n", trace + "DAO[x.3]=[21.00]\n",
                          trace + "3MIN IO missing for DAO[x.3]\n", trace + "3MAX IO missing for DAO[x.3]\n",
                          trace + "in-val=[21.000000] out-val=float[9.500000] uint[9] port_output[PECI]\n",
                          "common_thermal_device_ipmi_sdr_map::poll - 1:[x, 3] " + range + " " + factors +
                              " [0-1.000000] " + thresholds,
                          trace + "1:[x.3] min/max/val" + range + " m/k2/b" + factors + " type/low[0-1.000000] thresh" +
                              thresholds}));
    EXPECT_THAT(device.debug(), HasSubstr("\nsensor_num=0\nlun=7\nsdr_m=0.000000\nsdr_b=1.000000\nsdr_k2=0.500000\n"));
    give("3MIN.", 50);
    give("3MAX.", 10);
    poll(device);
    EXPECT_EQ(lines_with(trace + "3MIN check failed for DAO[x.3]\n"), 1);
    EXPECT_EQ(lines_with(trace + "3MAX check failed for DAO[x.3]\n"), 1);
}

// The rule file's side, by way of the store.
class ipmi_sdr_map_rule_test : public ipmi_sdr_map_test {
protected:
    void load(const std::string& parameters) {
        rules_text text("[R]\n" + parameters);
        rule.parse_parameters(&text, "R");
        rule.polling(&dao, 0);
    }
    common_thermal_algorithm_ipmi_sdr_map rule{5};
};

TEST_F(ipmi_sdr_map_rule_test, publishes_one_group_of_thresholds_and_a_range_of_each_record) {
    load("");
    EXPECT_EQ(rule.debug(), "");
    EXPECT_EQ(dao.key_count(), 2u) << "the two results";
    EXPECT_EQ(value_of("common_thermal_algorithm_ipmi_sdr_map.result", 5), 0.0f);
    load(
        "PARAMETER_COUNT=2\n1.PARAMETER_X_PREFIX=up\n1.PARAMETER_X_INST=3\n1.PARAMETER_MAP_KEY=U\n"
        "1.PARAMETER_X_SEL_CRITICAL=90.5\n1.PARAMETER_X_SDR_DISPLAY_VALID_RANGE_MAX=150\n"
        "2.PARAMETER_X_PREFIX=low\n2.PARAMETER_X_SEL_LOWER_THRESHOLD=0.5\n2.PARAMETER_X_SEL_NON_CRITICAL=20\n"
        "2.PARAMETER_X_SDR_DISPLAY_VALID_RANGE_MIN=-10\n");
    const std::tuple<const char*, int, float> keys[] = {
        {"3LTHD.up", 3, 0.0f},    {"3SNC.up", 3, 255.0f},   {"3SC.up", 3, 90.5f},    {"3SNR.up", 3, 255.0f},
        {"3MIN.up", 3, 0.0f},     {"3MAX.up", 3, 150.0f},   {"3LTHD.low", 0, 1.0f},  {"3LSNC.low", 0, 20.0f},
        {"3LSCR.low", 0, 255.0f}, {"3LSNR.low", 0, 255.0f}, {"3MIN.low", 0, -10.0f}, {"3MAX.low", 0, 255.0f}};
    for (const auto& [key, instance, value] : keys) EXPECT_EQ(value_of(key, instance), value) << key;
    EXPECT_EQ(dao.key_count(), 2 + std::size(keys)) << "nothing of the other group";
}

TEST_F(ipmi_sdr_map_rule_test, decides_what_the_device_shows_without_allocating_in_steady_polls) {
    set_up(utils::sel_event_thresholds_and_bits);
    dao.update_dev("an_input_with_a_long_name", 1, 95, false);
    const std::string common =
        "PARAMETER_COUNT=1\n1.PARAMETER_X_INST=1\n1.PARAMETER_MAP_KEY=K\n"
        "1.PARAMETER_X_SEL_CRITICAL=90\n1.PARAMETER_X_PREFIX=";
    load(common + "an_input_with_a_long_name");
    poll(device);
    EXPECT_EQ(output.value(), 95u);
    EXPECT_EQ(requests().at(0)[5], 16);
    host.log.set_mask(0);
    const allocation_counter allocations;
    for (const float value : {94.0f, 80.0f, 93.0f, 300.0f}) {
        dao.update_dev("an_input_with_a_long_name", 1, value, false);
        rule.polling(&dao, 0);
        poll(device);
    }
    EXPECT_EQ(allocations.calls(), 0u);
    EXPECT_EQ(requests().size(), 0u);
    dao.update_dev("another", 1, 30, false);
    load(common + "another");
    poll(device);
    EXPECT_EQ(output.value(), 30u) << "a reload points the sensor elsewhere";
    EXPECT_EQ(requests().size(), 0u) << "the same threshold of another value is no change";
}

}  // namespace
